// SPDX-License-Identifier: MIT
#include "lzwencoder_p.h"

#include <algorithm>

namespace Talverine::Compression {

namespace {

// Any numbers serve: they decide where a string is looked for, not what is written.
constexpr std::array<quint32, 256> makeRandomWords()
{
    std::array<quint32, 256> words{};
    quint32 state = 0x9E3779B9U;
    for (quint32 &word : words) {
        state ^= state << 13;
        state ^= state >> 17;
        state ^= state << 5;
        word = state;
    }
    return words;
}

constexpr std::array<quint32, 256> kRandomWords = makeRandomWords();

} // namespace

inline LzwEncoder::Match LzwEncoder::oneByte(uchar byte)
{
    return {byte, extendedHash(0, byte)};
}

inline quint32 LzwEncoder::extendedHash(quint32 hash, uchar byte)
{
    return 3 * (kRandomWords[byte] ^ hash);
}

inline quint32 LzwEncoder::slotKey(quint32 code, uchar byte)
{
    return code * (256 * kLzwTableSize) | byte * kLzwTableSize;
}

// There is always an empty slot to end at: the table is cleared long before all are taken.
inline LzwEncoder::Slot LzwEncoder::findSlot(quint32 key, quint32 hash) const
{
    quint32 place = hash >> (32 - kSlotBits);
    quint32 code = m_slots[place] ^ key;
    while (code >= kLzwTableSize && code != key) {
        place = (place + 1) % kSlots;
        code = m_slots[place] ^ key;
    }
    return {place, code};
}

// Writes the code of a string that, with a byte more, has just been added under m_nextCode.
inline bool LzwEncoder::writeString(QIODevice *device, quint32 code)
{
    const bool written = m_writer.writeCode(device, code, m_width);
    ++m_nextCode;
    return (m_nextCode != m_nextChange || widenOrClear(device)) && written;
}

void LzwEncoder::begin()
{
    m_isEmpty = true;
    m_writer.begin();
    initWriteDictionary();
    // An empty buffer takes it without the device.
    static_cast<void>(m_writer.writeCode(nullptr, kLzwClearCode, kLzwNarrowest));
}

bool LzwEncoder::add(QIODevice *device, const char *data, qint64 size)
{
    const auto *pos = reinterpret_cast<const uchar *>(data);
    const uchar *const end = pos + size;
    if (m_isEmpty && pos != end) {
        m_match = oneByte(*pos);
        m_isEmpty = false;
        ++pos;
    }

    Match match = m_match;
    bool written = true;
    while (pos != end && written) {
        if (match.code < kLzwClearCode) {
            const uchar byte = *pos;
            ++pos;
            quint16 *const code = &m_pairs[match.code << 8 | byte];
            if (*code / kLzwTableSize != m_table) {
                *code = static_cast<quint16>(m_table * kLzwTableSize | m_nextCode);
                written = writeString(device, match.code);
                match = oneByte(byte);
                continue;
            }
            match = {*code % kLzwTableSize, extendedHash(match.hash, byte)};
        }
        while (pos != end) {
            const uchar byte = *pos;
            ++pos;
            const quint32 hash = extendedHash(match.hash, byte);
            const quint32 key = slotKey(match.code, byte);
            const Slot slot = findSlot(key, hash);
            if (slot.code >= kLzwTableSize) {
                m_slots[slot.place] = key | m_nextCode;
                written = writeString(device, match.code);
                match = oneByte(byte);
                break;
            }
            match = {slot.code, hash};
        }
    }
    m_match = match;
    return written;
}

bool LzwEncoder::end(QIODevice *device)
{
    bool written = m_writer.writeCode(device, m_match.code, m_width);
    // The decoder adds a string for this code too, and reads the next one accordingly.
    if (m_nextCode == (1U << m_width) - 1)
        ++m_width;
    written = m_writer.writeCode(device, kLzwEndCode, m_width) && written;
    return m_writer.end(device) && written;
}

void LzwEncoder::initWriteDictionary()
{
    m_table = (m_table + 1) % kTables;
    if (m_table == 0) {
        m_pairs.fill(0);
        m_table = 1;
    }
    m_slots.fill(0);
    m_nextCode = kLzwFirstCode;
    m_width = kLzwNarrowest;
    m_nextChange = 1U << m_width;
}

bool LzwEncoder::widenOrClear(QIODevice *device)
{
    if (m_nextCode == kClearAt) {
        const bool cleared = m_writer.writeCode(device, kLzwClearCode, m_width);
        initWriteDictionary();
        return cleared;
    }
    ++m_width;
    m_nextChange = std::min(1U << m_width, kClearAt);
    return true;
}

} // namespace Talverine::Compression
