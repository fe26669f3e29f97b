// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QByteArray>
#include <QtCore/QHash>
#include <QtCore/QList>

#include <algorithm>

/*!
 * The LZW of TIFF with whole strings in its tables, in the plainest way, to compare the library's
 * with.
 */
namespace PlainLzw {

struct Code
{
    int value;
    int width;

    bool operator==(const Code &) const = default;
};

//! Codes with the most significant bit first, and bits of 0 up to a whole byte.
inline QByteArray packed(const QList<Code> &codes)
{
    QByteArray bytes;
    int used = 8;
    for (const Code &code : codes) {
        for (int bit = code.width - 1; bit >= 0; --bit) {
            if (used == 8) {
                bytes += '\0';
                used = 0;
            }
            if ((code.value >> bit & 1) != 0)
                bytes.back() = static_cast<char>(bytes.back() | 0x80 >> used);
            ++used;
        }
    }
    return bytes;
}

//! The codes of a stream of \a data, which is not empty.
inline QList<Code> encodedCodes(const QByteArray &data)
{
    QHash<QByteArray, int> table;
    int nextCode = 0;
    int width = 0;
    QList<Code> codes;
    const auto reset = [&] {
        table.clear();
        for (int byte = 0; byte < 256; ++byte)
            table.insert(QByteArray(1, static_cast<char>(byte)), byte);
        nextCode = 258;
        width = 9;
    };
    reset();
    codes.append({256, width});
    QByteArray string;
    for (const char byte : data) {
        const QByteArray longer = string + byte;
        if (table.contains(longer)) {
            string = longer;
            continue;
        }
        codes.append({table.value(string), width});
        table.insert(longer, nextCode);
        ++nextCode;
        if (nextCode == 4093) {
            codes.append({256, width});
            reset();
        } else if (nextCode == 1 << width) {
            ++width;
        }
        string = QByteArray(1, byte);
    }
    codes.append({table.value(string), width});
    if (nextCode == (1 << width) - 1)
        ++width;
    codes.append({257, width});
    return codes;
}

inline QByteArray encoded(const QByteArray &data)
{
    return packed(encodedCodes(data));
}

//! Reads any bytes as a stream, a call at a time as STiffLZW::incrementalDecompress() does.
class Decoder
{
public:
    explicit Decoder(const QByteArray &bytes)
        : m_bytes(bytes)
    {
        for (int byte = 0; byte < 256; ++byte)
            m_table.append(QByteArray(1, static_cast<char>(byte)));
        reset();
    }

    //! How many calls have ended with a table that was full.
    int overflows() const { return m_overflows; }
    //! What the last call had no room for.
    qsizetype held() const { return m_held.size(); }
    //! How many bytes have been taken.
    qsizetype position() const { return m_lost + (m_bit + 7) / 8; }

    //! Takes \a partBytes bytes, or with 0 those that are needed.
    QByteArray decoded(qsizetype maxSize, qsizetype partBytes = 0)
    {
        QByteArray out = m_held.left(maxSize);
        m_held.remove(0, out.size());
        if (!m_held.isEmpty())
            return out;
        m_end = m_bytes.size();
        if (partBytes > 0)
            m_end = std::min(m_end, (m_bit + 7) / 8 + partBytes);
        readCodes(maxSize, &out);
        if (partBytes > 0)
            loseRest();
        return out;
    }

private:
    static constexpr int kFull = 4096;

    // The texts of one byte stay; 256 and 257 are none.
    void reset()
    {
        m_table.resize(256);
        m_table.resize(258);
        m_nextCode = 258;
        m_width = 9;
    }

    void readCodes(qsizetype maxSize, QByteArray *out)
    {
        for (;;) {
            int code = readCode();
            if (code == 257)
                return;
            QByteArray string;
            if (code == 256) {
                reset();
                code = readCode();
                if (code == 257) {
                    m_previous = code;
                    return;
                }
                string = m_table.value(code);
            } else {
                const QByteArray previous = m_table.value(m_previous);
                string = m_table.value(code);
                const bool isFilled = !string.isEmpty();
                const QByteArray &beginning = isFilled ? string : previous;
                const QByteArray added = previous + (beginning.isEmpty() ? '\0' : beginning.at(0));
                if (m_nextCode < kFull)
                    m_table.append(added);
                ++m_nextCode;
                if (m_width < 13 && m_nextCode == (1 << m_width) - 1)
                    ++m_width;
                if (m_width > 12) {
                    ++m_overflows;
                    return;
                }
                if (!isFilled)
                    string = added;
            }
            m_previous = code;
            if (string.size() > maxSize - out->size()) {
                m_held = string;
                return;
            }
            *out += string;
        }
    }

    // A code that is cut takes the bytes that are there, but not the bits before them.
    int readCode()
    {
        if (m_end * 8 - m_bit < m_width) {
            loseRest();
            return 257;
        }
        int code = 0;
        for (int i = 0; i < m_width; ++i, ++m_bit)
            code = code << 1 | (m_bytes.at(m_bit / 8) >> (7 - m_bit % 8) & 1);
        return code;
    }

    void loseRest()
    {
        const qsizetype next = (m_bit + 7) / 8;
        m_bytes.remove(next, m_end - next);
        m_lost += m_end - next;
        m_end = next;
    }

    QByteArray m_bytes;
    qsizetype m_bit = 0;
    // Where the bytes of a call end, and how many were taken that no code has got to.
    qsizetype m_end = 0;
    qsizetype m_lost = 0;
    QList<QByteArray> m_table;
    int m_nextCode = 0;
    int m_width = 0;
    int m_previous = 0;
    QByteArray m_held;
    int m_overflows = 0;
};

} // namespace PlainLzw
