// SPDX-License-Identifier: MIT
#include <brixlib/compression/lzwencoder_p.h>

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
        const uchar byte = *pos;
        ++pos;
        const quint32 hash = extendedHash(match.hash, byte);
        const quint32 key = match.code << 8 | byte;
        if (match.code < kLzwClearCode) {
            quint16 &code = m_pairs[key];
            if (code != 0) {
                match = {code, hash};
                continue;
            }
            code = static_cast<quint16>(m_nextCode);
        } else {
            quint32 *const slot = findSlot(key, hash);
            if (*slot != 0) {
                match = {*slot % kLzwTableSize, hash};
                continue;
            }
            *slot = key * kLzwTableSize | m_nextCode;
        }
        written = writeString(device, match.code);
        match = oneByte(byte);
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

LzwEncoder::Match LzwEncoder::oneByte(uchar byte)
{
    return {byte, extendedHash(0, byte)};
}

quint32 LzwEncoder::extendedHash(quint32 hash, uchar byte)
{
    return 3 * (kRandomWords[byte] ^ hash);
}

void LzwEncoder::initWriteDictionary()
{
    m_pairs.fill(0);
    m_slots.fill(0);
    m_nextCode = kLzwFirstCode;
    m_width = kLzwNarrowest;
}

// The slot of the string, or the empty one where it belongs. There is always one: the table is
// cleared long before the slots are full.
quint32 *LzwEncoder::findSlot(quint32 key, quint32 hash)
{
    quint32 place = hash >> (32 - kSlotBits);
    while (m_slots[place] != 0 && m_slots[place] / kLzwTableSize != key)
        place = (place + 1) % kSlots;
    return &m_slots[place];
}

// Writes the code of a string that, with a byte more, has just been added under m_nextCode.
bool LzwEncoder::writeString(QIODevice *device, quint32 code)
{
    const bool written = m_writer.writeCode(device, code, m_width);
    ++m_nextCode;
    if (m_nextCode == kClearAt) {
        const bool cleared = m_writer.writeCode(device, kLzwClearCode, m_width);
        initWriteDictionary();
        return written && cleared;
    }
    if (m_nextCode == 1U << m_width)
        ++m_width;
    return written;
}

} // namespace Talverine::Compression
