// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QByteArray>
#include <QtCore/QByteArrayView>

#include <cstring>

class QIODevice;

namespace Talverine {

class SCrc32;

/*!
 * Reads the lines of a device in blocks, and knows where each begins.
 *
 *     LineReader lines(device, position, LineReader::kScanBytes);
 *     QByteArrayView line;
 *     while (lines.next(&line))
 *         use(line, lines.position());
 *
 * Holds one block, or the longest line that was asked for. Where the device stands meanwhile is
 * this reader's affair.
 */
class LineReader
{
public:
    //! The size of a block for a walk through the file.
    static constexpr qsizetype kScanBytes = 128 * 1024;
    //! The size of the first block for a single record.
    static constexpr qsizetype kRecordBytes = 2 * 1024;

    //! Begins at \a position. \a device may be null, and has no lines then.
    LineReader(QIODevice *device, qint64 position, qsizetype blockBytes);

    //! Counts all bytes that are read from now on into \a crc.
    void setCrc(SCrc32 *crc) { m_crc = crc; }

    //! The next line without its LF. The view holds until the next call.
    bool next(QByteArrayView *line)
    {
        return next(line, [](QByteArrayView, bool) { return true; });
    }
    /*!
     * The next line for which \a wanted is true. It is called with the line and true, and before
     * that, where a line is longer than what has been read, with its beginning and false: a line
     * refused then is not held.
     */
    template<typename Wanted>
    bool next(QByteArrayView *line, Wanted wanted);

    //! The next call gives the last line again.
    void unread() { m_begin = m_lineBegin; }

    //! Where the last line begins in the device.
    qint64 position() const { return m_blockPosition + m_lineBegin; }
    //! Whether the end came by a failed seek or read, or for want of memory.
    bool hasFailed() const { return m_failed; }

private:
    template<typename Wanted>
    bool nextInBlock(QByteArrayView *line, qsizetype searched, Wanted wanted);
    bool takeRest(QByteArrayView *line);
    bool fill();
    bool grow();
    void dropRead();
    bool skipLine();
    qsizetype lineEnd(qsizetype from) const;

    QIODevice *m_device;
    SCrc32 *m_crc = nullptr;
    QByteArray m_block;
    qsizetype m_blockBytes;
    qint64 m_blockPosition; // of the block's first byte
    qsizetype m_lineBegin = 0;
    qsizetype m_begin = 0; // of what has not been given out
    qsizetype m_end = 0;   // of what has been read
    bool m_ended = false;
    bool m_failed = false;
};

// Offset of the LF, or -1.
inline qsizetype LineReader::lineEnd(qsizetype from) const
{
    const char *data = m_block.constData();
    const void *found = std::memchr(data + from, '\n', static_cast<size_t>(m_end - from));
    return found ? static_cast<const char *>(found) - data : -1;
}

template<typename Wanted>
bool LineReader::next(QByteArrayView *line, Wanted wanted)
{
    // What is known to hold no LF.
    qsizetype searched = m_begin;
    for (;;) {
        if (nextInBlock(line, searched, wanted))
            return true;
        const qsizetype rest = m_end - m_begin;
        const QByteArrayView beginning(m_block.constData() + m_begin, rest);
        if (rest >= m_blockBytes && !wanted(beginning, false)) {
            if (!skipLine())
                return false;
            searched = m_begin;
        } else if (fill()) {
            searched = m_begin + rest;
        } else {
            // After a failure the rest may be a part of a line only.
            return !m_failed && takeRest(line) && wanted(*line, true);
        }
    }
}

// Apart from the rest, and on local variables: of a large file every line goes through here.
template<typename Wanted>
bool LineReader::nextInBlock(QByteArrayView *line, qsizetype searched, Wanted wanted)
{
    const char *data = m_block.constData();
    qsizetype begin = m_begin;
    for (qsizetype end = lineEnd(searched); end >= 0; end = lineEnd(begin)) {
        const QByteArrayView found(data + begin, end - begin);
        if (wanted(found, true)) {
            m_lineBegin = begin;
            m_begin = end + 1;
            *line = found;
            return true;
        }
        begin = end + 1;
    }
    m_begin = begin;
    return false;
}

} // namespace Talverine
