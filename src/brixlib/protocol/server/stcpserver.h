// SPDX-License-Identifier: MIT
#pragma once

#include <brixlib/brixlib_export.h>

#include <QtNetwork/QTcpServer>

namespace Talverine {

/*!
 * Accepts connections without making sockets, so that each socket can be made in the thread that
 * will own it. Lives in one thread.
 *
 *     STcpServer server;
 *     QObject::connect(&server, &STcpServer::newConnection, &app, [](qint64 descriptor) { … });
 *     server.listen(QHostAddress::LocalHost);
 */
class BRIXLIB_EXPORT STcpServer : public QTcpServer
{
    Q_OBJECT

public:
    explicit STcpServer(QObject *parent = nullptr);
    ~STcpServer() override;

Q_SIGNALS:
    //! A connection was accepted; whoever takes the descriptor closes it.
    void newConnection(qint64 socketDescriptor);

protected:
    void incomingConnection(qintptr socketDescriptor) override;
};

} // namespace Talverine
