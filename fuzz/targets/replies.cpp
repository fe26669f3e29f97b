// SPDX-License-Identifier: MIT
// The readers of the lists in a server's answers. The first byte of an input is a ReplyList, the
// rest the body of the answer.
#include "../fuzztarget.h"
#include "../inputforms.h"
#include "../targets.h"

#include <brixlib/protocol/replies.h>

#include <QtCore/QIODevice>

using namespace Talverine;

namespace Fuzz {

namespace {

template<class Write>
QByteArray written(QDataStream::Version version, Write write)
{
    QByteArray bytes;
    QDataStream stream(&bytes, QIODevice::WriteOnly);
    stream.setVersion(version);
    write(stream);
    return bytes;
}

bool readsCommandList(QDataStream &stream)
{
    const Replies::CommandList list = Replies::readCommandList(stream);
    if (stream.status() != QDataStream::Ok) {
        require(list.ids.isEmpty() && list.versions.isEmpty(), "half a list of commands");
        return false;
    }
    for (const SCommandId &id : list.ids)
        require(list.versions.contains(id), "a command has no version");

    const auto version = QDataStream::Version(stream.version());
    QDataStream ids(written(version, [&](auto &s) { Replies::writeCommandIds(s, list.ids); }));
    require(Replies::readCommandList(ids).ids == list.ids, "a list of commands changes");
    QDataStream versions(
        written(version, [&](auto &s) { Replies::writeCommandVersions(s, list.versions); }));
    require(Replies::readCommandList(versions).versions == list.versions,
            "a list of versions changes");
    return true;
}

bool readsTexts(QDataStream &stream)
{
    const QList<QString> texts = Replies::readTexts(stream);
    if (stream.status() != QDataStream::Ok) {
        require(texts.isEmpty(), "half a list of texts");
        return false;
    }
    QDataStream again(written(QDataStream::Version(stream.version()),
                              [&](auto &s) { Replies::writeTexts(s, texts); }));
    require(Replies::readTexts(again) == texts, "a list of texts changes");
    return true;
}

} // namespace

bool replies(const QByteArray &input)
{
    Input bytes(input);
    const auto reads =
        ReplyList(bytes.byte()) == ReplyList::Commands ? readsCommandList : readsTexts;
    const QByteArray body = bytes.rest();
    bool accepted = true;
    for (const auto version : {QDataStream::Qt_5_6, QDataStream::Qt_6_0}) {
        QDataStream stream(body);
        stream.setVersion(version);
        accepted = reads(stream) && accepted;
    }
    return accepted;
}

} // namespace Fuzz
