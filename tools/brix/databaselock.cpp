// SPDX-License-Identifier: MIT
#include "databaselock.h"

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

Failure heldBy(const QString &file, const LockHolder &holder)
{
    return {ExitCode::LocalIo, u"%1 is in use by %2"_s.arg(file, holder.text())};
}

Failure notToBeMade(const QString &file)
{
    return {ExitCode::LocalIo,
            u"cannot make %1: the folder is missing or may not be written"_s.arg(lockFileOf(file))};
}

} // namespace

QString LockHolder::text() const
{
    if (process == 0)
        return u"another program"_s;
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
    const auto holder = holderOf(QLockFile(lockFileOf(file)));
    return holder ? heldBy(file, *holder) : notToBeMade(file);
}

} // namespace Brix
