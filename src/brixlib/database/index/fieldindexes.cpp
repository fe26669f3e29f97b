// SPDX-License-Identifier: MIT
#include "fieldindexes_p.h"

#include <brixlib/database/records/sdbrecord.h>

#include <QtCore/QLocale>

namespace Talverine {

void FieldIndexes::add(const QString &name)
{
    set(name, {});
}

void FieldIndexes::clear(const QString &keyName)
{
    for (Index &index : m_maps)
        index = {Map{{keyName, QString()}}, false};
}

void FieldIndexes::set(const QString &name, const Map &map)
{
    m_maps.insert(name, {map, false});
}

void FieldIndexes::setBuilt(const QString &name, const Map &map)
{
    m_maps.insert(name, {map, map.isEmpty()});
}

bool FieldIndexes::isStale(const QString &name, const QString &keyName) const
{
    const auto found = m_maps.constFind(name);
    return found == m_maps.constEnd() || found->map.isEmpty() || found->map.contains(keyName);
}

bool FieldIndexes::needsBuild(const QString &name, const QString &keyName) const
{
    return isStale(name, keyName) && !m_maps.value(name).isProvenEmpty;
}

QList<QString> FieldIndexes::staleNames(const QString &keyName) const
{
    QList<QString> stale;
    for (auto index = m_maps.keyBegin(); index != m_maps.keyEnd(); ++index) {
        if (isStale(*index, keyName))
            stale.append(*index);
    }
    return stale;
}

void FieldIndexes::insertRecord(const SDBRecord &record, const QString &keyName,
                                const QLocale &culture)
{
    for (auto index = m_maps.begin(); index != m_maps.end(); ++index) {
        if (record.field(index.key()).isEmpty())
            continue;
        index->isProvenEmpty = false;
        if (!isStale(index.key(), keyName))
            insertEntry(&index->map, index.key(), record, keyName, culture);
    }
}

void FieldIndexes::insertEntry(Map *map, const QString &name, const SDBRecord &record,
                               const QString &keyName, const QLocale &culture)
{
    const QString text = record.field(name).toString(true, culture);
    if (!text.isEmpty())
        map->insert(text, record.field(keyName).toString(true, culture));
}

} // namespace Talverine
