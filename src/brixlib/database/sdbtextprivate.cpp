// SPDX-License-Identifier: MIT
#include <brixlib/database/sdbtext_p.h>

#include <brixlib/database/indexfile_p.h>
#include <brixlib/database/recordreader_p.h>
#include <brixlib/database/recordwriter_p.h>
#include <brixlib/database/ssignature.h>

#include <brixrt/sconvert.h>
#include <brixrt/scrc32.h>
#include <brixrt/sfilehelper.h>
#include <brixrt/slocale.h>

#include <QtCore/QBuffer>
#include <QtCore/QDebug>
#include <QtCore/QFile>
#include <QtCore/QFileDevice>

#include <limits>

using namespace Qt::StringLiterals;

namespace Talverine {

namespace {

constexpr int kLockPatienceMs = 500;
constexpr QLatin1String kLockSuffix(".lck");
constexpr QLatin1String kHeadSuffix(".srec");
constexpr QLatin1String kIndexSuffix(".idx");

// Each record is one write. Buffered, its failure would show with a later operation or never, and a
// killed program would lose it.
constexpr QIODevice::OpenMode kOpenMode = QIODevice::ReadWrite | QIODevice::Unbuffered;

QString passwordHash(const QString &password)
{
    return SSignature::generate(password, QCryptographicHash::Sha1);
}

bool grantsReading(DBAuthGrants grants)
{
    return grants != DBAuthGrants::None;
}

bool grantsWriting(DBAuthGrants grants)
{
    return grants == DBAuthGrants::ReadWrite || grants == DBAuthGrants::All;
}

bool grantsInserting(DBAuthGrants grants)
{
    return grantsWriting(grants) || grants == DBAuthGrants::ReadOwnWrite;
}

// Keeps the length of the line: its value's place is taken by "$" and the value's characters.
QString scrambledLine(const QString &line, const STextScramble &scramble)
{
    const qsizetype value = line.indexOf(u'=') + 1;
    const QString rest = line.mid(value);
    QString result = line.left(value) + u'$';
    if (rest.size() > 2)
        result += scramble.scramble(rest.mid(1), 0);
    return result;
}

} // namespace

QString companionFile(const QIODevice *device, QLatin1String suffix)
{
    const auto *file = qobject_cast<const QFileDevice *>(device);
    return file && !file->fileName().isEmpty() ? file->fileName() + suffix : QString();
}

void SDBTextPrivate::setUser(const QString &name, const QString &secret)
{
    user = name;
    password = secret;
    m_passwordHash = passwordHash(secret);
}

// A database without a password has nobody's: no hash is empty.
bool SDBTextPrivate::isOwner() const
{
    if (user.isEmpty() || head.owner.isEmpty() || m_passwordHash.isEmpty())
        return false;
    return user.compare(head.owner, Qt::CaseInsensitive) == 0 && head.passwd == m_passwordHash;
}

bool SDBTextPrivate::mayRead() const
{
    return grantsReading(head.grants) || isOwner();
}

bool SDBTextPrivate::mayWrite() const
{
    return grantsWriting(head.grants) || isOwner();
}

bool SDBTextPrivate::mayInsert() const
{
    return grantsInserting(head.grants) || isOwner();
}

bool SDBTextPrivate::mayWriteOwn(const QString &key)
{
    SDBRecord record;
    if (!mayInsert() || search(key, &record) != DBError::NoError)
        return false;
    const QLocale locale = record.locale(SLocale(u"en-US"_s, QLocale::OmitGroupSeparator));
    return record.field(SDBRecord::ownerKey()).toString(true, locale) == user;
}

QString SDBTextPrivate::fileName() const
{
    return companionFile(device, QLatin1String());
}

DBError SDBTextPrivate::openDevice()
{
    if (!takeLock(device))
        return DBError::FileLockError;
    if (!device || !device->open(kOpenMode)) {
        lock.reset();
        return DBError::OpenError;
    }
    isOpen = true;
    return DBError::NoError;
}

DBError SDBTextPrivate::openEmpty(QIODevice *target, DBError failure)
{
    if (!target)
        return failure;
    // The lock is held on: nobody gets in between.
    target->close();
    if (!takeLock(target)) {
        closeDevice(target);
        return DBError::FileLockError;
    }
    bool isEmpty = target->open(kOpenMode | QIODevice::Truncate);
    // A temporary file that is open underneath does not truncate.
    if (auto *file = qobject_cast<QFileDevice *>(target); isEmpty && file && file->size() > 0)
        isEmpty = file->resize(0);
    if (!isEmpty)
        closeDevice(target);
    return isEmpty ? DBError::NoError : failure;
}

void SDBTextPrivate::closeDevice(QIODevice *target)
{
    if (target && target->isOpen())
        target->close();
    isOpen = device && device->isOpen();
    lock.reset();
}

DBError SDBTextPrivate::seekEnd()
{
    if (!hasOpenDevice() || device->size() < 1 || !device->seek(device->size()))
        return DBError::SeekError;
    return DBError::NoError;
}

DBError SDBTextPrivate::truncate()
{
    const DBError result = openEmpty(device, DBError::ResetError);
    isOpen = device && device->isOpen();
    hasIndex = isOpen;
    clearIndexes();
    return result;
}

bool SDBTextPrivate::takeLock(QIODevice *target)
{
    const QString name = companionFile(target, kLockSuffix);
    if (lock && m_lockName == name)
        return true;
    lock.reset();
    if (name.isEmpty())
        return true;
    m_lockName = name;
    lock = std::make_unique<QLockFile>(name);
    // However old, a lock holds as long as its owner lives: a database may stay open for months.
    lock->setStaleLockTime(0);
    if (lock->tryLock(kLockPatienceMs))
        return true;
    lock.reset();
    return false;
}

DBError SDBTextPrivate::load()
{
    const SDBRecord record = readHeadRecord();
    if (record.isEmpty())
        return DBError::WrongDB;
    if (!record.checkSignature())
        return DBError::SignError;
    head = DatabaseHead::fromRecord(record);
    if (head.key.isEmpty())
        return DBError::KeyIsNull;
    saveHeadCopy();
    return loadIndex() ? DBError::NoError : createIndex();
}

SDBRecord SDBTextPrivate::readHeadRecord()
{
    if (device->size() < 1)
        return SDBRecord();
    SDBRecord record = readSpecialRecord(device);
    if (!record.isEmpty())
        return record;
    record = readHeadCopy();
    isHeadFromCopy = !record.isEmpty();
    return record;
}

SDBRecord SDBTextPrivate::readHeadCopy()
{
    const QString name = companionFile(device, kHeadSuffix);
    QFile file(name);
    if (name.isEmpty() || !file.open(QIODevice::ReadOnly))
        return SDBRecord();
    qDebug() << "SDBText::loadSpecialRecordBackup: database corrupted! Using the backup index.";
    return readSpecialRecord(&file);
}

// A copy that can't be written is no reason to refuse the database.
void SDBTextPrivate::saveHeadCopy()
{
    const QString name = companionFile(device, kHeadSuffix);
    if (name.isEmpty() || isHeadFromCopy)
        return;
    QFile file(name);
    if (file.open(QIODevice::WriteOnly) && !head.write(&file))
        file.close();
}

DBError SDBTextPrivate::copyTo(QIODevice *target)
{
    if (!hasOpenDevice() || !device->seek(0))
        return DBError::SeekError;
    if (isHeadFromCopy && !head.write(target))
        return DBError::WriteError;
    if (!SFileHelper::copyDevice(target, device, kCopyPieceBytes))
        return DBError::WriteError;
    auto *file = qobject_cast<QFileDevice *>(target);
    return !file || file->flush() ? DBError::NoError : DBError::WriteError;
}

DBError SDBTextPrivate::copyToClosed(QIODevice *target)
{
    if (!target || !(target->isOpen() || target->open(QIODevice::WriteOnly)) ||
        !target->isWritable())
        return DBError::OpenError;
    const DBError result = copyTo(target);
    if (result == DBError::NoError)
        closeDevice(target);
    else
        target->close();
    return result;
}

DBError SDBTextPrivate::append(SDBRecord record, bool keepAsIs)
{
    if (!keepAsIs && !signForWriting(&record, head.key))
        return DBError::KeyIsNull;
    const DBError end = seekEnd();
    if (end != DBError::NoError)
        return end;
    const qint64 position = device->pos() + recordSeparator().size();
    if (!writeAll(device, recordSeparator() + recordLines(record, head.culture)))
        return DBError::WriteError;
    addKey(keyOf(record), position);
    return DBError::NoError;
}

DBError SDBTextPrivate::search(const QString &key, SDBRecord *record)
{
    record->clear();
    if (key.isEmpty())
        return DBError::KeyIsNull;
    const std::optional<qint64> position = keys.position(key);
    if (!position)
        return DBError::RecNotFound;
    if (!hasOpenDevice())
        return DBError::SeekError;
    const qint64 before = device->pos();
    RecordReader reader(device, head.key, *position, LineReader::kRecordBytes);
    if (reader.hasFailed())
        return DBError::SeekError;
    DBError result = DBError::RecNotFound;
    while (result != DBError::NoError && reader.next(record)) {
        if (keyOf(*record) == key)
            result = DBError::NoError;
        else
            noteRead(reader);
    }
    if (reader.hasFailed())
        result = DBError::ReadError;
    if (result != DBError::NoError)
        record->clear();
    return device->seek(before) ? result : DBError::SeekError;
}

DBError SDBTextPrivate::scrambleKey(const QString &key)
{
    const std::optional<qint64> position = keys.position(key);
    if (!position)
        return DBError::RecNotFound;
    LineReader lines(hasOpenDevice() ? device.data() : nullptr, *position,
                     LineReader::kRecordBytes);
    QByteArrayView bytes;
    if (!lines.next(&bytes))
        return DBError::UnknownError;
    const std::optional<FieldLine> line = parseFieldLine(bytes);
    if (!line || line->name != head.key || line->value != key)
        return DBError::UnknownError;
    const QString text = QString::fromUtf8(bytes).trimmed();
    // Bytes that were no UTF-8 have become longer, and must not reach into the next line.
    const QByteArray scrambled =
        scrambledLine(text, scramble).toUtf8().left(bytes.trimmed().size());
    if (!device->seek(*position) || !writeAll(device, scrambled))
        return DBError::WriteError;
    keys.remove(key);
    return DBError::NoError;
}

QString SDBTextPrivate::keyOf(const SDBRecord &record) const
{
    return record.field(head.key).toString(true, head.culture);
}

// Empty when there is no greater number.
QString SDBTextPrivate::nextUniqueKey()
{
    if (uniqueCounter == std::numeric_limits<qint64>::max())
        return QString();
    return SConvert::toString(QVariant(++uniqueCounter), u"D16"_s, head.culture);
}

void SDBTextPrivate::addKey(const QString &key, qint64 position)
{
    if (keys.add(key, position))
        noteUniqueKey(key);
}

void SDBTextPrivate::noteUniqueKey(const QString &key)
{
    if (head.key != SDBRecord::uniqueIncKey())
        return;
    bool isNumber = false;
    const qint64 number = key.toLongLong(&isNumber);
    if (isNumber && number > uniqueCounter)
        uniqueCounter = number;
}

// A second record of a key is found once the first has been removed.
void SDBTextPrivate::noteRead(const RecordReader &reader)
{
    addKey(reader.key(), reader.position());
}

void SDBTextPrivate::clearIndexes()
{
    keys.clear();
    fields.clear(head.key);
}

DBError SDBTextPrivate::createIndex(SCrc32 *crc)
{
    hasIndex = false;
    if (!hasOpenDevice())
        return DBError::SeekError;
    const qint64 before = device->pos();
    if (!device->seek(0))
        return DBError::SeekError;
    clearIndexes();
    uniqueCounter = 0;
    KeyLineScanner scanner(device, head.key, 0);
    scanner.lines().setCrc(crc);
    while (const std::optional<KeyLine> line = scanner.next()) {
        if (line->field.isDeletedKey())
            continue;
        QString key = line->field.value.toString();
        noteUniqueKey(key);
        keys.load(std::move(key), line->position);
    }
    keys.finishLoading();
    if (scanner.hasFailed())
        return DBError::ReadError;
    hasIndex = true;
    return device->seek(before) ? DBError::NoError : DBError::SeekError;
}

bool SDBTextPrivate::loadIndex()
{
    const QString name = companionFile(device, kIndexSuffix);
    if (name.isEmpty())
        return false;
    clearIndexes();
    uniqueCounter = 0;
    QFile file(name);
    return file.open(QIODevice::ReadOnly) && readIndex(&file);
}

bool SDBTextPrivate::readIndex(QIODevice *file)
{
    IndexReader reader(file);
    if (!reader.readMagic()) {
        qDebug() << "SDBText::indexLoad: the file is not a valid index!";
        return false;
    }
    const std::optional<QByteArray> stored = reader.readArray();
    const qint32 count = reader.readCount().value_or(0);
    // Without keys in it, the text is read for its checksum and for its keys in one go.
    const QByteArray hash = count != 0 ? deviceHash() : hashCreatingIndex();
    if (hash.isEmpty()) {
        qDebug() << "SDBText::indexLoad: unable to calculate hash!";
    } else if (stored != hash) {
        qDebug() << "SDBText::indexLoad: hash does not match!";
    } else if (count == 0) {
        qDebug() << "SDBText::indexLoad: reindexing due to empty index (don't worry)";
    } else {
        const auto add = [this](const QString &key, qint64 position) { addKey(key, position); };
        hasIndex = reader.readKeys(count, add) && reader.readFieldIndexes(&fields);
    }
    return hasIndex;
}

void SDBTextPrivate::saveIndex()
{
    const QString name = companionFile(device, kIndexSuffix);
    if (hasIndex && !writeIndexFile() && !name.isEmpty())
        QFile::remove(name);
    hasIndex = false;
    clearIndexes();
}

bool SDBTextPrivate::writeIndexFile()
{
    const QString name = companionFile(device, kIndexSuffix);
    if (name.isEmpty() || keys.isEmpty())
        return false;
    const QByteArray hash = deviceHash();
    QBuffer buffer;
    if (hash.isEmpty() || !buffer.open(QIODevice::ReadWrite) ||
        !writeIndex(&buffer, hash, keys, fields) || !buffer.seek(0)) {
        qDebug() << "SDBText::indexSave: unable to calculate hash!";
        return false;
    }
    QFile file(name);
    if (SFileHelper::copyDevice(&file, &buffer, kCopyPieceBytes))
        return true;
    qDebug() << "SDBText::indexSave: unable to write the index!";
    return false;
}

QByteArray SDBTextPrivate::deviceHash()
{
    if (!device)
        return QByteArray();
    const bool wasOpen = device->isOpen();
    if (!wasOpen && !device->open(QIODevice::ReadOnly))
        return QByteArray();
    const qint64 before = device->pos();
    bool ok = device->seek(0);
    const quint32 crc = ok ? SCrc32::hash(device, &ok) : 0;
    ok = device->seek(before) && ok;
    if (!wasOpen)
        closeDevice(device);
    return ok ? QByteArray::number(crc, 16) : QByteArray();
}

QByteArray SDBTextPrivate::hashCreatingIndex()
{
    SCrc32 crc;
    if (createIndex(&crc) != DBError::NoError)
        return QByteArray();
    return QByteArray::number(crc.value(), 16);
}

bool SDBTextPrivate::buildStaleFieldIndexes()
{
    const QList<QString> names = fields.staleNames(head.key);
    if (names.isEmpty() || !hasOpenDevice())
        return false;
    const qint64 before = device->pos();
    QHash<QString, FieldIndexes::Map> maps;
    for (const QString &name : names)
        maps.insert(name, {});
    RecordReader reader(device, head.key, 0);
    SDBRecord record;
    while (reader.next(&record)) {
        noteRead(reader);
        for (auto map = maps.begin(); map != maps.end(); ++map)
            FieldIndexes::insertEntry(&*map, map.key(), record, head.key, head.culture);
    }
    for (auto map = maps.begin(); map != maps.end(); ++map)
        fields.set(map.key(), *map);
    return device->seek(before);
}

} // namespace Talverine
