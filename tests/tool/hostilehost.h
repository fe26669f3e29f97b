// SPDX-License-Identifier: MIT
#pragma once

#include <brixlib/fileservice/filereplies.h>
#include <brixlib/fileservice/sserverftp.h>
#include <brixlib/foundation/sdatastream.h>
#include <brixlib/protocol/replies.h>
#include <brixlib/protocol/scommand.h>
#include <brixlib/protocol/scommandhelper.h>
#include <brixlib/protocol/socket/stcpsocket.h>

#include <shared/sessionhost.h>

#include <functional>
#include <optional>

/*!
 * A file server whose answer to some commands is in the hands of a script.
 */
class HostileServer final : public Talverine::SServerFtp
{
public:
    //! Returns the result of the command, or nothing to have the command executed as usual.
    using Script =
        std::function<std::optional<bool>(HostileServer &, const Talverine::SCommandId &)>;

    HostileServer(qint64 descriptor, Script script)
        : SServerFtp(descriptor)
        , m_script(std::move(script))
    {
    }

    bool send(const QByteArray &bytes) { return writeAll(socket(), bytes) == bytes.size(); }
    bool sendResult(bool result) { return send(QByteArray(1, result ? 1 : 0)); }
    bool sendEntries(const QList<Talverine::SFileEntry> &entries)
    {
        return sendBody(
            [&](QDataStream &stream) { Talverine::Replies::writeEntries(stream, entries); });
    }
    //! The server's own commands with their versions.
    QHash<Talverine::SCommandId, qint32> ownCommands() const
    {
        return Talverine::SCommandHelper::registeredCommandVersions(contextId());
    }
    bool sendCommands(const QHash<Talverine::SCommandId, qint32> &commands)
    {
        return sendBody([&](QDataStream &stream) {
            Talverine::Replies::writeCommandVersions(stream, commands);
        });
    }
    bool sendCommandsWithoutVersions()
    {
        return sendBody([&](QDataStream &stream) {
            Talverine::Replies::writeCommandIds(stream, ownCommands().keys());
        });
    }
    //! Executes the command that the script was called for, with its usual reply.
    bool perform() { return SServerFtp::executeCommand(m_command); }
    void hangUp() { socket()->abort(); }

protected:
    bool executeCommand(Talverine::SCommand *command) override
    {
        m_command = command;
        const auto result = m_script(*this, command->id());
        return result ? *result : SServerFtp::executeCommand(command);
    }

private:
    template<typename Write>
    bool sendBody(Write write)
    {
        QByteArray body;
        Talverine::SDataStream stream(&body, QIODevice::WriteOnly);
        write(stream);
        return writeFrame(socket(), body);
    }

    Script m_script;
    Talverine::SCommand *m_command = nullptr;
};

//! A hostile server in this process, for the user "alice" with the password "secret".
class HostileHost final
{
public:
    explicit HostileHost(const HostileServer::Script &script)
        : m_host([this, script](qint64 descriptor) {
            auto *server = new HostileServer(descriptor, script);
            server->setAuthenticationDb(&m_host.users);
            return server;
        })
    {
    }

    QString home() const { return m_host.homeOf(QStringLiteral("alice")); }
    QString url(const QString &path) const
    {
        return QStringLiteral("brix://alice@127.0.0.1:%1/%2")
            .arg(QString::number(m_host.port()), path);
    }

private:
    SessionHost m_host;
};
