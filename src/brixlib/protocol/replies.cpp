// SPDX-License-Identifier: MIT
#include <brixlib/protocol/replies.h>

namespace Talverine::Replies {

namespace {

void writeCount(QDataStream &stream, qsizetype count)
{
    stream << static_cast<quint32>(count);
}

// An item that was cut off is no item, so a failed list has none at all.
template<class Item>
QList<Item> readList(QDataStream &stream)
{
    QList<Item> items;
    readCounted(stream, [&] {
        Item item;
        stream >> item;
        items.append(item);
    });
    return stream.status() == QDataStream::Ok ? items : QList<Item>();
}

} // namespace

void writeCommandIds(QDataStream &stream, const QList<SCommandId> &ids)
{
    writeCount(stream, ids.size());
    for (const SCommandId &id : ids)
        stream << id;
}

void writeCommandVersions(QDataStream &stream, const QHash<SCommandId, qint32> &versions)
{
    writeCommandIds(stream, versions.keys());
    writeCount(stream, versions.size());
    for (const qint32 version : versions)
        stream << version;
}

CommandList readCommandList(QDataStream &stream)
{
    const QList<SCommandId> ids = readList<SCommandId>(stream);
    const QList<qint32> versions = stream.atEnd() ? QList<qint32>() : readList<qint32>(stream);
    if (stream.status() != QDataStream::Ok)
        return {};
    CommandList list{ids, {}};
    for (qsizetype i = 0; i < ids.size(); ++i)
        list.versions.insert(ids.at(i), versions.value(i, 0));
    return list;
}

void writeTexts(QDataStream &stream, const QList<QString> &texts)
{
    writeCount(stream, texts.size());
    for (const QString &text : texts)
        stream << text;
}

QList<QString> readTexts(QDataStream &stream)
{
    return readList<QString>(stream);
}

} // namespace Talverine::Replies
