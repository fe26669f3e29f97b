// SPDX-License-Identifier: MIT
// The client's half of the answer to each command.
#include <brixlib/protocol/client/sclientbase.h>

#include <brixlib/foundation/sdatastream.h>
#include <brixlib/protocol/commands/scommandlinktest.h>
#include <brixlib/protocol/commands/scommandpluggable.h>
#include <brixlib/protocol/commands/scommandstreamversion.h>
#include <brixlib/protocol/replies.h>
#include <brixlib/protocol/socket/stcpsocket.h>
#include <brixlib/protocol/wire.h>

#include <QtCore/QDebug>
#include <QtCore/QtEndian>

#include <algorithm>

namespace Talverine {

bool SClientBase::executeCommand(SCommand *command)
{
    const SCommandId id = command->id();
    if (id == CommandIds::kCommandList)
        return executeCommandCommandList();
    if (id == CommandIds::kAuthentication)
        return executeCommandAuthentication();
    if (id == CommandIds::kServerName)
        return executeCommandServerName();
    if (id == CommandIds::kWhoAmI)
        return executeCommandWhoAmI();
    if (id == CommandIds::kStreamVersion)
        return executeCommandStreamVersion(static_cast<const SCommandStreamVersion &>(*command));
    if (id == CommandIds::kPluggable)
        return executeCommandPluggable(static_cast<const SCommandPluggable &>(*command));
    if (id == CommandIds::kPluggableList)
        return executeCommandPluggableList();
    if (id == CommandIds::kLinkTest)
        return executeCommandLinkTest(static_cast<const SCommandLinkTest &>(*command));
    return false;
}

void SClientBase::setReplyLimit(const SCommandId &id, qint64 bytes)
{
    m_replyLimits.insert(id, bytes);
}

qint64 SClientBase::replyLimit(const SCommandId &id) const
{
    return m_replyLimits.value(id, 0);
}

bool SClientBase::wasReplyTooLarge() const
{
    return m_wasReplyTooLarge;
}

bool SClientBase::readReply(QByteArray *body)
{
    const quint32 length = readWord(socket());
    return length != 0 && readReplyBody(length, body);
}

bool SClientBase::readReplyBody(quint32 length, QByteArray *body)
{
    const qint64 limit = replyLimit(m_commandUnderWay);
    const bool isBeyondLimit = limit > 0 && length > limit;
    const auto endsHere = [this] {
        return socket()->bytesAvailable() == 0 &&
               !waitFor(socket(), &QIODevice::waitForReadyRead) &&
               socket()->state() != QAbstractSocket::ConnectedState;
    };
    // A server that cannot give its reply writes the last word of a failed exchange in the place of
    // the length, and closes the connection.
    if (length == Wire::kNackWord && (isBeyondLimit || endsHere())) {
        setRefused();
        return false;
    }
    m_wasReplyTooLarge = isBeyondLimit;
    if (m_wasReplyTooLarge) {
        qDebug() << "SClientBase::readReply: the reply of" << length << "bytes is too large";
        return false;
    }
    if (readBody(socket(), length, body))
        return true;
    m_wasReplyTooLarge = length > 0 && body->isEmpty(); // the memory has run out
    return false;
}

bool SClientBase::executeCommandCommandList()
{
    QByteArray body;
    if (!readReply(&body))
        return false;
    SDataStream stream(body);
    const Replies::CommandList list = Replies::readCommandList(stream);
    if (stream.status() != QDataStream::Ok)
        return false;
    Q_EMIT commandListResult(list.versions);
    Q_EMIT commandListResult(list.ids);
    return true;
}

bool SClientBase::executeCommandAuthentication()
{
    // A word that does not arrive counts as a refusal, but unlike one it ends the session.
    quint32_be word(0);
    const bool ok = readAll(socket(), reinterpret_cast<char *>(&word), sizeof word) == sizeof word;
    const auto status = ok ? static_cast<AuthenticationStatus>(quint32(word))
                           : AuthenticationStatus::NotAuthenticated;
    setAuthenticationStatus(status);
    Q_EMIT authenticationResult(status);
    return ok;
}

bool SClientBase::readText(QString *text)
{
    QByteArray body;
    if (!readReply(&body))
        return false;
    SDataStream stream(body);
    stream >> *text;
    return stream.status() == QDataStream::Ok;
}

bool SClientBase::executeCommandServerName()
{
    QString name;
    if (!readText(&name))
        return false;
    Q_EMIT serverNameResult(name);
    return true;
}

bool SClientBase::executeCommandWhoAmI()
{
    QString user;
    if (!readText(&user))
        return false;
    Q_EMIT whoAmIResult(user);
    return true;
}

bool SClientBase::executeCommandStreamVersion(const SCommandStreamVersion &command)
{
    const quint32 theirs = readWord(socket());
    if (theirs < Wire::kLowestStreamVersion)
        return false;
    const auto ours = static_cast<quint32>(command.streamVersion());
    SDataStream::setDefaultVersion(static_cast<QDataStream::Version>(std::min(ours, theirs)));
    return true;
}

bool SClientBase::executeCommandPluggable(const SCommandPluggable &command)
{
    QByteArray body;
    if (!readReply(&body))
        return false;
    SDataStream stream(body);
    QByteArray output;
    bool result = false;
    stream >> output >> result;
    if (stream.status() != QDataStream::Ok)
        return false;
    Q_EMIT pluggableResult(command.command(), result, command.params(), output);
    return true;
}

bool SClientBase::executeCommandPluggableList()
{
    QByteArray body;
    if (!readReply(&body))
        return false;
    SDataStream stream(body);
    const QList<QString> names = Replies::readTexts(stream);
    if (stream.status() != QDataStream::Ok)
        return false;
    Q_EMIT pluggableListResult(names);
    return true;
}

} // namespace Talverine
