// SPDX-License-Identifier: MIT
#pragma once

#include <brixlib/fileservice/sclientftp.h>
#include <brixlib/fileservice/sserverftp.h>
#include <brixlib/protocol/client/sclientcontroller.h>
#include <brixlib/protocol/socket/stcpsocket.h>
#include <brixlib/workers/ssimplebackgroundrunner.h>

#include <shared/sessionhost.h>

#include <QtCore/QPointer>
#include <QtCore/QTemporaryDir>
#include <QtNetwork/QHostAddress>
#include <QtTest/QTest>

#include <functional>

constexpr int kPatienceMs = 15000;

//! The four letters of an id.
inline QString letters(const Talverine::SCommandId &id)
{
    QString text;
    for (int shift = 24; shift >= 0; shift -= 8)
        text.append(QLatin1Char(static_cast<char>(id.id() >> shift)));
    return text;
}

inline QString word(bool value)
{
    return value ? QStringLiteral("true") : QStringLiteral("false");
}

//! Takes the lines of the debug log while it lives, those of all threads.
class MessageLog
{
public:
    MessageLog()
    {
        s_log = this;
        m_before = qInstallMessageHandler(&MessageLog::take);
    }
    ~MessageLog()
    {
        qInstallMessageHandler(m_before);
        s_log = nullptr;
    }
    Q_DISABLE_COPY_MOVE(MessageLog)

    QStringList lines()
    {
        const QMutexLocker lock(&m_mutex);
        return m_lines;
    }

private:
    static void take(QtMsgType, const QMessageLogContext &, const QString &line)
    {
        const QMutexLocker lock(&s_log->m_mutex);
        s_log->m_lines.append(line);
    }

    static inline MessageLog *s_log = nullptr;
    QtMessageHandler m_before = nullptr;
    QMutex m_mutex;
    QStringList m_lines;
};

//! A session whose jail a test can set, and that takes commands made elsewhere.
class JailedClient : public Talverine::SClientFtp
{
public:
    using SClientFtp::enqueueCommand;
    using SClientFtp::SClientFtp;
    using SClientFtp::setRootPath;
};

//! A session that sends no faster than its limit, in bytes per second.
class LimitedServer : public Talverine::SServerFtp
{
public:
    LimitedServer(qint64 descriptor, qint64 limit)
        : SServerFtp(descriptor)
        , m_limit(limit)
    {
    }

protected:
    bool workerInit() override
    {
        if (!SServerFtp::workerInit())
            return false;
        socket()->setOutcomingSpeed(m_limit);
        return true;
    }

private:
    const qint64 m_limit;
};

/*!
 * A server for the user "alice". The jail is her home folder; outside() is that of another user,
 * beside it. What the sessions signal arrives in log.
 */
class FileServer
{
public:
    quint16 port() const { return m_host.port(); }

    QString home() const { return m_host.homeOf(QStringLiteral("alice")); }
    QString outside() const { return m_host.homeOf(QStringLiteral("bob")); }
    QString path(const QString &name) const { return home() + u'/' + name; }

    SessionHost &host() { return m_host; }

    //! Waits until no session is left.
    [[nodiscard]] bool waitForEnd()
    {
        return QTest::qWaitFor([this] { return m_host.controller.count() == 0; }, kPatienceMs);
    }

    //! Called for each session before its thread starts.
    std::function<void(Talverine::SServerFtp &)> configure;
    //! Bytes per second that a session may send; 0 for no limit.
    qint64 sendingLimit = 0;
    //! Signals of all sessions.
    QStringList log;

private:
    using SServerFtp = Talverine::SServerFtp;

    SServerFtp *make(qint64 descriptor)
    {
        auto *session = new LimitedServer(descriptor, sendingLimit);
        session->setAuthenticationDb(&m_host.users);
        if (configure)
            configure(*session);
        notePath(*session, &SServerFtp::getFileStarted, QStringLiteral("getFileStarted"));
        on(*session, &SServerFtp::getFileFinished, [this](const QString &path, bool removed) {
            log.append(QStringLiteral("getFileFinished %1 %2").arg(path, word(removed)));
        });
        notePath(*session, &SServerFtp::sendFileStarted, QStringLiteral("sendFileStarted"));
        notePath(*session, &SServerFtp::sendFileFinished, QStringLiteral("sendFileFinished"));
        on(*session, &SServerFtp::fileSystemSensitivityCheck,
           [this] { log.append(QStringLiteral("fileSystemSensitivityCheck")); });
        on(*session, &SServerFtp::localDirRemoved,
           [this](const QString &path) { log.append(QStringLiteral("localDirRemoved ") + path); });
        notePath(*session, &SServerFtp::localExistsCheck, QStringLiteral("localExistsCheck"));
        notePath(*session, &SServerFtp::localDirListed, QStringLiteral("localDirListed"));
        notePath(*session, &SServerFtp::localDirChanged, QStringLiteral("localDirChanged"));
        return session;
    }

    template<typename Signal, typename Slot>
    void on(SServerFtp &session, Signal signal, Slot slot)
    {
        QObject::connect(&session, signal, &m_context, slot);
    }

    void notePath(SServerFtp &session, void (SServerFtp::*signal)(const QString &),
                  const QString &name)
    {
        on(session, signal, [this, name](const QString &path) { log.append(name + u' ' + path); });
    }

    QObject m_context;
    SessionHost m_host{[this](qint64 descriptor) { return make(descriptor); }};
};

/*!
 * A client in a thread of its own. Its signals arrive in log as texts, in their order; the reports
 * of progress arrive in progress, and the end of each exchange in results.
 */
class FileClient
{
public:
    using SClientFtp = Talverine::SClientFtp;

    FileClient() { m_local.setAutoRemove(true); }

    //! The folder that local paths are relative to.
    QString folder() const { return m_local.path(); }
    QString path(const QString &name) const { return m_local.filePath(name); }

    //! Connects without logging in.
    [[nodiscard]] bool connectTo(quint16 port)
    {
        auto *client = new JailedClient(QHostAddress(QHostAddress::LocalHost), port);
        client->changeDirLocal(folder());
        client->setTimeout(timeout);
        if (configure)
            configure(*client);
        m_client = client;
        listenTo(*client);
        return m_controller.connectClient(client, true) != nullptr;
    }

    //! Connects, logs in and waits for the end of the handshake.
    [[nodiscard]] bool open(quint16 port)
    {
        if (!connectTo(port))
            return false;
        m_client->authenticate(QStringLiteral("alice"), QStringLiteral("secret"));
        return waitForResults(3) &&
               results == QStringList{QStringLiteral("auth true"), QStringLiteral("cmdl true"),
                                      QStringLiteral("strv true")};
    }

    /*!
     * Forgets what was noted, calls \a operation on the client and waits for the end of so many
     * exchanges, or of the session. True when all of them succeeded.
     */
    template<typename Operation>
    bool run(Operation operation, int exchanges = 1)
    {
        forget();
        if (!m_client)
            return false;
        operation(*m_client);
        return waitForResults(exchanges) && !failed();
    }

    void forget()
    {
        log.clear();
        results.clear();
        progress.clear();
    }

    //! Waits for the end of so many exchanges; false also when the session ends before.
    [[nodiscard]] bool waitForResults(qsizetype count)
    {
        return QTest::qWaitFor([&] { return results.size() >= count || ended; }, kPatienceMs) &&
               results.size() >= count;
    }

    //! Waits until the worker has ended and its thread is gone.
    [[nodiscard]] bool waitForEnd()
    {
        return QTest::qWaitFor([this] { return ended && m_controller.count() == 0; }, kPatienceMs);
    }

    bool failed() const
    {
        for (const QString &result : results) {
            if (result.endsWith(QStringLiteral("false")))
                return true;
        }
        return false;
    }

    Talverine::SClientController &controller() { return m_controller; }
    JailedClient *client() const { return m_client; }

    int timeout = 10000;
    //! Called before the thread starts.
    std::function<void(JailedClient &)> configure;

    QStringList log;
    QStringList results;
    QList<std::pair<qint64, qint64>> progress;
    QList<Talverine::SFileEntry> entries;
    //! How often the queue has run empty.
    int emptied = 0;
    bool ended = false;

private:
    template<typename Signal, typename Slot>
    void on(SClientFtp &client, Signal signal, Slot slot)
    {
        QObject::connect(&client, signal, &m_context, slot);
    }

    void noteResult(SClientFtp &client, void (SClientFtp::*signal)(bool), const QString &name)
    {
        on(client, signal, [this, name](bool value) { log.append(name + u' ' + word(value)); });
    }

    void noteText(SClientFtp &client, void (SClientFtp::*signal)(const QString &),
                  const QString &name)
    {
        on(client, signal, [this, name](const QString &text) { log.append(name + u' ' + text); });
    }

    void noteDevice(SClientFtp &client, void (SClientFtp::*signal)(QIODevice *),
                    const QString &name)
    {
        on(client, signal, [this, name](QIODevice *) { log.append(name); });
    }

    void noteProgress(SClientFtp &client, void (SClientFtp::*signal)(qint64, qint64))
    {
        on(client, signal, [this](qint64 done, qint64 total) { progress.append({done, total}); });
    }

    void listenTo(SClientFtp &client)
    {
        using Self = SClientFtp;
        noteResult(client, &Self::changeDirResult, QStringLiteral("changeDirResult"));
        noteResult(client, &Self::makeDirResult, QStringLiteral("makeDirResult"));
        noteResult(client, &Self::removeDirResult, QStringLiteral("removeDirResult"));
        noteResult(client, &Self::removeFileResult, QStringLiteral("removeFileResult"));
        noteResult(client, &Self::renameDirResult, QStringLiteral("renameDirResult"));
        noteResult(client, &Self::renameFileResult, QStringLiteral("renameFileResult"));
        noteResult(client, &Self::copyDirResult, QStringLiteral("copyDirResult"));
        noteResult(client, &Self::copyFileResult, QStringLiteral("copyFileResult"));
        noteResult(client, qOverload<bool>(&Self::exists), QStringLiteral("exists"));
        noteResult(client, &Self::setSetFilePermissionsResult,
                   QStringLiteral("setSetFilePermissionsResult"));
        noteResult(client, qOverload<bool>(&Self::fileSystemSensitivity),
                   QStringLiteral("fileSystemSensitivity"));
        noteResult(client, &Self::getDirResult, QStringLiteral("getDirResult"));
        noteResult(client, &Self::getFilesResult, QStringLiteral("getFilesResult"));

        noteText(client, &Self::pwdResult, QStringLiteral("pwdResult"));
        noteText(client, &Self::getFileStarted, QStringLiteral("getFileStarted"));
        noteText(client, &Self::getFileFinished, QStringLiteral("getFileFinished"));
        noteText(client, &Self::sendFileStarted, QStringLiteral("sendFileStarted"));
        on(client, &Self::sendFileFinished, [this](const QString &path, bool removed) {
            log.append(QStringLiteral("sendFileFinished %1 %2").arg(path, word(removed)));
        });

        noteDevice(client, &Self::getDeviceStarted, QStringLiteral("getDeviceStarted"));
        noteDevice(client, &Self::getDeviceFinished, QStringLiteral("getDeviceFinished"));
        noteDevice(client, &Self::sendDeviceStarted, QStringLiteral("sendDeviceStarted"));
        noteDevice(client, &Self::sendDeviceFinished, QStringLiteral("sendDeviceFinished"));

        noteProgress(client, &Self::getFileTransferredSize);
        noteProgress(client, &Self::sendFileTransferredSize);
        noteProgress(client, &Self::getDeviceTransferredSize);
        noteProgress(client, &Self::sendDeviceTransferredSize);

        on(client, &Self::listDirResult, [this](const QList<Talverine::SFileEntry> &list) {
            entries = list;
            log.append(QStringLiteral("listDirResult %1").arg(list.size()));
        });
        on(client, &Self::storageInfoResult,
           [this](qint64 available, qint64 total, qint64 free, const QByteArray &type) {
               log.append(QStringLiteral("storageInfoResult %1 %2 %3 %4")
                              .arg(QString::number(available), QString::number(total),
                                   QString::number(free), QString::fromLatin1(type)));
           });
        on(client, &Self::localDirRemoved,
           [this](const QString &path) { log.append(QStringLiteral("localDirRemoved ") + path); });
        on(client, &Self::unavailableCommand, [this](const Talverine::SCommandId &id) {
            log.append(QStringLiteral("unavailableCommand ") + letters(id));
        });
        on(client, &Self::commandResult, [this](const Talverine::SCommandId &id, bool success) {
            if (!id.isNull())
                results.append(letters(id) + u' ' + word(success));
        });
        on(client, &Self::commandQueueEmpty, [this] { ++emptied; });
        on(client, &Self::finished, [this] { ended = true; });
    }

    QTemporaryDir m_local;
    QObject m_context;
    QPointer<JailedClient> m_client;
    Talverine::SClientController m_controller; // last: it waits for the client
};
