// SPDX-License-Identifier: MIT
#include <brixrt/scrc32.h>

#include <QtCore/QIODevice>

#include <libdeflate.h>

namespace Talverine {

namespace {

constexpr qsizetype kPieceBytes = 64 * 1024;

quint32 reversed(quint32 word)
{
    quint32 mirror = 0;
    for (int bit = 0; bit < 32; ++bit)
        mirror |= ((word >> bit) & 1) << (31 - bit);
    return mirror;
}

// What each value of a byte makes of a register of zeros, the lowest bit first.
std::array<quint32, 256> makeTable(quint32 polynomial)
{
    const quint32 feedback = reversed(polynomial);
    std::array<quint32, 256> table{};
    for (quint32 byte = 0; byte < table.size(); ++byte) {
        quint32 word = byte;
        for (int bit = 0; bit < 8; ++bit)
            word = (word >> 1) ^ ((word & 1) ? feedback : 0);
        table[byte] = word;
    }
    return table;
}

quint32 continued(const std::array<quint32, 256> &table, quint32 value, const char *data,
                  quint64 size)
{
    quint32 word = ~value;
    for (const char *end = data + size; data != end; ++data)
        word = (word >> 8) ^ table[(word ^ static_cast<uchar>(*data)) & 0xFF];
    return ~word;
}

} // namespace

SCrc32::SCrc32(quint32 polynomial)
{
    if (polynomial != kOrdinaryPolynomial)
        m_table = std::make_shared<const Table>(makeTable(polynomial));
}

void SCrc32::clear()
{
    m_value = 0;
}

void SCrc32::update(const char *data, quint64 size)
{
    if (!data || size == 0)
        return;
    if (m_table) {
        m_value = continued(*m_table, m_value, data, size);
        return;
    }
    m_value = libdeflate_crc32(m_value, data, static_cast<size_t>(size));
}

void SCrc32::update(const QByteArray &data)
{
    update(data.constData(), static_cast<quint64>(data.size()));
}

quint32 SCrc32::value() const
{
    return m_value;
}

quint32 SCrc32::hash(QIODevice *device, bool *ok, quint32 polynomial)
{
    SCrc32 crc(polynomial);
    QByteArray piece(kPieceBytes, Qt::Uninitialized);
    qint64 count = device && device->isReadable() ? 1 : -1;
    while (count > 0) {
        count = device->read(piece.data(), piece.size());
        if (count > 0)
            crc.update(piece.constData(), static_cast<quint64>(count));
    }
    if (ok)
        *ok = count == 0;
    return count == 0 ? crc.value() : 0;
}

quint32 SCrc32::hash(const char *data, quint64 size, quint32 polynomial)
{
    SCrc32 crc(polynomial);
    crc.update(data, size);
    return crc.value();
}

quint32 SCrc32::hash(const QByteArray &data, quint32 polynomial)
{
    return hash(data.constData(), static_cast<quint64>(data.size()), polynomial);
}

} // namespace Talverine
