// SPDX-License-Identifier: MIT
#include "lzwdecoder_p.h"

#include <QtCore/QDebug>
#include <QtCore/QtEndian>

#include <algorithm>
#include <bit>
#include <cstring>

namespace Talverine::Compression {

namespace {

// Strings up to here are copied by moves of a constant size, which cost no call.
constexpr std::size_t kShortString = 32;
constexpr std::size_t kMove = kShortString / 2;
// Codes are taken from words of 64 bits, of which up to 7 belong to a code before.
constexpr int kWordBits = 64 - 7;

// All texts of one byte, with room to read kShortString bytes of each.
constexpr auto kBytes = [] {
    std::array<char, 256 + kShortString> bytes{};
    for (std::size_t byte = 0; byte < 256; ++byte)
        bytes[byte] = static_cast<char>(byte);
    return bytes;
}();

// The string `prefix` of the code `prefixCode` and one more byte.
SStringLZW extended(const SStringLZW &prefix, quint32 prefixCode, uchar last)
{
    if (prefix.length == 0)
        return {SStringLZW::kNoPrefix, 1, last, last};
    return {static_cast<quint16>(prefixCode), static_cast<quint16>(prefix.length + 1), last,
            prefix.first};
}

} // namespace

LzwDecoder::LzwDecoder()
{
    for (quint32 byte = 0; byte < 256; ++byte) {
        m_texts[byte] = kBytes.data() + byte;
        m_textLengths[byte] = 1;
        m_textPrefixes[byte] = SStringLZW::kNoPrefix;
        m_strings[byte] = extended({}, 0, static_cast<uchar>(byte));
    }
    m_textLengths[kLzwClearCode] = kNoText;
    m_textLengths[kLzwEndCode] = kNoText;
}

void LzwDecoder::begin()
{
    m_reader.begin();
    m_previousCode = 0;
    m_overflow.clear();
    initReadDictionary();
}

qint64 LzwDecoder::decode(QIODevice *source, char *data, qint64 maxSize, qint64 compressedSize)
{
    if (maxSize <= 0)
        return 0;
    const qint64 held = takeOverflow(data, maxSize);
    if (!m_overflow.isEmpty())
        return held;
    if (!source)
        return held > 0 ? held : -1;
    m_target = data + held;
    m_targetEnd = data + maxSize;
    m_previousText = nullptr;
    m_firstTextCode = m_nextCode;
    m_reader.open(source, compressedSize, maxSize - held);
    do {
        decodeTexts();
    } while (decodeString());
    keepStrings();
    return m_reader.close() ? m_target - data : -1;
}

// Only the strings below m_nextCode count, so that nothing needs to be emptied.
void LzwDecoder::initReadDictionary()
{
    m_nextCode = kLzwFirstCode;
    m_firstTextCode = kLzwFirstCode;
    m_width = kLzwNarrowest;
}

qint64 LzwDecoder::takeOverflow(char *data, qint64 maxSize)
{
    const qint64 count = std::min<qint64>(m_overflow.size(), maxSize);
    std::copy_n(m_overflow.constData(), count, data);
    m_overflow.remove(0, count);
    return count;
}

// The width as a constant spares the loop a quarter of its steps.
void LzwDecoder::decodeTexts()
{
    switch (m_width) {
    case 9:
        return decodeTexts<9>();
    case 10:
        return decodeTexts<10>();
    case 11:
        return decodeTexts<11>();
    case 12:
        return decodeTexts<12>();
    }
}

/*
 * Does what decodeString() does, in few steps, for as long as the width stays, there is room and
 * the strings stand in the caller's memory, as most do.
 *
 * The string that comes under the next code is entered ahead: it is the previous one, where that
 * stands, and the byte that will follow it there.
 */
template<int Width>
void LzwDecoder::decodeTexts()
{
    constexpr int kCodesOfWord = kWordBits / Width;
    constexpr std::size_t kMask = (1U << Width) - 1;
    const qint64 most = std::min({qint64(kMask) - 1 - m_nextCode, m_reader.bitsAhead() / Width,
                                  (m_targetEnd - m_target) / qint64(kShortString)});
    if (!m_previousText || most <= 0)
        return;

    std::size_t next = m_nextCode;
    std::size_t stop = next + static_cast<std::size_t>(most);
    char *target = m_target;
    m_texts[next] = m_previousText;
    m_textLengths[next] = static_cast<quint16>(target - m_previousText + 1);
    m_textPrefixes[next] = static_cast<quint16>(m_previousCode);

    const char *const window = m_reader.window();
    auto position = static_cast<std::size_t>(m_reader.position());
    quint64 word = 0;
    int codesLeft = 0;
    while (next < stop) {
        if (codesLeft == 0) {
            word = qFromBigEndian<quint64>(window + position / 8) << position % 8;
            position += kCodesOfWord * Width;
            codesLeft = kCodesOfWord;
        }
        word = std::rotl(word, Width);
        const std::size_t code = word & kMask;
        const char *const text = m_texts[code];
        const std::size_t length = m_textLengths[code];
        if (code < next && length <= kShortString) {
            // What is moved beyond the string may lie across the target.
            std::memmove(target, text, kMove);
            if (length > kMove)
                std::memmove(target + kMove, text + kMove, kMove);
        } else {
            const auto room = static_cast<std::size_t>(m_targetEnd - target);
            if (code > next || length == kNoText || length > room)
                break;
            // The string entered ahead lacks its last byte, which is its first one.
            const bool isAhead = code == next;
            std::memcpy(target, text, isAhead ? length - 1 : length);
            if (isAhead)
                target[length - 1] = *text;
            stop = std::min(stop, next + 1 + (room - length) / kShortString);
        }
        --codesLeft;
        ++next;
        m_texts[next] = target;
        m_textLengths[next] = static_cast<quint16>(length + 1);
        m_textPrefixes[next] = static_cast<quint16>(code);
        target += length;
    }

    m_reader.setPosition(static_cast<qint64>(position) - codesLeft * Width);
    m_nextCode = static_cast<quint32>(next);
    m_target = target;
    m_previousText = m_texts[next];
    m_previousCode = m_textPrefixes[next];
}

// False when the caller has got all that it gets.
bool LzwDecoder::decodeString()
{
    const quint32 code = m_reader.read(m_width);
    if (code == kLzwEndCode)
        return false;
    if (code == kLzwClearCode)
        return restart();

    const SStringLZW previous = stringOf(m_previousCode);
    const SStringLZW found = stringOf(code);
    const SStringLZW added =
        extended(previous, m_previousCode, found.length > 0 ? found.first : previous.first);
    const quint32 addedCode = m_nextCode;
    readDictionaryAddString(added);
    if (m_width > kLzwWidest) {
        qDebug() << "STiffLZW::incrementalDecompress: LZW corrupted!";
        return false;
    }
    const char *const previousText = m_previousText;
    if (!put(code, found.length > 0 ? found : added))
        return false;
    // With the first byte of the string just written, the added one stands whole.
    if (previousText && addedCode < m_nextCode)
        setText(addedCode, previousText);
    return true;
}

// The code behind the one that clears the dictionary adds no string to it.
bool LzwDecoder::restart()
{
    initReadDictionary();
    const quint32 code = m_reader.read(m_width);
    if (code == kLzwEndCode) {
        m_previousCode = kLzwEndCode;
        return false;
    }
    return put(code, stringOf(code));
}

// Writes the string of `code`, or holds all of it when there is too little room, which ends a call.
bool LzwDecoder::put(quint32 code, const SStringLZW &string)
{
    m_previousCode = code;
    if (string.length > m_targetEnd - m_target) {
        m_overflow.resize(string.length);
        write(code, string, m_overflow.data());
        return false;
    }
    write(code, string, m_target);
    m_previousText = isFilled(code) ? m_target : nullptr;
    if (m_previousText && !hasText(code))
        setText(code, m_target);
    m_target += string.length;
    return true;
}

void LzwDecoder::write(quint32 code, const SStringLZW &string, char *target) const
{
    if (isFilled(code) && hasText(code)) {
        std::copy_n(m_texts[code], string.length, target);
        return;
    }
    SStringLZW rest = string;
    qint64 left = string.length;
    while (left > 0) {
        --left;
        target[left] = static_cast<char>(rest.last);
        if (rest.prefix == SStringLZW::kNoPrefix)
            return;
        if (hasText(rest.prefix)) {
            std::copy_n(m_texts[rest.prefix], left, target);
            return;
        }
        rest = m_strings[rest.prefix];
    }
}

// A full table takes no more, and the width stays where it is then.
void LzwDecoder::readDictionaryAddString(const SStringLZW &string)
{
    if (m_nextCode == kLzwTableSize)
        return;
    m_strings[m_nextCode] = string;
    m_textLengths[m_nextCode] = kNoText;
    ++m_nextCode;
    if (m_nextCode == (1U << m_width) - 1)
        ++m_width;
}

// Tells where the string stands whole now; its node is there.
void LzwDecoder::setText(quint32 code, const char *text)
{
    m_texts[code] = text;
    m_textLengths[code] = m_strings[code].length;
    m_textPrefixes[code] = m_strings[code].prefix;
    m_firstTextCode = std::min(m_firstTextCode, code);
}

// The caller's memory is gone after the call, so that nodes have to do.
void LzwDecoder::keepStrings()
{
    for (quint32 code = m_firstTextCode; code < m_nextCode; ++code) {
        if (hasText(code)) {
            m_strings[code] = stringOf(code);
            m_textLengths[code] = kNoText;
        }
    }
}

bool LzwDecoder::isFilled(quint32 code) const
{
    return code < kLzwClearCode || (code >= kLzwFirstCode && code < m_nextCode);
}

// No string for a code without one, whichever it is.
SStringLZW LzwDecoder::stringOf(quint32 code) const
{
    if (!isFilled(code))
        return {};
    if (!hasText(code))
        return m_strings[code];
    const char *const text = m_texts[code];
    const quint16 length = m_textLengths[code];
    return {m_textPrefixes[code], length, static_cast<uchar>(text[length - 1]),
            static_cast<uchar>(text[0])};
}

} // namespace Talverine::Compression
