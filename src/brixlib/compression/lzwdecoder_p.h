// SPDX-License-Identifier: MIT
#pragma once

#include "lzwcodereader_p.h"
#include "lzwcodes_p.h"

#include <QtCore/QByteArray>

#include <array>

class QIODevice;

namespace Talverine::Compression {

//! A string of a dictionary: another one and a byte more. 6 bytes.
struct SStringLZW
{
    //! The code of the string without its last byte, kNoPrefix for a string of one byte.
    quint16 prefix = kNoPrefix;
    //! In bytes; 0 is no string.
    quint16 length = 0;
    uchar last = 0;
    uchar first = 0;

    static constexpr quint16 kNoPrefix = 0xFFFF;
};

/*!
 * Reads LZW streams of TIFF 6.0, any number of bytes at a time.
 *
 * What is no such stream gives wrong bytes, or nothing any more; there is no such thing as an
 * error in it.
 *
 * A string can be had in two ways. During a call, most are copied from where they stand in the
 * caller's memory, since each is a former string and the byte behind it. What outlives a call are
 * nodes that share their prefixes, and such strings are written from their last byte backwards.
 */
class LzwDecoder final
{
public:
    LzwDecoder();

    //! Starts a stream; what is left of the last one is forgotten.
    void begin();
    /*!
     * Gives up to \a maxSize bytes and their count; more of \a data may be overwritten. Takes \a
     * compressedSize bytes of \a source, or with 0 those that are needed; none while it holds more
     * than there is room for. -1 when taking fails, or when \a source is null and nothing is held.
     */
    qint64 decode(QIODevice *source, char *data, qint64 maxSize, qint64 compressedSize);
    //! Bytes decoded that the last call had no room for.
    qint64 bytesAvailable() const { return m_overflow.size(); }

private:
    // Instead of a length: the string does not stand in the caller's memory.
    static constexpr quint16 kNoText = 0xFFFF;

    void initReadDictionary();
    qint64 takeOverflow(char *data, qint64 maxSize);
    void decodeTexts();
    template<int Width>
    void decodeTexts();
    bool decodeString();
    bool restart();
    bool put(quint32 code, const SStringLZW &string);
    void readDictionaryAddString(const SStringLZW &string);
    void setText(quint32 code, const char *text);
    void keepStrings();
    bool isFilled(quint32 code) const;
    bool hasText(quint32 code) const { return m_textLengths[code] != kNoText; }
    SStringLZW stringOf(quint32 code) const;
    void write(quint32 code, const SStringLZW &string, char *target) const;

    LzwCodeReader m_reader;
    quint32 m_nextCode = kLzwFirstCode;
    int m_width = kLzwNarrowest;
    quint32 m_previousCode = 0;
    QByteArray m_overflow;

    // The rest of the caller's memory, and the previous string there, null if it is not there.
    char *m_target = nullptr;
    char *m_targetEnd = nullptr;
    const char *m_previousText = nullptr;
    // The first code whose string may stand there.
    quint32 m_firstTextCode = kLzwFirstCode;

    std::array<const char *, kLzwTableSize> m_texts;
    std::array<quint16, kLzwTableSize> m_textLengths;
    std::array<quint16, kLzwTableSize> m_textPrefixes;
    std::array<SStringLZW, kLzwTableSize> m_strings;
};

} // namespace Talverine::Compression
