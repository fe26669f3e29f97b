// SPDX-License-Identifier: MIT
#include "lzwcodewriter_p.h"

#include "framedblocks_p.h"

#include <brixrt/sfilehelper.h>

namespace Talverine::Compression {

void LzwCodeWriter::begin()
{
    m_bits = 0;
    m_bitOffset = 0;
    m_count = 0;
}

bool LzwCodeWriter::end(QIODevice *device)
{
    // The byte begun stands in the buffer already, behind the whole ones.
    if (m_bitOffset != 0)
        ++m_count;
    const bool written = flush(device);
    begin();
    return written;
}

bool LzwCodeWriter::flush(QIODevice *device)
{
    const bool written =
        device && SFileHelper::writeAll(device, QByteArrayView(m_buffer.data(), m_count));
    m_count = 0;
    return written;
}

} // namespace Talverine::Compression
