// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QList>
#include <QtCore/QString>

#include <optional>
#include <vector>

namespace Talverine {

/*!
 * The keys of a database in the order of QString, each with the offset of its key line.
 *
 * Sorted leaves of some hundred keys take two thirds of the memory of a tree with a node for each
 * key, and are built from a file's keys in a tenth of its time; what a change moves is one leaf.
 */
class KeyIndex
{
public:
    struct Entry
    {
        QString key;
        qint64 position = 0;
    };

    int count() const { return m_count; }
    bool isEmpty() const { return m_count == 0; }
    void clear();

    bool contains(const QString &key) const { return find(key).has_value(); }
    std::optional<qint64> position(const QString &key) const;

    //! False, and nothing changes, for a key that is there. An empty key is none.
    bool add(const QString &key, qint64 position);
    bool remove(const QString &key);
    /*!
     * Takes keys in any order, of which the first of each counts, into an empty index. Nothing else
     * is called until finishLoading() has sorted them.
     */
    void load(QString key, qint64 position);
    void finishLoading();

    //! The key at a position in the order; null when there is none.
    QString at(qsizetype index) const;
    //! The first and the last key, and the neighbours of a key that may be missing; null at an end.
    QString first() const;
    QString last() const;
    QString above(const QString &key) const;
    QString below(const QString &key) const;

    //! Calls \a use with each entry in order, until it gives false.
    template<typename Use>
    bool forEach(Use use) const
    {
        for (const Leaf &leaf : m_leaves) {
            for (const Entry &entry : leaf) {
                if (!use(entry))
                    return false;
            }
        }
        return true;
    }

private:
    using Leaf = std::vector<Entry>;
    //! Where an entry is, or would be.
    struct Place
    {
        size_t leaf;
        size_t entry;
    };

    Place lowerBound(const QString &key) const;
    std::optional<Place> find(const QString &key) const;
    bool isAt(const Place &place, const QString &key) const;
    void split(size_t leaf);
    void append(Entry &&entry);
    std::vector<quint32> loadedOrder() const;

    std::vector<Leaf> m_leaves; // none empty
    int m_count = 0;
    bool m_isSorted = true;
};

} // namespace Talverine
