// SPDX-License-Identifier: MIT
#include "databaselock.h"

#include <files/writeprobe.h>

#include <QtCore/QDateTime>
#include <QtCore/QFile>
#include <QtCore/QFileInfo>
#include <QtCore/QSysInfo>

#include <chrono>

namespace Brix {

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

namespace {

constexpr auto kPatience = 500ms;

QString lockFileOf(const QString &file)
{
    return file + u".lck"_s;
}

std::optional<LockHolder> holderOf(const QLockFile &lock)
{
    LockHolder holder;
    if (lock.getLockInfo(&holder.process, &holder.host, &holder.application))
        return holder;
    return std::nullopt;
}

// Whether the system can tell here that the program has ended.
bool isOfThisHost(const LockHolder &holder)
{
    return holder.process != 0 &&
           (holder.host.isEmpty() || holder.host == QSysInfo::machineHostName());
}

QString textOf(const QString &file, const LockHolder &holder)
{
    const QDateTime written = QFileInfo(lockFileOf(file)).lastModified();
    const QString since =
        written.isValid() ? u" since %1"_s.arg(written.toUTC().toString(Qt::ISODate)) : QString();
    return u"%1 is in use by %2%3"_s.arg(file, holder.text(), since);
}

Failure heldBy(const QString &file, const LockHolder &holder)
{
    const QString hint =
        isOfThisHost(holder) ? QString() : u"; if it is not, \"brix db unlock\" removes the lock"_s;
    return {ExitCode::LocalIo, textOf(file, holder) + hint};
}

Failure notToBeMade(const QString &file)
{
    const QString reason = whyNotWritable(file);
    return {ExitCode::LocalIo,
            u"cannot create %1: %2"_s.arg(
                lockFileOf(file), reason.isEmpty() ? u"the system gives no reason"_s : reason)};
}

// A lock file that names no owner: the system knows whether a program of this host has it.
bool takeUnreadable(QLockFile *lock)
{
    lock->setStaleLockTime(1);
    const bool isTaken = lock->tryLock(kPatience);
    lock->setStaleLockTime(0);
    return isTaken;
}

} // namespace

QString LockHolder::text() const
{
    if (process == 0)
        return u"another program, which its lock file does not name,"_s;
    const QString program = u"process %1 (%2)"_s.arg(QString::number(process), application);
    return host.isEmpty() ? program : u"%1 on %2"_s.arg(program, host);
}

DatabaseLock::DatabaseLock(const QString &file)
    : m_file(file)
    , m_lock(lockFileOf(file))
{
    // However old, a lock holds as long as its owner lives.
    m_lock.setStaleLockTime(0);
    if (!m_lock.tryLock(kPatience) && m_lock.error() == QLockFile::LockFailedError)
        m_holder = holderOf(m_lock).value_or(LockHolder());
}

void DatabaseLock::require() const
{
    if (m_holder)
        throw heldBy(m_file, *m_holder);
    if (!m_lock.isLocked())
        throw notToBeMade(m_file);
}

Failure DatabaseLock::failure(const QString &file)
{
    const QString name = lockFileOf(file);
    const auto holder = holderOf(QLockFile(name));
    // A lock file that can't be read, or is not written yet, is a lock as well.
    return holder || QFileInfo::exists(name) ? heldBy(file, holder.value_or(LockHolder()))
                                             : notToBeMade(file);
}

bool DatabaseLock::unlock(const QString &file, bool force)
{
    const QString name = lockFileOf(file);
    if (!QFileInfo::exists(name))
        return false;
    QLockFile lock(name);
    lock.setStaleLockTime(0);
    // Qt takes the lock of a program of this host that has ended. Unlocking removes the file.
    if (lock.tryLock(kPatience))
        return true;
    if (lock.error() != QLockFile::LockFailedError)
        throw notToBeMade(file);
    const auto holder = holderOf(lock);
    if (!holder && takeUnreadable(&lock))
        return true;
    if (!force)
        throw Failure{ExitCode::Refused, u"%1; --force removes the lock all the same"_s.arg(
                                             textOf(file, holder.value_or(LockHolder())))};
    QFile lockFile(name);
    if (!lockFile.remove())
        throw Failure{ExitCode::LocalIo,
                      u"cannot remove %1: %2"_s.arg(name, lockFile.errorString())};
    return true;
}

} // namespace Brix
