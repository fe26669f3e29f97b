// SPDX-License-Identifier: MIT
// The indexes, and the file that keeps them.
#include "sdbtext_p.h"

#include <brixlib/database/index/indexfile_p.h>
#include <brixlib/database/records/recordreader_p.h>
#include <brixlib/foundation/outofmemory_p.h>

#include <brixrt/scrc32.h>
#include <brixrt/sfilehelper.h>

#include <QtCore/QBuffer>
#include <QtCore/QDebug>
#include <QtCore/QFile>

namespace Talverine {

namespace {

constexpr QLatin1String kIndexSuffix(".idx");

} // namespace

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

bool SDBTextPrivate::loadKey(const KeyLine &line)
{
    return orOutOfMemory(false, [&] {
        QString key = line.field.value.toString();
        noteUniqueKey(key);
        keys.load(std::move(key), line.position);
        return true;
    });
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
    const bool isSettled = settle();
    if (!device->seek(0))
        return DBError::SeekError;
    clearIndexes();
    uniqueCounter = 0;
    KeyLineScanner scanner(device, head.key, 0);
    scanner.lines().setCrc(crc);
    qint64 lastKeyLine = -1;
    while (const std::optional<KeyLine> line = scanner.next()) {
        lastKeyLine = line->position;
        if (!line->field.isDeletedKey() && !loadKey(*line))
            return DBError::ReadError;
    }
    keys.finishLoading();
    if (scanner.hasFailed())
        return DBError::ReadError;
    // What this program is to repair yet must not pass for what a killed one has left.
    if (isSettled && lastKeyLine >= 0) {
        if (const DBError finished = finishReplacement(lastKeyLine); finished != DBError::NoError)
            return finished;
    }
    hasIndex = true;
    return device->seek(before) ? DBError::NoError : DBError::SeekError;
}

bool SDBTextPrivate::loadIndex()
{
    hasIndex = false;
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
    if (hasIndex && !writeIndexFile())
        removeIndexFile();
    hasIndex = false;
    clearIndexes();
}

void SDBTextPrivate::removeIndexFile()
{
    const QString name = companionFile(device, kIndexSuffix);
    if (!name.isEmpty())
        QFile::remove(name);
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
    if (openCompanion(&file, device) && SFileHelper::copyDevice(&file, &buffer, kCopyPieceBytes) &&
        file.flush())
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

DBError SDBTextPrivate::prepareFieldIndex(const QString &name)
{
    if (!hasOpenDevice())
        return DBError::SeekError;
    if (!fields.needsBuild(name, head.key))
        return DBError::NoError;
    return orOutOfMemory(DBError::ReadError, [this] { return buildStaleFieldIndexes(); });
}

DBError SDBTextPrivate::buildStaleFieldIndexes()
{
    const qint64 before = device->pos();
    QHash<QString, FieldIndexes::Map> maps;
    for (const QString &name : fields.staleNames(head.key))
        maps.insert(name, {});
    RecordReader reader(device, head.key, 0);
    if (reader.hasFailed())
        return DBError::SeekError;
    SDBRecord record;
    while (reader.next(&record)) {
        noteRead(reader);
        for (auto map = maps.begin(); map != maps.end(); ++map)
            FieldIndexes::insertEntry(&*map, map.key(), record, head.key, head.culture);
    }
    // What was read till then must not pass for all there is.
    if (reader.hasFailed()) {
        device->seek(before);
        return DBError::ReadError;
    }
    for (auto map = maps.begin(); map != maps.end(); ++map)
        fields.setBuilt(map.key(), *map);
    return device->seek(before) ? DBError::NoError : DBError::SeekError;
}

} // namespace Talverine
