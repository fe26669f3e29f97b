// SPDX-License-Identifier: MIT
#pragma once

#include <shared/sessionhost.h>

#include <QtCore/QThread>

#include <memory>

/*!
 * A SessionHost in a thread of its own, for clients that block the test's thread.
 */
class HostThread
{
public:
    //! \a makeServer and \a prepare run in the host's thread.
    explicit HostThread(SessionHost::MakeServer makeServer = {},
                        std::function<void(Talverine::SServerBase *)> prepare = {})
    {
        m_context.moveToThread(&m_thread);
        m_thread.start();
        inThread([&] {
            m_host = std::make_unique<SessionHost>(std::move(makeServer));
            m_host->prepare = std::move(prepare);
        });
        m_port = m_host->port();
    }
    ~HostThread()
    {
        inThread([this] { m_host.reset(); });
        m_thread.quit();
        m_thread.wait();
    }
    Q_DISABLE_COPY_MOVE(HostThread)

    quint16 port() const { return m_port; }
    QString homeOf(const QString &name) const { return m_host->homeOf(name); }

    //! Sessions that have not ended.
    qsizetype count()
    {
        qsizetype count = 0;
        inThread([&] { count = m_host->controller.count(); });
        return count;
    }
    //! Time-out of the sessions that are made from now on.
    void setTimeout(int msec)
    {
        inThread([&] { m_host->timeoutMs = msec; });
    }
    //! Ends all sessions, as a server does that is being stopped.
    void interrupt()
    {
        inThread([this] { m_host->controller.interruptWorkers(); });
    }

private:
    template<typename Work>
    void inThread(Work work)
    {
        QMetaObject::invokeMethod(&m_context, work, Qt::BlockingQueuedConnection);
    }

    QThread m_thread;
    QObject m_context;
    std::unique_ptr<SessionHost> m_host; // lives in m_thread
    quint16 m_port = 0;
};
