// SPDX-License-Identifier: MIT
#include <brixlib/protocol/scommunicatorbaserequester.h>

#include <brixlib/protocol/socket/stcpsocketspeedcontroller.h>
#include <brixlib/workers/workerend_p.h>

#include <QtCore/QSemaphore>
#include <QtCore/QThread>

// The names are text for the meta-object: what is in Q_ARG spells the type as the worker declares
// it.
namespace Talverine {

SCommunicatorBaseRequester::SCommunicatorBaseRequester(SCommunicatorBase *worker, QObject *parent)
    : QObject(parent)
{
    setWorker(worker);
}

SCommunicatorBaseRequester::~SCommunicatorBaseRequester() = default;

SCommunicatorBase *SCommunicatorBaseRequester::worker() const
{
    return m_worker;
}

bool SCommunicatorBaseRequester::isNull() const
{
    return m_worker.isNull();
}

void SCommunicatorBaseRequester::setWorker(SCommunicatorBase *worker)
{
    m_worker = worker;
    m_workerEnd = worker ? worker->m_end : nullptr;
}

void SCommunicatorBaseRequester::setAutoDestroy(bool enabled)
{
    QObject::disconnect(m_autoDestroy);
    SCommunicatorBase *const target = worker();
    if (!enabled || !target)
        return;
    bool isHeldUp = false;
    m_workerEnd->holdUp([&] {
        isHeldUp = true;
        m_autoDestroy = connect(target, &QObject::destroyed, this, &QObject::deleteLater);
    });
    if (!isHeldUp)
        deleteLater();
}

void SCommunicatorBaseRequester::emitInvokeError(const QString &function) const
{
    Q_EMIT invokeError(function);
}

// Qt's own blocking connection would be waited for while the worker's end is held up.
void SCommunicatorBaseRequester::callAndWait(const char *function, const Call &call) const
{
    SCommunicatorBase *const target = worker();
    if (!target)
        return;
    bool isKnown = true;
    bool isDirect = false;
    QSemaphore done;
    // Let go after the call, and also by a worker that ends without making it.
    std::shared_ptr<void> pending(nullptr, [&done](void *) { done.release(); });
    m_workerEnd->holdUp([&] {
        // A call that waits from the worker's own thread would wait for itself.
        isDirect = target->thread() == thread() || target->thread() == QThread::currentThread();
        if (isDirect)
            return;
        const auto make = [&, pending] { isKnown = call(target, Qt::DirectConnection); };
        QMetaObject::invokeMethod(target, make, Qt::QueuedConnection);
    });
    pending.reset();
    if (isDirect)
        isKnown = call(target, Qt::DirectConnection);
    done.acquire();
    if (!isKnown)
        emitInvokeError(QString::fromLatin1(function));
}

void SCommunicatorBaseRequester::callLater(const char *function, const Call &call) const
{
    SCommunicatorBase *const target = worker();
    if (!target)
        return;
    bool isKnown = true;
    bool isDirect = false;
    m_workerEnd->holdUp([&] {
        isDirect = target->thread() == QThread::currentThread();
        if (!isDirect)
            isKnown = call(target, Qt::QueuedConnection);
    });
    if (isDirect)
        isKnown = call(target, Qt::DirectConnection);
    if (!isKnown)
        emitInvokeError(QString::fromLatin1(function));
}

bool SCommunicatorBaseRequester::autoSync() const
{
    bool result = false;
    query("autoSync", Q_RETURN_ARG(bool, result));
    return result;
}

bool SCommunicatorBaseRequester::changeDirLocal(const QString &path)
{
    bool result = false;
    query("changeDirLocal", Q_RETURN_ARG(bool, result), Q_ARG(QString, path));
    return result;
}

bool SCommunicatorBaseRequester::changePermissionsLocal(const QString &path,
                                                        const FileEntryFlags &flags)
{
    bool result = false;
    query("changePermissionsLocal", Q_RETURN_ARG(bool, result), Q_ARG(QString, path),
          Q_ARG(FileEntryFlags, flags));
    return result;
}

bool SCommunicatorBaseRequester::copyDirLocal(const QString &from, const QString &to,
                                              bool keepAliveOnSocket)
{
    bool result = false;
    query("copyDirLocal", Q_RETURN_ARG(bool, result), Q_ARG(QString, from), Q_ARG(QString, to),
          Q_ARG(bool, keepAliveOnSocket));
    return result;
}

bool SCommunicatorBaseRequester::copyFileLocal(const QString &from, const QString &to,
                                               bool keepAliveOnSocket)
{
    bool result = false;
    query("copyFileLocal", Q_RETURN_ARG(bool, result), Q_ARG(QString, from), Q_ARG(QString, to),
          Q_ARG(bool, keepAliveOnSocket));
    return result;
}

QString SCommunicatorBaseRequester::currentPath() const
{
    QString result;
    query("currentPath", Q_RETURN_ARG(QString, result));
    return result;
}

QString SCommunicatorBaseRequester::defaulHomeDirLocal() const
{
    QString result;
    query("defaulHomeDirLocal", Q_RETURN_ARG(QString, result));
    return result;
}

bool SCommunicatorBaseRequester::existsLocal(const QString &path)
{
    bool result = false;
    query("existsLocal", Q_RETURN_ARG(bool, result), Q_ARG(QString, path));
    return result;
}

bool SCommunicatorBaseRequester::homeDirLocal()
{
    bool result = false;
    query("homeDirLocal", Q_RETURN_ARG(bool, result));
    return result;
}

QList<SFileEntry> SCommunicatorBaseRequester::listDirLocal(const QString &path,
                                                           const QList<QString> &filters)
{
    QList<SFileEntry> result;
    query("listDirLocal", Q_RETURN_ARG(QList<SFileEntry>, result), Q_ARG(QString, path),
          Q_ARG(QList<QString>, filters));
    return result;
}

bool SCommunicatorBaseRequester::makeDirLocal(const QString &path)
{
    bool result = false;
    query("makeDirLocal", Q_RETURN_ARG(bool, result), Q_ARG(QString, path));
    return result;
}

bool SCommunicatorBaseRequester::removeDirLocal(const QString &path, bool recursive)
{
    bool result = false;
    query("removeDirLocal", Q_RETURN_ARG(bool, result), Q_ARG(QString, path),
          Q_ARG(bool, recursive));
    return result;
}

bool SCommunicatorBaseRequester::removeFileLocal(const QString &path)
{
    bool result = false;
    query("removeFileLocal", Q_RETURN_ARG(bool, result), Q_ARG(QString, path));
    return result;
}

bool SCommunicatorBaseRequester::removeLocal(const QString &path, bool recursive)
{
    bool result = false;
    query("removeLocal", Q_RETURN_ARG(bool, result), Q_ARG(QString, path), Q_ARG(bool, recursive));
    return result;
}

bool SCommunicatorBaseRequester::renameDirLocal(const QString &from, const QString &to)
{
    bool result = false;
    query("renameDirLocal", Q_RETURN_ARG(bool, result), Q_ARG(QString, from), Q_ARG(QString, to));
    return result;
}

bool SCommunicatorBaseRequester::renameFileLocal(const QString &from, const QString &to)
{
    bool result = false;
    query("renameFileLocal", Q_RETURN_ARG(bool, result), Q_ARG(QString, from), Q_ARG(QString, to));
    return result;
}

bool SCommunicatorBaseRequester::renameLocal(const QString &from, const QString &to)
{
    bool result = false;
    query("renameLocal", Q_RETURN_ARG(bool, result), Q_ARG(QString, from), Q_ARG(QString, to));
    return result;
}

QString SCommunicatorBaseRequester::rootPath() const
{
    QString result;
    query("rootPath", Q_RETURN_ARG(QString, result));
    return result;
}

void SCommunicatorBaseRequester::setSpeedController(STcpSocketSpeedController *controller)
{
    query("setSpeedController", Q_ARG(STcpSocketSpeedController *, controller));
}

QStorageInfo SCommunicatorBaseRequester::storageInfoLocal() const
{
    QStorageInfo result;
    query("storageInfoLocal", Q_RETURN_ARG(QStorageInfo, result));
    return result;
}

int SCommunicatorBaseRequester::timeout() const
{
    int result = 0;
    query("timeout", Q_RETURN_ARG(int, result));
    return result;
}

void SCommunicatorBaseRequester::setAutoSync(bool enabled)
{
    post("setAutoSync", Q_ARG(bool, enabled));
}

void SCommunicatorBaseRequester::setDefaultHomeDirLocal(const QString &path)
{
    post("setDefaultHomeDirLocal", Q_ARG(QString, path));
}

void SCommunicatorBaseRequester::setTimeout(int milliseconds)
{
    post("setTimeout", Q_ARG(int, milliseconds));
}

} // namespace Talverine

#include "moc_scommunicatorbaserequester.cpp"
