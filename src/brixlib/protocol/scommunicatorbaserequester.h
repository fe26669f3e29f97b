// SPDX-License-Identifier: MIT
#pragma once

#include <brixlib/brixlib_export.h>
#include <brixlib/foundation/fileentryflags.h>
#include <brixlib/foundation/sfileentry.h>
#include <brixlib/protocol/scommunicatorbase.h>

#include <QtCore/QList>
#include <QtCore/QMetaObject>
#include <QtCore/QObject>
#include <QtCore/QPointer>
#include <QtCore/QStorageInfo>
#include <QtCore/QString>

#include <functional>
#include <memory>

namespace Talverine {

class STcpSocketSpeedController;

/*!
 * Calls into a communicator that lives in a worker thread, from any other thread.
 *
 * Each operation of the worker has its twin here. One with a result waits until the worker's thread
 * has run it, which is after the exchange in progress has ended; one without returns at once and
 * the worker runs it when it gets to it. Made in the worker's own thread, both run at once.
 *
 * A requester may outlive its worker: it then gives default values and does nothing. A worker whose
 * thread was never started answers no call, so a query waits for ever; and a thread that the worker
 * itself waits for must not query it.
 *
 *     SCommunicatorBaseRequester requester(client);
 *     requester.setTimeout(5000);
 *     const QString folder = requester.currentPath();
 */
class BRIXLIB_EXPORT SCommunicatorBaseRequester : public QObject
{
    Q_OBJECT

public:
    //! Keeps a weak reference to \a worker.
    explicit SCommunicatorBaseRequester(SCommunicatorBase *worker, QObject *parent = nullptr);
    ~SCommunicatorBaseRequester() override;

    //! The worker, or null when it is gone.
    SCommunicatorBase *worker() const;
    //! True when the worker is gone.
    bool isNull() const;
    //! Whether this requester deletes itself after its worker; off by default.
    void setAutoDestroy(bool enabled);

    // Twins of the operations with a result. Each waits for the worker's thread.

    bool autoSync() const;
    bool changeDirLocal(const QString &path);
    bool changePermissionsLocal(const QString &path, const FileEntryFlags &flags);
    bool copyDirLocal(const QString &from, const QString &to, bool keepAliveOnSocket = false);
    bool copyFileLocal(const QString &from, const QString &to, bool keepAliveOnSocket = false);
    QString currentPath() const;
    QString defaulHomeDirLocal() const;
    bool existsLocal(const QString &path);
    bool homeDirLocal();
    QList<SFileEntry> listDirLocal(const QString &path, const QList<QString> &filters = {});
    bool makeDirLocal(const QString &path);
    bool removeDirLocal(const QString &path, bool recursive);
    bool removeFileLocal(const QString &path);
    bool removeLocal(const QString &path, bool recursive);
    bool renameDirLocal(const QString &from, const QString &to);
    bool renameFileLocal(const QString &from, const QString &to);
    bool renameLocal(const QString &from, const QString &to);
    QString rootPath() const;
    //! Waits too, so that the caller knows when \a controller and the one before it are in use.
    void setSpeedController(STcpSocketSpeedController *controller);
    QStorageInfo storageInfoLocal() const;
    int timeout() const;

    // Twins of the operations without a result. None waits.

    void setAutoSync(bool enabled);
    void setDefaultHomeDirLocal(const QString &path);
    void setTimeout(int milliseconds);

Q_SIGNALS:
    //! The worker has no operation \a function that takes these arguments.
    void invokeError(const QString &function) const;

protected:
    void setWorker(SCommunicatorBase *worker);
    void emitInvokeError(const QString &function) const;

    /*!
     * Runs the worker's operation \a function and waits for it. \a arguments are written with
     * Q_RETURN_ARG and Q_ARG, which spell types as the operation's declaration does. Without a
     * worker or on failure the return argument keeps its value.
     */
    template<typename... Arguments>
    void query(const char *function, Arguments... arguments) const
    {
        callAndWait(function, [=](SCommunicatorBase *target, Qt::ConnectionType type) {
            return QMetaObject::invokeMethod(target, function, type, arguments...);
        });
    }

    //! Has the worker run its operation \a function, without waiting unless the threads are one.
    template<typename... Arguments>
    void post(const char *function, Arguments... arguments) const
    {
        callLater(function, [=](SCommunicatorBase *target, Qt::ConnectionType type) {
            return QMetaObject::invokeMethod(target, function, type, arguments...);
        });
    }

private:
    //! Calls the operation; false when the worker has none of that name and arguments.
    using Call = std::function<bool(SCommunicatorBase *target, Qt::ConnectionType type)>;

    void callAndWait(const char *function, const Call &call) const;
    void callLater(const char *function, const Call &call) const;

    QPointer<SCommunicatorBase> m_worker;
    std::shared_ptr<class WorkerEnd> m_workerEnd;
    QMetaObject::Connection m_autoDestroy;
};

} // namespace Talverine
