// SPDX-License-Identifier: MIT
#pragma once

#include <brixlib/fileservice/sserverftp.h>
#include <brixlib/protocol/server/sservercontroller.h>
#include <brixlib/protocol/users/sauthenticationdb.h>
#include <brixlib/protocol/users/suserdata.h>
#include <brixlib/workers/ssimplebackgroundrunner.h>

#include <QtCore/QObject>
#include <QtNetwork/QHostAddress>

/*!
 * A file server on a free port of the loopback interface, with one user "bench" (password "bench")
 * at home in the given folder. Lives in the thread that makes it, whose event loop must run.
 */
class LocalServer : public QObject
{
public:
    explicit LocalServer(const QString &home, QObject *parent = nullptr)
        : QObject(parent)
        , m_users(this)
        , m_controller(this)
    {
        m_users.insert(new Talverine::SUserData(QStringLiteral("bench"), QStringLiteral("bench"),
                                                home, QString(), QString(), false));
        connect(&m_controller, &Talverine::SServerController::newConnection, this,
                &LocalServer::serve);
    }

    ~LocalServer() override { m_controller.interruptWorkers(); }

    //! The port, or 0 when it cannot listen.
    unsigned short listen()
    {
        return m_controller.listen(QHostAddress::LocalHost, 0) ? m_controller.serverPort() : 0;
    }

    Talverine::SServerController &controller() { return m_controller; }

private:
    void serve(qint64 descriptor)
    {
        auto *server = new Talverine::SServerFtp(descriptor);
        server->setAuthenticationDb(&m_users);
        auto *runner = m_controller.serveNewConnectionAsync(server, true);
        connect(runner, &Talverine::SSimpleBackgroundRunner::finished, runner,
                &QObject::deleteLater);
    }

    Talverine::SAuthenticationDb m_users;
    Talverine::SServerController m_controller;
};
