// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QHash>
#include <QtCore/QList>
#include <QtCore/QMultiMap>
#include <QtCore/QString>

class QLocale;

namespace Talverine {

class SDBRecord;

/*!
 * For each of some fields, which records hold which text.
 *
 * An index is stale when it is empty or holds an entry under the name of the key field; it is then
 * built anew before it is used. The indexes don't follow removals: what they give are the keys of
 * records to look at.
 */
class FieldIndexes
{
public:
    //! From a field's text to the keys of the records that hold it, the latest first.
    using Map = QMultiMap<QString, QString>;

    QList<QString> names() const { return m_maps.keys(); }
    bool contains(const QString &name) const { return m_maps.contains(name); }
    void add(const QString &name);
    void remove(const QString &name) { m_maps.remove(name); }
    void removeAll() { m_maps.clear(); }

    //! Makes all of them stale, by a single entry under \a keyName.
    void clear(const QString &keyName);
    //! Takes an index as it was saved, which may be a stale one.
    void set(const QString &name, const Map &map);
    //! Takes an index that was built from all records.
    void setBuilt(const QString &name, const Map &map);
    Map map(const QString &name) const { return m_maps.value(name).map; }

    bool isStale(const QString &name, const QString &keyName) const;
    //! Whether using the index means to build it first. One that was built and had nothing to hold
    //! is stale too, but would come out no other way.
    bool needsBuild(const QString &name, const QString &keyName) const;
    QList<QString> staleNames(const QString &keyName) const;

    //! Puts a record that was written into the indexes of its fields that aren't stale.
    void insertRecord(const SDBRecord &record, const QString &keyName, const QLocale &culture);
    //! The entry of a record in the index of a field; nothing for a field without a text.
    static void insertEntry(Map *map, const QString &name, const SDBRecord &record,
                            const QString &keyName, const QLocale &culture);

private:
    struct Index
    {
        Map map;
        bool isProvenEmpty = false;
    };

    QHash<QString, Index> m_maps;
};

} // namespace Talverine
