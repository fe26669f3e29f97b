// SPDX-License-Identifier: MIT
#include "keyindex_p.h"

#include "keyorder_p.h"

#include <algorithm>
#include <limits>
#include <utility>

namespace Talverine {

namespace {

constexpr size_t kLeafEntries = 256;

bool isBelow(const KeyIndex::Entry &entry, const QString &key)
{
    return entry.key < key;
}

} // namespace

void KeyIndex::clear()
{
    m_leaves = {};
    m_count = 0;
    m_isSorted = true;
}

std::optional<qint64> KeyIndex::position(const QString &key) const
{
    const std::optional<Place> place = find(key);
    if (!place)
        return std::nullopt;
    return m_leaves[place->leaf][place->entry].position;
}

bool KeyIndex::add(const QString &key, qint64 position)
{
    // A key that search can't be asked for would stand in the way of every walk.
    if (key.isEmpty() || m_count == std::numeric_limits<int>::max())
        return false;
    Place place = lowerBound(key);
    if (isAt(place, key))
        return false;
    if (place.leaf == m_leaves.size()) {
        if (m_leaves.empty())
            m_leaves.emplace_back();
        place = {m_leaves.size() - 1, m_leaves.back().size()};
    }
    Leaf &leaf = m_leaves[place.leaf];
    leaf.insert(leaf.begin() + static_cast<std::ptrdiff_t>(place.entry), Entry{key, position});
    ++m_count;
    if (leaf.size() > kLeafEntries)
        split(place.leaf);
    return true;
}

bool KeyIndex::remove(const QString &key)
{
    const std::optional<Place> place = find(key);
    if (!place)
        return false;
    Leaf &leaf = m_leaves[place->leaf];
    leaf.erase(leaf.begin() + static_cast<std::ptrdiff_t>(place->entry));
    if (leaf.empty())
        m_leaves.erase(m_leaves.begin() + static_cast<std::ptrdiff_t>(place->leaf));
    --m_count;
    return true;
}

void KeyIndex::load(QString key, qint64 position)
{
    if (key.isEmpty() || m_count == std::numeric_limits<int>::max())
        return;
    m_isSorted = m_isSorted && (m_count == 0 || m_leaves.back().back().key < key);
    append({std::move(key), position});
}

void KeyIndex::finishLoading()
{
    if (m_isSorted)
        return;
    const std::vector<quint32> order = loadedOrder();
    std::vector<Leaf> loaded = std::exchange(m_leaves, {});
    m_count = 0;
    m_isSorted = true;
    for (const quint32 index : order) {
        Entry &entry = loaded[index / kLeafEntries][index % kLeafEntries];
        if (m_count == 0 || m_leaves.back().back().key != entry.key)
            append(std::move(entry));
    }
}

QString KeyIndex::at(qsizetype index) const
{
    if (index < 0)
        return QString();
    auto left = static_cast<size_t>(index);
    for (const Leaf &leaf : m_leaves) {
        if (left < leaf.size())
            return leaf[left].key;
        left -= leaf.size();
    }
    return QString();
}

QString KeyIndex::first() const
{
    return m_leaves.empty() ? QString() : m_leaves.front().front().key;
}

QString KeyIndex::last() const
{
    return m_leaves.empty() ? QString() : m_leaves.back().back().key;
}

QString KeyIndex::above(const QString &key) const
{
    Place place = lowerBound(key);
    if (isAt(place, key) && ++place.entry == m_leaves[place.leaf].size())
        place = {place.leaf + 1, 0};
    return place.leaf < m_leaves.size() ? m_leaves[place.leaf][place.entry].key : QString();
}

QString KeyIndex::below(const QString &key) const
{
    const Place place = lowerBound(key);
    if (place.entry > 0)
        return m_leaves[place.leaf][place.entry - 1].key;
    return place.leaf > 0 ? m_leaves[place.leaf - 1].back().key : QString();
}

// The first entry that isn't below the key; behind the last leaf when all are.
KeyIndex::Place KeyIndex::lowerBound(const QString &key) const
{
    const auto leaf = std::lower_bound(
        m_leaves.begin(), m_leaves.end(), key,
        [](const Leaf &candidate, const QString &k) { return isBelow(candidate.back(), k); });
    const auto leafIndex = static_cast<size_t>(leaf - m_leaves.begin());
    if (leaf == m_leaves.end())
        return {leafIndex, 0};
    const auto entry = std::lower_bound(leaf->begin(), leaf->end(), key, isBelow);
    return {leafIndex, static_cast<size_t>(entry - leaf->begin())};
}

std::optional<KeyIndex::Place> KeyIndex::find(const QString &key) const
{
    const Place place = lowerBound(key);
    if (!isAt(place, key))
        return std::nullopt;
    return place;
}

bool KeyIndex::isAt(const Place &place, const QString &key) const
{
    return place.leaf < m_leaves.size() && m_leaves[place.leaf][place.entry].key == key;
}

void KeyIndex::append(Entry &&entry)
{
    if (m_leaves.empty() || m_leaves.back().size() == kLeafEntries) {
        m_leaves.emplace_back();
        m_leaves.back().reserve(kLeafEntries);
    }
    m_leaves.back().push_back(std::move(entry));
    ++m_count;
}

std::vector<quint32> KeyIndex::loadedOrder() const
{
    std::vector<QStringView> keys;
    keys.reserve(static_cast<size_t>(m_count));
    forEach([&keys](const Entry &entry) {
        keys.emplace_back(entry.key);
        return true;
    });
    return keyOrder(keys);
}

// Behind ascending keys, as unique ones are, the left leaf stays full.
void KeyIndex::split(size_t leaf)
{
    const bool isLast = leaf + 1 == m_leaves.size();
    const auto keep = static_cast<std::ptrdiff_t>(isLast ? kLeafEntries : kLeafEntries / 2);
    Leaf &left = m_leaves[leaf];
    Leaf right(std::make_move_iterator(left.begin() + keep), std::make_move_iterator(left.end()));
    left.resize(static_cast<size_t>(keep));
    m_leaves.insert(m_leaves.begin() + static_cast<std::ptrdiff_t>(leaf) + 1, std::move(right));
}

} // namespace Talverine
