// SPDX-License-Identifier: MIT
#pragma once

#include <brixlib/protocol/client/sclientbase.h>
#include <brixlib/protocol/scommunicatorbaserequester.h>

namespace Talverine {

/*!
 * Calls into a client that lives in a worker thread, from any other thread.
 *
 * The operations that queue a command return at once, and the answer comes as the client's signal;
 * the queries wait for the client's thread. See SCommunicatorBaseRequester for the rules of both.
 */
class BRIXLIB_EXPORT SClientBaseRequester : public SCommunicatorBaseRequester
{
    Q_OBJECT

public:
    //! Keeps a weak reference to \a worker.
    explicit SClientBaseRequester(SClientBase *worker, QObject *parent = nullptr);
    ~SClientBaseRequester() override;

    // Queries.

    QHostAddress address() const;
    //! May look a name up, which blocks the client's thread for as long.
    QString host(bool lookup) const;
    bool isCommandAvailable(const SCommandId &id) const;
    unsigned short port() const;
    bool preferIPv4() const;
    QAbstractSocket::SocketState state() const;

    // Requests.

    void authenticate(const QString &username, const QString &password);
    void authenticate(const QString &username, const Security::SSecureString &password);
    void authenticate(const Security::SSecureCredential &credential);
    void clearPendingCommands();
    void commandList();
    //! Closes the connection; hides QObject::disconnect().
    void disconnect();
    void linkTest(int uploadSeconds, int downloadSeconds);
    void pluggable(const QString &command, const QByteArray &params);
    void pluggableList();
    void serverName();
    void whoAmI();
};

} // namespace Talverine
