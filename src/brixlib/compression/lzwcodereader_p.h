// SPDX-License-Identifier: MIT
#pragma once

#include "lzwcodes_p.h"

#include <array>

class QIODevice;

namespace Talverine::Compression {

/*!
 * Takes codes, the most significant bit first, from the bytes of a device.
 *
 * Between open() and close() it looks ahead in a window of bytes; with close() the device stands
 * behind the last byte that a code has begun in.
 */
class LzwCodeReader final
{
public:
    //! Forgets the bits left of the last byte.
    void begin();
    /*!
     * Codes come from \a device now. With a \a compressedSize so many bytes are taken in all, else
     * those that the codes need. The window is no larger than \a expected plain bytes call for.
     */
    void open(QIODevice *device, qint64 compressedSize, qint64 expected);
    //! False when the device failed before it had given all of the \a compressedSize bytes; an end
    //! is no failure.
    [[nodiscard]] bool close();

    //! The next code, of at most 16 bits. The end code when there are no more bytes.
    quint32 read(int width);

    //! The window: the next bit is bit \a position, counted from the highest one of the first byte;
    //! a word can be loaded from any byte with such a bit. For those who read many codes at once.
    const char *window() const { return m_window.data(); }
    qint64 position() const { return m_position; }
    qint64 bitsAhead() const { return m_size * 8 - m_position; }
    //! To a place within the window.
    void setPosition(qint64 position) { m_position = position; }

private:
    static constexpr qint64 kWindowBytes = 16384;
    static constexpr qint64 kUnlimited = -1;

    bool fillWindow(int width);
    void takeFront();
    void takeBytes(qint64 count);
    void takeRest();

    QIODevice *m_device = nullptr;
    qint64 m_unread = kUnlimited;
    qint64 m_lookAhead = 0;
    bool m_hasFailed = false;
    // The first byte may be one that has been taken, of which bits are left.
    bool m_hasBegunByte = false;
    qint64 m_size = 0;
    qint64 m_position = 0;
    std::array<char, 1 + kWindowBytes + sizeof(quint64)> m_window{};
};

} // namespace Talverine::Compression
