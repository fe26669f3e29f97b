// SPDX-License-Identifier: MIT
#include "logtail.h"

#include "databasescan.h"

#include <brixlib/database/slogger.h>

#include <QtCore/QFile>
#include <QtCore/QFileInfo>

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
    if (isSameFile())
        readFrom(m_end, use, QDateTime());
    else
        readFrom(0, use, m_youngest);
    m_lastBytes = bytesBeforeEnd();
}

void LogTail::readFrom(qint64 position, const Use &use, const QDateTime &youngerThan)
{
    m_end = position;
    DatabaseScan scan(m_file, SDBRecord::uniqueIncKey(), position);
    ScannedRecord record;
    while (scan.next(&record)) {
        const bool isLast = record.position + record.bytes == scan.bytes();
        if (isLast && !isWhole(record, scan))
            return;
        m_end = isLast ? scan.wholeBytes() : record.position + record.bytes;
        if (record.isDeleted)
            continue;
        const QDateTime date = SLogger::recordDateTime(record.record);
        if (youngerThan.isValid() && date <= youngerThan)
            continue;
        if (!m_youngest.isValid() || date > m_youngest)
            m_youngest = date;
        use(record.record);
    }
}

bool LogTail::isSameFile() const
{
    return QFileInfo(m_file).size() >= m_end && bytesBeforeEnd() == m_lastBytes;
}

QByteArray LogTail::bytesBeforeEnd() const
{
    const qint64 begin = std::max<qint64>(m_end - kLastBytes, 0);
    QFile file(m_file);
    if (m_end == 0 || !file.open(QIODevice::ReadOnly) || !file.seek(begin))
        return {};
    return file.read(m_end - begin);
}

} // namespace Brix
