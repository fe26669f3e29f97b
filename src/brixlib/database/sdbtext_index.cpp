// SPDX-License-Identifier: MIT
// Finding records by the texts of their fields.
#include <brixlib/database/sdbtext.h>

#include "sdbtext_p.h"

namespace Talverine {

bool SDBText::addFieldIndex(const QString &name)
{
    const QMutexLocker guard(&d->mutex);
    if (!d->mayRead())
        return returnBool(DBError::AuthError);
    if (name.isEmpty())
        return returnBool(DBError::FieldIndexError);
    if (!d->fields.contains(name))
        d->fields.add(name);
    return returnBool(DBError::NoError);
}

bool SDBText::delFieldIndex(const QString &name)
{
    const QMutexLocker guard(&d->mutex);
    if (!d->mayRead())
        return returnBool(DBError::AuthError);
    if (name.isEmpty())
        return returnBool(DBError::FieldIndexError);
    d->fields.remove(name);
    return returnBool(DBError::NoError);
}

bool SDBText::isFieldIndexed(const QString &name)
{
    const QMutexLocker guard(&d->mutex);
    if (!d->mayRead())
        return returnBool(DBError::AuthError);
    if (name.isEmpty())
        return returnBool(DBError::FieldIndexError);
    d->error = DBError::NoError;
    return d->fields.contains(name);
}

bool SDBText::searchField(const SDBField &field, QList<SDBRecord> &records)
{
    const QMutexLocker guard(&d->mutex);
    if (!followFile())
        return false;
    if (!d->mayRead())
        return returnBool(DBError::AuthError);
    if (field.isEmpty() || !d->fields.contains(field.key()))
        return returnBool(DBError::FieldIndexError);
    const DBError prepared = d->prepareFieldIndex(field.key());
    if (prepared != DBError::NoError) {
        records.clear();
        return returnBool(prepared);
    }
    QList<SDBRecord> found;
    DBError failure = DBError::RecNotFound;
    const QString text = field.toString(true, d->head.culture);
    SDBRecord record;
    for (const QString &key : d->fields.map(field.key()).values(text)) {
        if (value(key, record))
            found.append(record);
        else if (d->error != DBError::RecNotFound)
            failure = d->error;
    }
    records = found;
    // What value() failed with has been logged.
    d->error = records.isEmpty() ? failure : DBError::NoError;
    return !records.isEmpty();
}

QList<SDBField> SDBText::values(const QString &name)
{
    const QMutexLocker guard(&d->mutex);
    QList<SDBField> list;
    if (!followFile())
        return list;
    if (!d->mayRead()) {
        d->error = DBError::AuthError;
        return list;
    }
    d->error = DBError::NoError;
    if (name.isEmpty()) {
        d->keys.forEach([&](const KeyIndex::Entry &entry) {
            list.append(SDBField(d->head.key, entry.key));
            return true;
        });
        return list;
    }
    if (!d->fields.contains(name))
        d->fields.add(name);
    d->error = d->prepareFieldIndex(name);
    if (d->error != DBError::NoError)
        return list;
    for (const QString &text : d->fields.map(name).uniqueKeys())
        list.append(SDBField(name, text));
    return list;
}

QList<QString> SDBText::fieldsIndexed() const
{
    const QMutexLocker guard(&d->mutex);
    return d->fields.names();
}

bool SDBText::reindex()
{
    const QMutexLocker guard(&d->mutex);
    if (!followFile())
        return false;
    if (!d->mayRead())
        return returnBool(DBError::AuthError);
    d->fields.clear(d->head.key);
    const bool result = returnBool(d->createIndex());
    Q_EMIT databaseReindexed(result);
    return result;
}

} // namespace Talverine
