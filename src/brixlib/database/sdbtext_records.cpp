// SPDX-License-Identifier: MIT
// Changing records, and walking through them.
#include <brixlib/database/sdbtext.h>

#include "sdbtext_p.h"
#include <brixlib/foundation/outofmemory_p.h>

namespace Talverine {

bool SDBText::insert(const QString &key, const SDBField &field)
{
    const QMutexLocker guard(&d->mutex);
    if (!followFile())
        return false;
    SDBRecord record;
    if (!key.isEmpty()) {
        if (value(key, record)) {
            record.insert(field);
            return replace(record);
        }
        if (d->error != DBError::RecNotFound)
            return false;
    }
    // Under unique keys an empty one will do.
    record.insert(d->head.key, key);
    record.insert(field);
    return insert(record);
}

bool SDBText::insert(const SDBRecord &record)
{
    const QMutexLocker guard(&d->mutex);
    return _insert(record, true);
}

bool SDBText::replace(const SDBRecord &record)
{
    const QMutexLocker guard(&d->mutex);
    return _replace(record, true);
}

bool SDBText::remove(const QString &key)
{
    const QMutexLocker guard(&d->mutex);
    return _remove(key, true);
}

bool SDBText::remove(const SDBRecord &record)
{
    const QMutexLocker guard(&d->mutex);
    return followFile() && _remove(d->keyOf(record), true);
}

bool SDBText::purge()
{
    const QMutexLocker guard(&d->mutex);
    if (const DBError fault = d->prepareReplacing(); fault != DBError::NoError)
        return returnBool(fault);
    const bool isFile = d->hasOpenDevice() && d->isPlainFile();
    const SDBText copy(*this);
    if (copy.d->error != DBError::NoError) {
        d->error = copy.d->error;
        return false;
    }
    return isFile ? purgeFile(copy) : purgeInPlace(copy);
}

bool SDBText::purgeFile(const SDBText &copy)
{
    if (!returnBool(d->rewriteSorted(copy.d.get())))
        return false;
    Q_EMIT databaseModified();
    Q_EMIT databasePurged();
    return true;
}

bool SDBText::purgeInPlace(const SDBText &copy)
{
    if (!clear())
        return false;
    DBError written = DBError::NoError;
    const DBError read = copy.d->forEachRecord([&](const QString &, const SDBRecord &record) {
        written = d->append(record, true);
        return written == DBError::NoError;
    });
    if (written != DBError::NoError || read != DBError::NoError)
        return returnBool(written != DBError::NoError ? written : read);
    Q_EMIT databasePurged();
    return returnBool(DBError::NoError);
}

bool SDBText::clear()
{
    const QMutexLocker guard(&d->mutex);
    if (const DBError fault = d->prepareReplacing(); fault != DBError::NoError)
        return returnBool(fault);
    if (d->isForeign())
        return returnBool(DBError::KeyIsNull);
    const bool isFile = d->isPlainFile();
    DBError result = d->replaceContent([this](QIODevice *target) {
        return d->head.write(target) ? DBError::NoError : DBError::WriteError;
    });
    // After a part of a head, no record would be found again.
    if (result == DBError::WriteError && !isFile)
        d->closeDevice(d->device);
    if (result != DBError::NoError)
        return returnBool(result);
    d->isHeadFromCopy = false;
    result = d->createIndex();
    Q_EMIT databaseModified();
    return returnBool(result);
}

bool SDBText::contains(const QString &key) const
{
    const QMutexLocker guard(&d->mutex);
    return d->keys.contains(key);
}

bool SDBText::contains(const SDBRecord &record) const
{
    const QMutexLocker guard(&d->mutex);
    return d->keys.contains(d->keyOf(record));
}

bool SDBText::first(SDBRecord &record)
{
    return next(QString(), record);
}

bool SDBText::last(SDBRecord &record)
{
    return previous(QString(), record);
}

bool SDBText::next(const QString &key, SDBRecord &record)
{
    const QMutexLocker guard(&d->mutex);
    if (!followFile())
        return false;
    QString other;
    if (key.isEmpty())
        other = d->keys.first();
    else if (d->keys.contains(key))
        other = d->keys.above(key);
    return walkTo(other, &record);
}

bool SDBText::previous(const QString &key, SDBRecord &record)
{
    const QMutexLocker guard(&d->mutex);
    if (!followFile())
        return false;
    return walkTo(d->keys.contains(key) ? d->keys.below(key) : d->keys.last(), &record);
}

bool SDBText::value(const QString &key, SDBRecord &record)
{
    const QMutexLocker guard(&d->mutex);
    if (!followFile())
        return false;
    return returnBool(d->mayRead() ? d->search(key, &record) : DBError::AuthError);
}

SDBRecord SDBText::operator[](const QString &key)
{
    SDBRecord record;
    value(key, record);
    return record;
}

SDBIterator SDBText::begin()
{
    SDBRecord record;
    first(record);
    return SDBIterator(*this, record);
}

SDBIterator SDBText::end()
{
    const QMutexLocker guard(&d->mutex);
    SDBRecord record;
    last(record);
    return ++SDBIterator(*this, record);
}

SDBReverseIterator SDBText::rbegin()
{
    SDBRecord record;
    last(record);
    return SDBReverseIterator(*this, record);
}

SDBReverseIterator SDBText::rend()
{
    const QMutexLocker guard(&d->mutex);
    SDBRecord record;
    first(record);
    return ++SDBReverseIterator(*this, record);
}

SDBIterator SDBText::find(int index)
{
    const QMutexLocker guard(&d->mutex);
    static_cast<void>(followFile());
    const QString key = d->keys.at(index);
    SDBRecord record;
    if (!key.isEmpty())
        value(key, record);
    return SDBIterator(*this, record);
}

bool SDBText::_insert(const SDBRecord &record, bool notify)
{
    if (!followFile())
        return false;
    if (!d->mayInsert())
        return returnBool(DBError::AuthError);
    SDBRecord copy(record);
    if (d->head.key == SDBRecord::uniqueIncKey())
        copy.insert(d->head.key, d->nextUniqueKey());
    const QString key = d->keyOf(copy);
    if (key.isEmpty())
        return returnBool(DBError::KeyIsNull);
    if (d->keys.contains(key))
        return returnBool(DBError::RecExist);
    const DBError end = d->seekEnd();
    if (end != DBError::NoError)
        return returnBool(end);
    d->stamp(&copy);
    // What was written of it is marked as removed. The error is that of the operation before.
    if (d->append(copy, false) != DBError::NoError)
        return false;
    finishInsert(copy, notify);
    return true;
}

bool SDBText::_replace(const SDBRecord &record, bool notify)
{
    if (!followFile())
        return false;
    const QString key = d->keyOf(record);
    if (!d->mayWrite() && !d->mayWriteOwn(key))
        return returnBool(DBError::AuthError);
    if (!d->keys.contains(key))
        return returnBool(DBError::RecNotFound);
    SDBRecord copy(record);
    if (d->head.key == SDBRecord::uniqueIncKey())
        copy.insert(d->head.key, d->nextUniqueKey());
    if (d->keyOf(copy).isEmpty())
        return returnBool(DBError::KeyIsNull);
    d->stamp(&copy);
    const DBError replaced = d->replace(key, copy);
    if (replaced != DBError::NoError)
        return returnBool(replaced);
    finishInsert(copy, notify);
    return true;
}

void SDBText::finishInsert(const SDBRecord &record, bool notify)
{
    const bool isIndexed = orOutOfMemory(false, [&] {
        d->fields.insertRecord(record, d->head.key, d->head.culture);
        return true;
    });
    // The indexes are built again when they are used.
    if (!isIndexed)
        d->fields.clear(d->head.key);
    d->error = DBError::NoError;
    if (!notify)
        return;
    Q_EMIT recordInserted(d->keyOf(record));
    Q_EMIT databaseModified();
}

bool SDBText::_remove(const QString &key, bool notify)
{
    if (!followFile())
        return false;
    if (!d->mayWrite() && !d->mayWriteOwn(key))
        return returnBool(DBError::AuthError);
    if (!returnBool(d->scrambleKey(key)))
        return false;
    if (notify) {
        Q_EMIT recordRemoved(key);
        Q_EMIT databaseModified();
    }
    return true;
}

// After a backup, the file is not locked, and another program may have replaced it.
bool SDBText::followFile()
{
    const DBError result = d->followFile();
    return result == DBError::NoError || returnBool(result);
}

// To the record of a key, or to the end where there is none.
bool SDBText::walkTo(const QString &key, SDBRecord *record)
{
    if (!d->mayRead())
        return returnBool(DBError::AuthError);
    record->clear();
    if (!key.isEmpty())
        d->search(key, record);
    return returnBool(record->isEmpty() ? DBError::RecNotFound : DBError::NoError);
}

} // namespace Talverine
