// SPDX-License-Identifier: MIT
#pragma once

#include "lzwcodes_p.h"
#include "lzwcodewriter_p.h"

#include <array>

namespace Talverine::Compression {

/*!
 * Writes LZW streams of TIFF 6.0, one after the other.
 *
 * How the bytes of a stream are spread over the calls of add() does not show in it. The object is
 * some 200 KiB large.
 */
class LzwEncoder final
{
public:
    //! Starts a stream; one that has not been ended is forgotten.
    void begin();
    //! False when \a device did not take something; what follows it in \a data is not encoded.
    [[nodiscard]] bool add(QIODevice *device, const char *data, qint64 size);
    //! Whether the stream has got a byte yet, without which it can't be ended.
    bool isEmpty() const { return m_isEmpty; }
    //! Writes what is left of the stream, and its end.
    [[nodiscard]] bool end(QIODevice *device);

private:
    // The string matched so far.
    struct Match
    {
        quint32 code;
        quint32 hash;
    };

    // Where a string is, or would be: its code is none, of kLzwTableSize or more, if it is not
    // there.
    struct Slot
    {
        quint32 place;
        quint32 code;
    };

    static constexpr int kSlotBits = 14;
    static constexpr quint32 kTables = 1U << (16 - kLzwWidest);
    static constexpr quint32 kSlots = 1U << kSlotBits;
    // The decoder's table is one string behind; it is cleared before that one could fill it up.
    static constexpr quint32 kClearAt = kLzwTableSize - 3;

    static Match oneByte(uchar byte);
    static quint32 extendedHash(quint32 hash, uchar byte);

    void initWriteDictionary();
    static quint32 slotKey(quint32 code, uchar byte);
    Slot findSlot(quint32 key, quint32 hash) const;
    bool writeString(QIODevice *device, quint32 code);
    bool widenOrClear(QIODevice *device);

    // Codes of the strings of two bytes, where most searches end; above their 12 bits the number of
    // the table that they belong to, so that a new one needs no clearing but every 15th time.
    std::array<quint16, 256 * 256> m_pairs{};
    quint32 m_table = 0;
    // The longer strings: the code of all but the last byte, that byte, and the string's own code,
    // from the highest bit on; 0 is an empty slot. Four times as many slots as there can be strings
    // keep those apart that hash alike.
    std::array<quint32, kSlots> m_slots;
    Match m_match{};
    bool m_isEmpty = true;
    quint32 m_nextCode = kLzwFirstCode;
    // The next code at which the width changes, or the table is cleared.
    quint32 m_nextChange = 1U << kLzwNarrowest;
    int m_width = kLzwNarrowest;
    LzwCodeWriter m_writer;
};

} // namespace Talverine::Compression
