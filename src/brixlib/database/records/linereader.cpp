// SPDX-License-Identifier: MIT
#include "linereader_p.h"

#include <brixlib/foundation/outofmemory_p.h>

#include <brixrt/scrc32.h>

#include <QtCore/QIODevice>

#include <algorithm>

namespace Talverine {

LineReader::LineReader(QIODevice *device, qint64 position, qsizetype blockBytes)
    : m_device(device)
    , m_blockBytes(blockBytes)
    , m_blockPosition(position)
    , m_ended(!device)
{
    if (device && (!device->isOpen() || !device->seek(position))) {
        m_ended = true;
        m_failed = true;
    }
}

// The last line, where no LF ends it.
bool LineReader::takeRest(QByteArrayView *line)
{
    if (m_begin == m_end)
        return false;
    *line = QByteArrayView(m_block.constData() + m_begin, m_end - m_begin);
    m_lineBegin = m_begin;
    m_begin = m_end;
    return true;
}

// What has been given out goes, and at least one more byte comes behind the rest.
bool LineReader::fill()
{
    if (m_ended)
        return false;
    dropRead();
    if (m_end == m_block.size() && !grow()) {
        m_failed = true;
        m_ended = true;
        return false;
    }
    const qint64 count = m_device->read(m_block.data() + m_end, m_block.size() - m_end);
    m_failed = count < 0;
    m_ended = count <= 0;
    if (count <= 0)
        return false;
    if (m_crc)
        m_crc->update(m_block.constData() + m_end, static_cast<quint64>(count));
    m_end += count;
    return true;
}

// False when there is no memory for a line as long as the file claims.
bool LineReader::grow()
{
    return orOutOfMemory(false, [this] {
        m_block.resize(std::max(m_blockBytes, 2 * m_end));
        return true;
    });
}

void LineReader::dropRead()
{
    if (m_begin == 0)
        return;
    std::memmove(m_block.data(), m_block.constData() + m_begin,
                 static_cast<size_t>(m_end - m_begin));
    m_blockPosition += m_begin;
    m_end -= m_begin;
    m_lineBegin = 0;
    m_begin = 0;
}

// Goes behind the end of the line that begins here, keeping none of it.
bool LineReader::skipLine()
{
    for (;;) {
        const qsizetype end = lineEnd(m_begin);
        m_begin = end < 0 ? m_end : end + 1;
        if (end >= 0)
            return true;
        if (!fill())
            return false;
    }
}

} // namespace Talverine
