// SPDX-License-Identifier: MIT
#include <brixlib/foundation/sglobalnetworkaccessmanager.h>

#include <QtCore/QMutex>
#include <QtCore/QPointer>
#include <QtCore/QThread>
#include <QtNetwork/QNetworkAccessManager>

namespace Talverine {

namespace {

struct Shared
{
    QMutex mutex;
    QPointer<QNetworkAccessManager> manager;
    QThread *thread = nullptr; // only compared
};

// Leaked on purpose: the program's statics may still ask when this file's are gone.
Shared &shared()
{
    static auto *instance = new Shared;
    return *instance;
}

} // namespace

// The thread is noted beside the manager, because asking the manager itself is safe in its own
// thread only: anywhere else it may die meanwhile.
QNetworkAccessManager *SGlobalNetworkAccessManager::globalNetworkAccessManager()
{
    const QMutexLocker lock(&shared().mutex);
    if (shared().thread != QThread::currentThread() || !shared().manager)
        return nullptr;
    return shared().manager->thread() == shared().thread ? shared().manager.data() : nullptr;
}

void SGlobalNetworkAccessManager::setGlobalNetworkAccessManager(QNetworkAccessManager *manager)
{
    const QMutexLocker lock(&shared().mutex);
    shared().manager = manager;
    shared().thread = manager ? manager->thread() : nullptr;
}

} // namespace Talverine
