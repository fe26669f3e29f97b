// SPDX-License-Identifier: MIT
#include <brixlib/protocol/scommunicatorbaserequester.h>

#include <brixlib/protocol/stcpsocketspeedcontroller.h>

#include <QtCore/QThread>

// The names are text for the meta-object: what is in Q_ARG spells the type as the worker declares
// it.
namespace Talverine {

SCommunicatorBaseRequester::SCommunicatorBaseRequester(SCommunicatorBase *worker, QObject *parent)
    : QObject(parent)
    , m_worker(worker)
{
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
}

void SCommunicatorBaseRequester::setAutoDestroy(bool enabled)
{
    if (!m_worker)
        return;
    if (enabled)
        connect(m_worker, &QObject::destroyed, this, &QObject::deleteLater, Qt::UniqueConnection);
    else
        QObject::disconnect(m_worker, &QObject::destroyed, this, &QObject::deleteLater);
}

void SCommunicatorBaseRequester::emitInvokeError(const QString &function) const
{
    Q_EMIT invokeError(function);
}

// A blocking call from the worker's own thread would wait for itself.
Qt::ConnectionType SCommunicatorBaseRequester::waitingConnection(const QObject *target) const
{
    const QThread *theirs = target->thread();
    const bool direct = theirs == thread() || theirs == QThread::currentThread();
    return direct ? Qt::DirectConnection : Qt::BlockingQueuedConnection;
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
