// SPDX-License-Identifier: MIT
#include "lzwcodereader_p.h"

#include "lookahead_p.h"

#include <brixrt/requestsize_p.h>

#include <QtCore/QtEndian>

namespace Talverine::Compression {

void LzwCodeReader::begin()
{
    m_hasBegunByte = false;
    m_size = 0;
    m_position = 0;
}

void LzwCodeReader::open(QIODevice *device, qint64 compressedSize, qint64 expected)
{
    m_device = device;
    m_unread = compressedSize > 0 ? compressedSize : kUnlimited;
    // Bytes that do not get shorter take a code of 12 bits each.
    m_lookAhead = expected < kWindowBytes / 2 ? 2 * expected + 2 : kWindowBytes;
    m_hasFailed = false;
}

bool LzwCodeReader::close()
{
    takeFront();
    takeRest();
    m_device = nullptr;
    return m_unread == kUnlimited || !m_hasFailed;
}

quint32 LzwCodeReader::read(int width)
{
    if (bitsAhead() < width && !fillWindow(width))
        return kLzwEndCode;
    const auto word = qFromBigEndian<quint64>(m_window.data() + m_position / 8);
    const quint64 code = word << m_position % 8 >> (64 - width);
    m_position += width;
    return static_cast<quint32>(code);
}

// False when there is no whole code; what there is instead has been taken.
bool LzwCodeReader::fillWindow(int width)
{
    takeFront();
    const qint64 begun = m_size;
    qint64 least = (m_position + width + 7) / 8 - begun;
    qint64 most = std::max(least, m_lookAhead);
    if (m_unread != kUnlimited) {
        least = std::min(least, m_unread);
        most = std::min(most, m_unread);
    }
    const qint64 count = most > 0 ? peekAhead(m_device, m_window.data() + begun, least, most) : 0;
    m_hasFailed = m_hasFailed || count < 0;
    m_size = begun + std::max(count, qint64(0));
    if (bitsAhead() >= width)
        return true;
    takeBytes(m_size - begun);
    m_size = begun;
    return false;
}

// Takes the bytes that codes have begun in; the window keeps the bits that are left of the last.
void LzwCodeReader::takeFront()
{
    const qint64 front = (m_position + 7) / 8;
    takeBytes(front - (m_hasBegunByte ? 1 : 0));
    m_hasBegunByte = m_position % 8 != 0;
    if (m_hasBegunByte)
        m_window[0] = m_window[static_cast<std::size_t>(front - 1)];
    m_size = m_hasBegunByte ? 1 : 0;
    m_position %= 8;
}

void LzwCodeReader::takeBytes(qint64 count)
{
    if (count <= 0)
        return;
    if (m_unread != kUnlimited)
        m_unread -= count;
    m_device->skip(count);
}

// What no code has got to is lost. It is read all the same, since a failure there counts as well,
// over the window, of which one byte has to stay.
void LzwCodeReader::takeRest()
{
    while (m_unread > 0) {
        const qint64 size = readRequestSize(m_device, std::min(m_unread, kWindowBytes));
        const qint64 count = m_device->read(m_window.data() + 1, size);
        m_hasFailed = m_hasFailed || count < 0;
        if (count <= 0)
            return;
        m_unread -= count;
    }
}

} // namespace Talverine::Compression
