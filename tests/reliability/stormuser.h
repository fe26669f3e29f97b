// SPDX-License-Identifier: MIT
#pragma once

#include <shared/seededrandom.h>
#include <tool/toolserver.h>

#include <QtCore/QThread>

#include <atomic>
#include <memory>

/*!
 * A client of a server in a storm that behaves: it stores files, fetches them back and compares
 * them, one process of the tool for each step, in a thread of its own.
 */
class StormUser
{
public:
    StormUser(const ToolServer &server, const QString &name, quint32 seed);
    ~StormUser() { stop(); }
    Q_DISABLE_COPY_MOVE(StormUser)

    //! False once something has failed.
    bool isWorking() const { return m_isWorking; }
    //! Lets the file that is on its way arrive. What follows is to be read after it.
    void stop();

    qint64 files() const { return m_files; }
    qint64 bytes() const { return m_bytes; }
    qint64 slowestLoginMs() const { return m_slowestLoginMs; }
    //! Empty when each file has arrived both ways.
    QString problem() const { return m_problem; }

private:
    void work();
    QString moveFile();
    QString logIn();
    QString run(const QStringList &arguments, QByteArray *out = nullptr) const;

    const ToolServer &m_server;
    const QString m_name;
    SeededRandom m_random;
    qint64 m_files = 0;
    qint64 m_bytes = 0;
    qint64 m_slowestLoginMs = 0;
    QString m_problem;
    std::atomic<bool> m_stop = false;
    std::atomic<bool> m_isWorking = true;
    // Processes need the event loop of such a thread.
    std::unique_ptr<QThread> m_thread;
};
