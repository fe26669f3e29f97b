// SPDX-License-Identifier: MIT
#include "audittrail.h"

#include <log/logcommands.h>

#include <brixlib/foundation/sdotnetcompatibilityhelper.h>

#include <chrono>

namespace Brix {

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;
using Talverine::SDBRecord;
using Talverine::SDotNetCompatibilityHelper;
using Talverine::SLogger;

namespace {

constexpr qsizetype kQueueBytes = 8 << 20;
constexpr auto kLastWrites = 5s;

// Roughly what an event takes in memory.
qsizetype sizeOf(const SessionEvent &event)
{
    qsizetype size = 256;
    for (const auto &[name, value] : event.fields)
        size += 96 + 2 * value.size();
    return size;
}

SDBRecord recordOf(const SessionEvent &event)
{
    SDBRecord record;
    record.insert(SLogger::logDate(), SDotNetCompatibilityHelper::toBinary(event.time));
    for (const auto &[name, value] : event.fields)
        record.insert(name, value);
    return record;
}

bool appendGap(SLogger &log, qint64 lost)
{
    SDBRecord record;
    record.insert(u"lost"_s, QString::number(lost));
    return log.append(u"AuditGap"_s, record);
}

// The size is that of the file at the beginning of the batch: to ask for it costs a system call.
void rotateIfTooLarge(SLogger &log, qint64 *size)
{
    const auto limits = log.rotateParameters();
    if (log.count() <= limits.maxLogs && *size <= limits.maxBytes)
        return;
    log.rotate(true);
    *size = log.bytes();
}

// Returns how many events were lost and are not told yet.
qint64 writeBatch(SLogger &log, const QList<SessionEvent> &events, qint64 dropped)
{
    qint64 lost = dropped;
    bool isWritable = true;
    qint64 size = log.bytes();
    for (const SessionEvent &event : events) {
        rotateIfTooLarge(log, &size);
        isWritable = log.append(event.id, recordOf(event));
        lost += isWritable ? 0 : 1;
    }
    if (lost == 0)
        return 0;
    return isWritable && appendGap(log, lost) ? 0 : lost;
}

std::shared_ptr<SLogger> openAudit(const QString &file, const DatabaseLogin &owner,
                                   const Talverine::RotateParameters &limits)
{
    makeLogIfMissing(file, owner);
    return openLog(file, owner, limits);
}

} // namespace

AuditTrail::AuditTrail(const QString &file, const DatabaseLogin &owner,
                       const Talverine::RotateParameters &limits)
    : m_thread(kQueueBytes, kLastWrites,
               [log = openAudit(file, owner, limits)](const QList<SessionEvent> &events,
                                                      qint64 dropped) {
                   return writeBatch(*log, events, dropped);
               })
{
}

void AuditTrail::write(const SessionEvent &event)
{
    m_thread.add(event, sizeOf(event));
}

} // namespace Brix
