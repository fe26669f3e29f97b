// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QDataStream>
#include <QtCore/QHash>
#include <QtCore/QObject>
#include <QtCore/QRecursiveMutex>

class QThread;

namespace Talverine {

//! The stream version of each thread that has set one. Fully shared.
class SDataStreamThreadVersion final : public QObject
{
    Q_OBJECT

public:
    static SDataStreamThreadVersion &instance();

    //! The calling thread's entry, or QDataStream::Qt_5_6.
    QDataStream::Version defaultVersion() const;
    //! Sets the calling thread's entry, which stays until the thread ends.
    void setDefaultVersion(QDataStream::Version version);

public Q_SLOTS:
    //! Removes the entry of \a thread, of which only the address is used.
    void deleteVersion(QObject *thread);
    //! Removes the calling thread's entry.
    void deleteCurrentVersion();

private:
    SDataStreamThreadVersion() = default;

    mutable QRecursiveMutex m_mutex;
    QHash<QThread *, QDataStream::Version> m_versions;
};

} // namespace Talverine
