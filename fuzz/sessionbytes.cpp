// SPDX-License-Identifier: MIT
#include "sessionbytes.h"

#include "inputforms.h"

#include <brixlib/fileservice/sserverftp.h>
#include <brixlib/protocol/scommandhelper.h>

#include <shared/rawbytes.h>

#include <iterator>

namespace Fuzz::SessionBytes {

namespace {

using namespace RawBytes;

// Every command, at the version under which a server's session has registered it.
QByteArray commandList()
{
    struct Session : Talverine::SServerFtp
    {
        using SServerFtp::contextId;
    };
    const Session session;
    const auto versions = Talverine::SCommandHelper::registeredCommandVersions(session.contextId());
    QByteArray ids;
    QByteArray numbers;
    for (const Talverine::SCommandId &id : kCommandsOfInputs) {
        ids += idRecord(u32(id.id()));
        numbers += i32(versions.value(id));
    }
    const QByteArray count = u32(static_cast<quint32>(std::size(kCommandsOfInputs)));
    return frame(count + ids + count + numbers);
}

QByteArray answer(const QByteArray &reply)
{
    return ack() + reply + ack();
}

QByteArray loginAnswer()
{
    return answer(u32(1));
}

} // namespace

QUuid uuid()
{
    return QUuid::fromRfc4122(greeting());
}

QByteArray greeting()
{
    return QByteArray::fromHex("00112233445566778899aabbccddeeff");
}

QByteArray login()
{
    static const QByteArray bytes =
        authentication(u"alice", challengeAnswer(QStringLiteral("secret"), greeting()));
    return bytes;
}

QByteArray deviceCommand()
{
    return command("cldv", text(u"a.txt"));
}

QByteArray welcome()
{
    static const QByteArray bytes = loginAnswer() + answer(commandList()) + answer(u32(20));
    return bytes;
}

QByteArray deviceWelcome()
{
    return loginAnswer() + ack();
}

} // namespace Fuzz::SessionBytes
