// SPDX-License-Identifier: MIT
#include <brixlib/database/log/slogger.h>

#include <brixlib/foundation/sdotnetcompatibilityhelper.h>

#include <brixrt/sconvert.h>
#include <brixrt/slocale.h>

#include <QtConcurrent/QtConcurrentRun>
#include <QtCore/QThreadPool>

#include <algorithm>
#include <mutex>

using namespace Qt::StringLiterals;

namespace Talverine {

using Compression::CompressionAlgorithm;

namespace {

constexpr int kLeastMaxLogs = 10;
constexpr int kKeptShare = 10;

const QLocale &logCulture()
{
    static const QLocale culture = SLocale(u"en-US"_s, QLocale::OmitGroupSeparator);
    return culture;
}

RotateParameters inRange(int maxLogs, int keepLogs)
{
    RotateParameters result;
    result.maxLogs =
        maxLogs == 0 ? std::numeric_limits<int>::max() : std::max(maxLogs, kLeastMaxLogs);
    result.keepLogs = std::clamp(keepLogs, 0, result.maxLogs / kKeptShare);
    return result;
}

} // namespace

const QString &SLogger::logId()
{
    static const auto *name = new QString(u"logid"_s);
    return *name;
}

const QString &SLogger::logDate()
{
    static const auto *name = new QString(u"logdate"_s);
    return *name;
}

const QString &SLogger::logPinDown()
{
    static const auto *name = new QString(u"logpindown"_s);
    return *name;
}

// Direct, since a log may be opened in another thread than that it was made in.
SLogger::SLogger(const QString &pathName, const RotateParameters &parameters, QObject *parent)
    : QObject(parent)
    , m_pathName(pathName)
    , m_parameters(parameters)
{
    m_database.addFieldIndex(logDate());
    m_database.addFieldIndex(logPinDown());
    connect(&m_database, &SDBText::databaseRestored, this, &SLogger::restored,
            Qt::DirectConnection);
    connect(&m_database, &SDBText::databaseReindexed, this, &SLogger::reindexed,
            Qt::DirectConnection);
    connect(this, &SLogger::restored, this, &SLogger::changed, Qt::DirectConnection);
    connect(this, &SLogger::logAdded, this, &SLogger::changed, Qt::DirectConnection);
    connect(this, &SLogger::rotated, this, &SLogger::changed, Qt::DirectConnection);
    connect(this, &SLogger::reindexed, this, &SLogger::changed, Qt::DirectConnection);
}

SLogger::SLogger(const QString &pathName, int maxLogs, int keepLogs, QObject *parent)
    : SLogger(pathName, inRange(maxLogs, keepLogs), parent)
{
}

SLogger::SLogger(const SLogger &other)
    : SLogger(QString())
{
    *this = other;
}

SLogger &SLogger::operator=(const SLogger &other)
{
    if (this == &other)
        return *this;
    const std::scoped_lock guard(m_mutex, other.m_mutex);
    m_user = other.m_user;
    m_password = other.m_password;
    m_parameters = other.m_parameters;
    m_database = other.m_database;
    m_pathName = m_database.fileName();
    return *this;
}

SLogger::~SLogger()
{
    waitForFinished();
}

bool SLogger::open(const QString &user, const QString &password, bool background)
{
    if (!background)
        return _open(user, password);
    // Without the log's mutex: an open before this one may hold it for long.
    const QMutexLocker guard(&m_futureMutex);
    m_future = QtConcurrent::run(QThreadPool::globalInstance(),
                                 [this, former = m_future, user, password]() mutable {
                                     former.waitForFinished();
                                     return _open(user, password);
                                 });
    return true;
}

bool SLogger::isReady() const
{
    return backgroundOpen().isFinished() && !m_database.isNull();
}

void SLogger::waitForFinished() const
{
    backgroundOpen().waitForFinished();
}

bool SLogger::close()
{
    const QMutexLocker guard(&m_mutex);
    m_database.close();
    Q_EMIT closed();
    return true;
}

bool SLogger::append(const QString &id)
{
    return append(id, SDBRecord());
}

bool SLogger::append(const QString &id, const SDBRecord &record)
{
    const QMutexLocker guard(&m_mutex);
    if (!insert(id, record))
        return false;
    Q_EMIT logAdded(id);
    return true;
}

bool SLogger::append(const QString &id, const QList<SDBRecord> &records)
{
    const QMutexLocker guard(&m_mutex);
    bool anyInserted = false;
    for (const SDBRecord &record : records)
        anyInserted |= insert(id, record);
    if (anyInserted)
        Q_EMIT changed();
    return anyInserted;
}

bool SLogger::pinDown(const SDBRecord &record, bool pin)
{
    const QMutexLocker guard(&m_mutex);
    if (!m_database.contains(record))
        return false;
    SDBRecord entry(record);
    entry.insert(logPinDown(), pin);
    if (!m_database.replace(entry))
        return false;
    Q_EMIT pinChanged(SConvert::toString(entry.value(logId()), entry.locale(logCulture())));
    return true;
}

bool SLogger::isPinned(const SDBRecord &record)
{
    return SConvert::toBool(record.value(logPinDown()), record.locale(logCulture()));
}

QDateTime SLogger::recordDateTime(const SDBRecord &record)
{
    const QLocale locale = record.locale(logCulture());
    return SDotNetCompatibilityHelper::fromBinary(
        SConvert::toInt64(record.value(logDate()), locale));
}

bool SLogger::addIndex(const QString &name)
{
    const QMutexLocker guard(&m_mutex);
    return m_database.addFieldIndex(name);
}

QList<SDBRecord> SLogger::search(const QString &field, const QString &value)
{
    const QMutexLocker guard(&m_mutex);
    QList<SDBRecord> records;
    if (m_database.addFieldIndex(field))
        m_database.searchField(SDBField(field, value), records);
    return records;
}

bool SLogger::contains(const QString &field, const QString &value)
{
    return !search(field, value).isEmpty();
}

QList<SDBField> SLogger::values(const QString &name)
{
    const QMutexLocker guard(&m_mutex);
    return m_database.values(name);
}

bool SLogger::reindex()
{
    const QMutexLocker guard(&m_mutex);
    return m_database.reindex();
}

qint64 SLogger::bytes() const
{
    const QMutexLocker guard(&m_mutex);
    return m_database.bytes();
}

int SLogger::count() const
{
    const QMutexLocker guard(&m_mutex);
    return m_database.count();
}

QLocale SLogger::culture() const
{
    const QMutexLocker guard(&m_mutex);
    return m_database.culture();
}

bool SLogger::isEmpty() const
{
    const QMutexLocker guard(&m_mutex);
    return m_database.isEmpty();
}

bool SLogger::isNull() const
{
    const QMutexLocker guard(&m_mutex);
    return m_database.isNull();
}

SDBRecord SLogger::first()
{
    const QMutexLocker guard(&m_mutex);
    SDBRecord record;
    m_database.first(record);
    return record;
}

SDBRecord SLogger::last()
{
    const QMutexLocker guard(&m_mutex);
    SDBRecord record;
    m_database.last(record);
    return record;
}

SDBIterator SLogger::begin()
{
    const QMutexLocker guard(&m_mutex);
    return m_database.begin();
}

SDBIterator SLogger::end()
{
    const QMutexLocker guard(&m_mutex);
    return m_database.end();
}

SDBIterator SLogger::find(int index)
{
    const QMutexLocker guard(&m_mutex);
    return m_database.find(index);
}

bool SLogger::isReadable() const
{
    const QMutexLocker guard(&m_mutex);
    return m_database.grants() != DBAuthGrants::None;
}

bool SLogger::isWriteable() const
{
    const QMutexLocker guard(&m_mutex);
    return m_database.grants() >= DBAuthGrants::ReadWrite;
}

QString SLogger::pathName() const
{
    const QMutexLocker guard(&m_mutex);
    return m_pathName;
}

RotateParameters SLogger::rotateParameters() const
{
    const QMutexLocker guard(&m_mutex);
    return m_parameters;
}

DBError SLogger::error() const
{
    const QMutexLocker guard(&m_mutex);
    return m_database.error();
}

void SLogger::setBackupCompression(bool enabled)
{
    const QMutexLocker guard(&m_mutex);
    m_database.setBackupCompressor(enabled ? CompressionAlgorithm::Lz4
                                           : CompressionAlgorithm::Uncompressed);
}

bool SLogger::backupCompressionEnabled() const
{
    const QMutexLocker guard(&m_mutex);
    return m_database.backupCompressor() != CompressionAlgorithm::Uncompressed;
}

QString SLogger::user() const
{
    const QMutexLocker guard(&m_mutex);
    return m_user;
}

QString SLogger::passwd() const
{
    const QMutexLocker guard(&m_mutex);
    return m_password;
}

bool SLogger::_open(const QString &user, const QString &password)
{
    const QMutexLocker guard(&m_mutex);
    m_user = user;
    m_password = password;
    // Who isn't the owner may still read.
    m_database.authenticate(user, password);
    bool result = m_database.open(m_pathName);
    if (!result && m_database.error() == DBError::FileNotFound)
        result = create(&m_database, m_pathName);
    if (result)
        removeRemains();
    if (result && isOverLimits())
        result = rotate(true);
    Q_EMIT opened(result);
    return result;
}

bool SLogger::create(SDBText *database, const QString &fileName)
{
    return database->create(fileName, SDBRecord::uniqueIncKey(), DBAuthGrants::ReadOnly,
                            logCulture(), u"2"_s);
}

void SLogger::updateRecord(const QString &id, SDBRecord *record)
{
    if (!recordDateTime(*record).isValid()) {
        const qint64 now = SDotNetCompatibilityHelper::toBinary(QDateTime::currentDateTimeUtc());
        record->insert(logDate(), now);
    }
    record->insert(logId(), id);
}

bool SLogger::insert(const QString &id, SDBRecord record)
{
    if (id.isEmpty())
        return false;
    updateRecord(id, &record);
    return m_database.insert(record);
}

QFuture<bool> SLogger::backgroundOpen() const
{
    const QMutexLocker guard(&m_futureMutex);
    return m_future;
}

} // namespace Talverine

#include "moc_slogger.cpp"
