// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QByteArray>

/*!
 * PackBits byte by byte, in the plainest way, to compare the library's with.
 */
namespace PlainPackBits {

inline QByteArray encoded(const QByteArray &data)
{
    QByteArray packets;
    qsizetype pos = 0;
    qsizetype literals = 0;
    const auto flush = [&] {
        packets += static_cast<char>(literals - 1);
        packets += data.mid(pos - literals, literals);
        literals = 0;
    };
    while (pos < data.size()) {
        const bool fourRemain = pos + 3 < data.size();
        int run = 0;
        for (qsizetype at = pos; at + 3 < data.size() && run < 126; ++at, ++run) {
            if (data.at(at) != data.at(at + 1) || data.at(at + 1) != data.at(at + 2))
                break;
        }
        if (literals >= 127 || (fourRemain && run >= 1 && literals >= 1))
            flush();
        if (run >= 1) {
            packets += static_cast<char>(1 - (run + 2));
            packets += data.at(pos);
            pos += run + 2;
        } else {
            ++literals;
            ++pos;
        }
    }
    if (literals > 0)
        flush();
    return packets;
}

//! All bytes of whole packets, and none of a block whose last packet is cut.
inline QByteArray decoded(const QByteArray &packets)
{
    QByteArray data;
    for (qsizetype pos = 0; pos < packets.size();) {
        const int n = static_cast<signed char>(packets.at(pos));
        ++pos;
        if (n == -128)
            continue;
        const qsizetype stored = n < 0 ? 1 : n + 1;
        if (packets.size() - pos < stored)
            return {};
        data += n < 0 ? QByteArray(1 - n, packets.at(pos)) : packets.mid(pos, stored);
        pos += stored;
    }
    return data;
}

} // namespace PlainPackBits
