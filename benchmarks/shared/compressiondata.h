// SPDX-License-Identifier: MIT
// Data as the machines have it, the same in each run.
#pragma once

#include <QtCore/QByteArray>

#include <algorithm>
#include <random>
#include <vector>

namespace CompressionData {

inline constexpr qsizetype kMiB = 1024 * 1024;
inline constexpr qsizetype kSliceBytes = 8 * kMiB;
inline constexpr qsizetype kRowBytes = 4096; // of the kind "rows"

using Slices = std::vector<QByteArray>;

inline void addText(QByteArray *data, std::mt19937 &random)
{
    static const std::vector<QByteArray> words{
        "machine ", "ink ",     "layer ", "of ",     "the ",   "print ", "head ",  "is ",
        "ready",    ".\r\n",    "mm, ",   "warning", ": ",     "job ",   "page ",  "done",
        "2026-11-", "T08:15:0", "error ", "nozzle ", "level ", "low ",   "and ",   "to ",
        "drying ",  "lamp ",    "on ",    "off ",    "table ", "speed ", "media ", "width "};
    // Few words are common and many are rare.
    const auto rank = std::min(random() % words.size(), random() % words.size());
    *data += words[rank];
    if (random() % 8 == 0)
        *data += QByteArray::number(random() % 100000);
}

// A row of a picture in one colour plane: runs of even dots between dithered edges.
inline void addRow(QByteArray *data, std::mt19937 &random)
{
    for (qsizetype left = kRowBytes; left > 0;) {
        const auto run = std::min<qsizetype>(left, static_cast<qsizetype>(random() % 400) + 1);
        if (random() % 4 == 0) {
            for (qsizetype i = 0; i < run; ++i)
                *data += static_cast<char>(random() % 8 * 32);
        } else {
            *data += QByteArray(run, static_cast<char>(random() % 4 * 85));
        }
        left -= run;
    }
}

inline void addDisorder(QByteArray *data, std::mt19937 &random)
{
    const quint32 word = static_cast<quint32>(random());
    data->append(reinterpret_cast<const char *>(&word), sizeof word);
}

struct Kind
{
    const char *name;
    void (*add)(QByteArray *, std::mt19937 &);
};

inline constexpr Kind kKinds[] = {{"text", addText}, {"rows", addRow}, {"random", addDisorder}};

//! Slices of kSliceBytes, together at least \a size bytes.
inline Slices makeSlices(const Kind &kind, qsizetype size)
{
    std::mt19937 random(20261120);
    Slices slices;
    for (qsizetype made = 0; made < size; made += kSliceBytes) {
        QByteArray slice;
        slice.reserve(kSliceBytes + 8192);
        while (slice.size() < kSliceBytes)
            kind.add(&slice, random);
        slice.truncate(kSliceBytes);
        slices.push_back(slice);
    }
    return slices;
}

} // namespace CompressionData
