// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QtEndian>

#include <array>

class QIODevice;

namespace Talverine::Compression {

//! Packs codes into bytes, the most significant bit first, and writes them to a device in pieces.
class LzwCodeWriter final
{
public:
    //! Forgets what has not been written.
    void begin();
    //! False when bytes had to make room and \a device did not take them; they are lost then, but
    //! \a code is not.
    [[nodiscard]] bool writeCode(QIODevice *device, quint32 code, int width)
    {
        const bool written = m_count <= kFlushAbove || flush(device);
        store(code, width);
        return written;
    }
    //! Writes all, with bits of 0 up to a whole byte.
    [[nodiscard]] bool end(QIODevice *device);

private:
    static constexpr int kBufferBytes = 4096;
    // A code may complete a byte and fill another two.
    static constexpr int kFlushAbove = kBufferBytes - 4;

    void store(quint32 code, int width)
    {
        m_bits |= quint64(code) << (64 - width - m_bitOffset);
        qToBigEndian(m_bits, m_buffer.data() + m_count);
        const int bits = m_bitOffset + width;
        m_count += bits / 8;
        m_bits <<= bits / 8 * 8;
        m_bitOffset = bits % 8;
    }
    bool flush(QIODevice *device);

    // Bits that do not fill a byte yet, from the highest on, and their number.
    quint64 m_bits = 0;
    int m_bitOffset = 0;
    int m_count = 0;
    // A whole word is stored each time, of which less than three bytes stay.
    std::array<char, kBufferBytes + sizeof(quint64)> m_buffer;
};

} // namespace Talverine::Compression
