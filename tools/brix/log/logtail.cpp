// SPDX-License-Identifier: MIT
#include "logtail.h"

#include "logbackups.h"
#include <database/databasescan.h>

#include <brixlib/database/log/slogger.h>

#include <QtCore/QFile>

#include <algorithm>

namespace Brix {

using Talverine::SDBRecord;
using Talverine::SLogger;

namespace {

// They hold most of a signature, so that no other log has the same ones at that place.
constexpr qint64 kLastBytes = 64;

// The last record may be one that is being written. Behind one that is sound, the next may begin.
bool isWhole(const ScannedRecord &last, const DatabaseScan &scan)
{
    if (last.isDeleted || last.record.checkSignature())
        return true;
    return scan.isLineWhole() && !last.record.signature().isEmpty();
}

} // namespace

LogTail::LogTail(const QString &file)
    : m_file(file)
{
}

void LogTail::read(const Use &use)
{
    if (!QFileInfo::exists(m_file))
        return;
    const qint64 end = m_end;
    if (goesOnIn(m_file)) {
        readFrom(m_file, m_end, use);
        // A new file is filled step by step. When it stands still, all that was carried over is in.
        if (m_end > 0 && m_end == end)
            m_youngerThan = QDateTime();
    } else {
        readRestOfBackup(use);
        m_youngerThan = m_youngest;
        readFrom(m_file, 0, use);
    }
    m_lastBytes = bytesBeforeEnd(m_file);
}

// A backup by rotation is the log as it was.
void LogTail::readRestOfBackup(const Use &use)
{
    for (const QFileInfo &backup : LogBackups::of(m_file)) {
        if (goesOnIn(backup.filePath()))
            return readFrom(backup.filePath(), m_end, use);
    }
}

void LogTail::readFrom(const QString &file, qint64 position, const Use &use)
{
    m_end = position;
    DatabaseScan scan(file, SDBRecord::uniqueIncKey(), position);
    ScannedRecord record;
    while (scan.next(&record)) {
        const bool isLast = record.position + record.bytes == scan.bytes();
        if (isLast && !isWhole(record, scan))
            return;
        m_end = isLast ? scan.wholeBytes() : record.position + record.bytes;
        if (record.isDeleted)
            continue;
        const QDateTime date = SLogger::recordDateTime(record.record);
        if (m_youngerThan.isValid() && date <= m_youngerThan)
            continue;
        if (!m_youngest.isValid() || date > m_youngest)
            m_youngest = date;
        use(record.record);
    }
}

bool LogTail::goesOnIn(const QString &file) const
{
    return QFileInfo(file).size() >= m_end && bytesBeforeEnd(file) == m_lastBytes;
}

QByteArray LogTail::bytesBeforeEnd(const QString &name) const
{
    const qint64 begin = std::max<qint64>(m_end - kLastBytes, 0);
    QFile file(name);
    if (m_end == 0 || !file.open(QIODevice::ReadOnly) || !file.seek(begin))
        return {};
    return file.read(m_end - begin);
}

} // namespace Brix
