// SPDX-License-Identifier: MIT
#include "blockcounter.h"

#include <algorithm>

namespace Brix {

namespace {

constexpr int kLengthBytes = 4;

} // namespace

void BlockCounter::add(QByteArrayView bytes)
{
    while (!bytes.isEmpty()) {
        if (m_left == 0) {
            addLengthByte(bytes.front());
            bytes = bytes.sliced(1);
            continue;
        }
        const qsizetype count = std::min<qsizetype>(m_left, bytes.size());
        m_left -= count;
        bytes = bytes.sliced(count);
    }
}

void BlockCounter::addLengthByte(char byte)
{
    m_length = m_length << 8 | static_cast<uchar>(byte);
    if (++m_lengthBytes < kLengthBytes)
        return;
    m_left = m_length;
    m_blocks += m_length > 0;
    m_length = 0;
    m_lengthBytes = 0;
}

} // namespace Brix
