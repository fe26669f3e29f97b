// SPDX-License-Identifier: MIT
// How a log gives way to a new one.
#include <brixlib/database/log/slogger.h>

#include "backupslot_p.h"
#include <brixlib/database/sdbtext_p.h>
#include <brixlib/database/storage/stagedfile_p.h>
#include <brixlib/database/temporarydatabase_p.h>

#include <brixrt/sconvert.h>

#include <QtCore/QFileInfo>

#include <algorithm>

using namespace Qt::StringLiterals;

namespace Talverine {

namespace {

constexpr int kKeptShare = 3;
constexpr QLatin1String kMarkerId("LogRotate");

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
    // Whatever forbids the rotation must not cost a backup.
    if (m_pathName.isEmpty() || !m_database.isReplaceable() || !giveWay(keep))
        return false;
    Q_EMIT rotated();
    return true;
}

// At its end nothing is left beside the log but its backups.
bool SLogger::giveWay(bool keep)
{
    BackupSlot slot(m_pathName);
    // A log may have the name of one of its own backups.
    if (slot.isLogItself())
        return m_database.returnBool(DBError::OpenError);
    SDBRecord marker = rotationMarker(slot.path(), m_database.count());
    updateRecord(kMarkerId, &marker);
    const TemporaryDatabase place(rotationNote());
    SDBText fresh;
    fresh.authenticate(m_user, m_password);
    for (const QString &name : m_database.fieldsIndexed()) {
        if (!fresh.addFieldIndex(name))
            return false;
    }
    if (!create(&fresh, place.path()) || !fill(&fresh, marker, keep ? keptEntries() : 0)) {
        // A failed write leaves the error of the operation before.
        const DBError error = fresh.error();
        m_database.d->error = error == DBError::NoError ? DBError::WriteError : error;
        return false;
    }
    return backupAndReplace(fresh, &slot, stampOf(marker));
}

// The backup is on the disk before the log has its new content.
bool SLogger::backupAndReplace(const SDBText &fresh, BackupSlot *slot, const QString &stamp)
{
    StagedFile backup(slot->path(), slot->stagedName());
    if (!m_database.stageCopy(&backup))
        return false;
    if (!slot->take(&backup, stamp))
        return m_database.returnBool(DBError::OpenError);
    m_database = fresh;
    // Also where the new content can't be opened.
    if (m_database.isOldContentGone())
        slot->keep();
    return m_database.error() == DBError::NoError;
}

// By its date a marker tells its rotation from all others of the log. Empty for another entry.
QString SLogger::stampOf(const SDBRecord &marker)
{
    const QLocale locale = marker.locale(QLocale::c());
    if (SConvert::toString(marker.value(logId()), locale) != kMarkerId)
        return {};
    return QString::number(SConvert::toInt64(marker.value(logDate()), locale));
}

QString SLogger::rotationNote() const
{
    return m_pathName + QLatin1String(".brixrotation");
}

QString SLogger::restorationNote() const
{
    return m_pathName.isEmpty() ? QString() : m_pathName + QLatin1String(".brixrestoration");
}

void SLogger::removeRemains()
{
    BackupSlot::removeRemains(m_pathName, [this] { return stampOf(first()); });
    TemporaryDatabase::removeRemains(rotationNote());
    TemporaryDatabase::removeRemains(restorationNote());
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
