// SPDX-License-Identifier: MIT
#include <brixlib/database/keyorder_p.h>

#include <algorithm>
#include <numeric>

namespace Talverine {

namespace {

using Entries = std::vector<KeyIndex::Entry>;

// What most comparisons are decided by without a look at the key, which lies anywhere in memory.
struct Ranked
{
    quint64 rank;
    quint32 index;
};

// The units that all keys have in common at their beginning.
qsizetype commonLength(const Entries &entries)
{
    const QStringView first = entries.front().key;
    qsizetype common = first.size();
    for (const KeyIndex::Entry &entry : entries) {
        const QStringView key = entry.key;
        const auto end =
            std::mismatch(first.begin(), first.begin() + std::min(common, key.size()), key.begin());
        common = end.first - first.begin();
    }
    return common;
}

bool isLatin1(const Entries &entries)
{
    return std::all_of(entries.begin(), entries.end(), [](const KeyIndex::Entry &entry) {
        return std::all_of(entry.key.begin(), entry.key.end(),
                           [](QChar unit) { return unit.unicode() < 0x100; });
    });
}

// As many units as there is room for, the first in the highest bits. A missing unit counts as 0,
// so a rank never contradicts the order of the keys.
quint64 rankOf(QStringView key, int bitsOfUnit)
{
    quint64 rank = 0;
    for (int i = 0; i < 64 / bitsOfUnit; ++i)
        rank = rank << bitsOfUnit | (i < key.size() ? key[i].unicode() : 0);
    return rank;
}

bool isSorted(const Entries &entries)
{
    return std::is_sorted(entries.begin(), entries.end(),
                          [](const auto &a, const auto &b) { return a.key < b.key; });
}

std::vector<Ranked> ranked(const Entries &entries)
{
    const qsizetype common = commonLength(entries);
    const int bitsOfUnit = isLatin1(entries) ? 8 : 16;
    std::vector<Ranked> result;
    result.reserve(entries.size());
    for (const KeyIndex::Entry &entry : entries) {
        const auto index = static_cast<quint32>(result.size());
        result.push_back({rankOf(QStringView(entry.key).sliced(common), bitsOfUnit), index});
    }
    return result;
}

} // namespace

std::vector<quint32> keyOrder(const Entries &entries)
{
    std::vector<quint32> order(entries.size());
    std::iota(order.begin(), order.end(), 0);
    if (isSorted(entries))
        return order;
    std::vector<Ranked> sorted = ranked(entries);
    std::sort(sorted.begin(), sorted.end(), [&entries](const Ranked &a, const Ranked &b) {
        if (a.rank != b.rank)
            return a.rank < b.rank;
        const int difference = entries[a.index].key.compare(entries[b.index].key);
        return difference != 0 ? difference < 0 : a.index < b.index;
    });
    std::transform(sorted.begin(), sorted.end(), order.begin(),
                   [](const Ranked &entry) { return entry.index; });
    return order;
}

} // namespace Talverine
