// SPDX-License-Identifier: MIT
#include "sdatastreamthreadversion_p.h"

#include <QtCore/QThread>

namespace Talverine {

// Leaked on purpose: threads that outlive the statics of this library still report their end here.
SDataStreamThreadVersion &SDataStreamThreadVersion::instance()
{
    static auto *instance = new SDataStreamThreadVersion;
    return *instance;
}

QDataStream::Version SDataStreamThreadVersion::defaultVersion() const
{
    const QMutexLocker lock(&m_mutex);
    return m_versions.value(QThread::currentThread(), QDataStream::Qt_5_6);
}

// The connections are direct: the address of a finished thread soon comes back as that of a new
// one, which a queued removal would let inherit the old entry. They are unique, since a session may
// set its version many times. A thread object may be started again, so the end of each run counts.
void SDataStreamThreadVersion::setDefaultVersion(QDataStream::Version version)
{
    constexpr auto kind = Qt::ConnectionType(Qt::DirectConnection | Qt::UniqueConnection);
    QThread *thread = QThread::currentThread();
    const QMutexLocker lock(&m_mutex);
    m_versions.insert(thread, version);
    connect(thread, &QThread::finished, this, &SDataStreamThreadVersion::deleteCurrentVersion,
            kind);
    connect(thread, &QObject::destroyed, this, &SDataStreamThreadVersion::deleteVersion, kind);
}

void SDataStreamThreadVersion::deleteVersion(QObject *thread)
{
    const QMutexLocker lock(&m_mutex);
    m_versions.remove(static_cast<QThread *>(thread));
}

void SDataStreamThreadVersion::deleteCurrentVersion()
{
    deleteVersion(QThread::currentThread());
}

} // namespace Talverine

#include "moc_sdatastreamthreadversion_p.cpp"
