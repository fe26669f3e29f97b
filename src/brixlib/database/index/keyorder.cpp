// SPDX-License-Identifier: MIT
#include "keyorder_p.h"

#include <algorithm>

namespace Talverine {

namespace {

using Keys = std::vector<QStringView>;

// What most comparisons are decided by without a look at the key, which lies anywhere in memory.
struct Ranked
{
    quint64 rank;
    quint32 index;
};

// What all keys have alike.
struct Alike
{
    qsizetype length = 0; // of the beginning that is the same
    bool isLatin1 = true;
};

Alike alikeIn(const Keys &keys)
{
    const QStringView first = keys.front();
    Alike alike{first.size(), true};
    char16_t bits = 0;
    for (const QStringView key : keys) {
        const qsizetype length = std::min(alike.length, key.size());
        alike.length =
            std::mismatch(first.begin(), first.begin() + length, key.begin()).first - first.begin();
        for (const QChar unit : key)
            bits |= unit.unicode();
    }
    alike.isLatin1 = bits < 0x100;
    return alike;
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

std::vector<Ranked> ranked(const Keys &keys)
{
    const Alike alike = alikeIn(keys);
    std::vector<Ranked> result;
    result.reserve(keys.size());
    for (const QStringView key : keys) {
        const auto index = static_cast<quint32>(result.size());
        result.push_back({rankOf(key.sliced(alike.length), alike.isLatin1 ? 8 : 16), index});
    }
    return result;
}

} // namespace

std::vector<quint32> keyOrder(const Keys &keys)
{
    if (keys.empty())
        return {};
    std::vector<Ranked> sorted = ranked(keys);
    std::sort(sorted.begin(), sorted.end(), [&keys](const Ranked &a, const Ranked &b) {
        if (a.rank != b.rank)
            return a.rank < b.rank;
        const int difference = keys[a.index].compare(keys[b.index]);
        return difference != 0 ? difference < 0 : a.index < b.index;
    });
    std::vector<quint32> order;
    order.reserve(sorted.size());
    for (const Ranked &entry : sorted)
        order.push_back(entry.index);
    return order;
}

} // namespace Talverine
