// SPDX-License-Identifier: MIT
#pragma once

#include <shared/seededrandom.h>

#include <QtCore/QByteArray>

/*!
 * Kinds of data that compressors meet, in any size.
 */
namespace Samples {

//! Every pair of neighbours is a new one for 32,768 bytes: there is the least to find.
inline QByteArray differentPairs(qsizetype size)
{
    QByteArray bytes;
    for (int step = 1; bytes.size() < size; ++step) {
        for (int count = 0; count < 256 && bytes.size() < size; ++count)
            bytes += static_cast<char>(count * (2 * step - 1));
    }
    return bytes;
}

//! Runs of equal bytes, most of them short, between bytes that are not.
inline QByteArray runs(SeededRandom *random, qsizetype size)
{
    QByteArray bytes;
    while (bytes.size() < size) {
        if (random->chance(50))
            bytes += random->bytes(random->between(1, 40));
        else
            bytes += QByteArray(random->between(1, random->chance(10) ? 700 : 12),
                                static_cast<char>(random->between(0, 3)));
    }
    bytes.truncate(size);
    return bytes;
}

//! Words that return.
inline QByteArray text(SeededRandom *random, qsizetype size)
{
    QByteArrayList words;
    for (int i = 0; i < 200; ++i) {
        QByteArray word;
        for (qint64 letters = random->between(1, 9); letters > 0; --letters)
            word += static_cast<char>('a' + random->between(0, 25));
        words += word;
    }
    QByteArray bytes;
    while (bytes.size() < size)
        bytes += words.at(random->between(0, random->chance(70) ? 20 : 199)) + ' ';
    bytes.truncate(size);
    return bytes;
}

} // namespace Samples
