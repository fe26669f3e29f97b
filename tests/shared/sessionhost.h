// SPDX-License-Identifier: MIT
#pragma once

#include <brixlib/protocol/server/sserverbase.h>
#include <brixlib/protocol/server/sservercontroller.h>
#include <brixlib/protocol/users/sauthenticationdb.h>
#include <brixlib/protocol/users/suserdata.h>
#include <brixlib/workers/ssimplebackgroundrunner.h>

#include <QtCore/QDir>
#include <QtCore/QPointer>
#include <QtCore/QTemporaryDir>

#include <functional>

/*!
 * A server on a free port of 127.0.0.1 with the users "alice" (password "secret") and "bob"
 * (password "builder"), each with a home folder of its own. Lives in the test's thread.
 */
class SessionHost : public QObject
{
public:
    using MakeServer = std::function<Talverine::SServerBase *(qint64 descriptor)>;

    //! Without \a makeServer the sessions are plain SServerBase objects.
    explicit SessionHost(MakeServer makeServer = {})
        : m_makeServer(std::move(makeServer))
    {
        addUser(QStringLiteral("alice"), QStringLiteral("secret"));
        addUser(QStringLiteral("bob"), QStringLiteral("builder"));
        connect(&controller, &Talverine::SServerController::newConnection, this,
                &SessionHost::serve);
        if (!controller.listen(QHostAddress(QHostAddress::LocalHost)))
            qFatal("cannot listen");
    }

    quint16 port() const { return controller.serverPort(); }

    QString homeOf(const QString &name) const { return m_homes.path() + u'/' + name; }

    void addUser(const QString &name, const QString &password)
    {
        QDir().mkpath(homeOf(name));
        users.insert(new Talverine::SUserData(name, password, homeOf(name)));
    }

    //! Time-out of the sessions that are made from now on.
    int timeoutMs = 10000;
    //! Called for each session before it is moved to its thread.
    std::function<void(Talverine::SServerBase *)> prepare;
    //! The session that was made last; only for comparing and connecting.
    QPointer<Talverine::SServerBase> session;

    Talverine::SAuthenticationDb users;
    Talverine::SServerController controller;

private:
    void serve(qint64 descriptor)
    {
        session = m_makeServer ? m_makeServer(descriptor)
                               : new Talverine::SServerBase(descriptor, &users);
        session->setTimeout(timeoutMs);
        if (prepare)
            prepare(session);
        auto *runner = controller.serveNewConnectionAsync(session, false);
        connect(runner, &Talverine::SSimpleBackgroundRunner::finished, runner,
                &QObject::deleteLater);
        runner->start();
    }

    MakeServer m_makeServer;
    QTemporaryDir m_homes;
};
