// SPDX-License-Identifier: MIT
// How a log gives way to a new one.
#include <brixlib/database/slogger.h>

#include <brixlib/database/logbackups_p.h>
#include <brixlib/database/temporarydatabase_p.h>

#include <QtCore/QFile>
#include <QtCore/QFileInfo>

#include <algorithm>

using namespace Qt::StringLiterals;

namespace Talverine {

using Compression::CompressionAlgorithm;

namespace {

constexpr int kKeptShare = 3;

SDBRecord rotationMarker(const QString &backupFile, int count)
{
    SDBRecord marker;
    marker.insert(u"name"_s, QFileInfo(backupFile).fileName());
    marker.insert(u"nLogs"_s, count);
    return marker;
}

} // namespace

bool SLogger::rotate(bool keep)
{
    const QMutexLocker guard(&m_mutex);
    if (m_pathName.isEmpty())
        return false;
    // A closed log must not cost a backup: this fails before it comes to a file, and tells why.
    if (m_database.isNull())
        return backupPlain(QString());
    const QString backupFile = LogBackups(m_pathName).makeRoom();
    const int kept = keep ? keptEntries() : 0;
    SDBRecord marker = rotationMarker(backupFile, m_database.count());
    const bool isNewFile = !QFile::exists(backupFile);
    if (!backupPlain(backupFile)) {
        // What there is of it would keep its number, and cost the next backup one more old one.
        if (isNewFile)
            QFile::remove(backupFile);
        return false;
    }
    updateRecord(u"LogRotate"_s, &marker);
    const TemporaryDatabase place;
    SDBText fresh;
    fresh.authenticate(m_user, m_password);
    for (const QString &name : m_database.fieldsIndexed()) {
        if (!fresh.addFieldIndex(name))
            return false;
    }
    if (!create(&fresh, place.path()) || !fill(&fresh, marker, kept))
        return false;
    m_database = fresh;
    if (m_database.error() != DBError::NoError)
        return false;
    Q_EMIT rotated();
    return true;
}

bool SLogger::isOverLimits() const
{
    return m_database.count() > m_parameters.maxLogs || m_database.bytes() > m_parameters.maxBytes;
}

int SLogger::keptEntries() const
{
    const int count = m_database.count();
    int kept = m_parameters.keepLogs;
    if (count < 1)
        return kept;
    if (m_parameters.maxLogs > 0)
        kept = std::min(kept, count / kKeptShare);
    const qint64 entryBytes = m_database.bytes() / count;
    if (m_parameters.maxBytes > 0 && entryBytes > 0) {
        // Programs that wrote logs before counted in 32 bits here, and what they kept is kept.
        const auto fitting = static_cast<qint32>(m_parameters.maxBytes / entryBytes);
        kept = std::min(kept, fitting / kKeptShare);
    }
    return kept;
}

bool SLogger::backupPlain(const QString &fileName)
{
    const CompressionAlgorithm algorithm = m_database.backupCompressor();
    m_database.setBackupCompressor(CompressionAlgorithm::Uncompressed);
    const bool result = m_database.backup(fileName, false);
    m_database.setBackupCompressor(algorithm);
    return result;
}

// The entry that marks the rotation comes first, then those that have a pin, then the newest.
bool SLogger::fill(SDBText *target, const SDBRecord &marker, int kept)
{
    target->insert(marker);
    if (kept < 1)
        return true;
    for (const SDBField &pin : m_database.values(logPinDown())) {
        if (!carry(pin, target))
            return false;
    }
    const QList<SDBField> dates = m_database.values(logDate());
    // The marker is none of the kept.
    const qint64 carried = target->count() - 1;
    for (qint64 i = std::max<qint64>(carried + dates.size() - kept, 0); i < dates.size(); ++i) {
        if (!carry(dates.at(i), target))
            return false;
    }
    return true;
}

bool SLogger::carry(const SDBField &field, SDBText *target)
{
    QList<SDBRecord> records;
    m_database.searchField(field, records);
    return std::all_of(records.cbegin(), records.cend(),
                       [target](const SDBRecord &record) { return target->insert(record); });
}

} // namespace Talverine
