// SPDX-License-Identifier: MIT
#pragma once

#include <brixrt/brixrt_export.h>

#include <QtCore/QByteArray>

#include <array>
#include <memory>

class QIODevice;

namespace Talverine {

/*!
 * A reflected CRC of 32 bits that starts from and ends with an exclusive or of 0xFFFFFFFF. With the
 * ordinary polynomial that is the checksum of gzip: "123456789" gives 0xCBF43926.
 *
 *     SCrc32 crc;
 *     crc.update(head);
 *     crc.update(body);
 *     if (crc.value() != stored)
 *         return false;
 *
 * A value: const calls may come from any thread.
 */
class BRIXRT_EXPORT SCrc32
{
public:
    static constexpr quint32 kOrdinaryPolynomial = 0x04C11DB7;

    //! \a polynomial is written with its highest power in the highest bit, x^32 left out.
    explicit SCrc32(quint32 polynomial = kOrdinaryPolynomial);

    //! As newly made.
    void clear();
    //! Goes on with \a size bytes; null \a data or no bytes change nothing.
    void update(const char *data, quint64 size);
    void update(const QByteArray &data);
    //! The checksum of all bytes so far; 0 of none.
    quint32 value() const;

    /*!
     * The checksum of \a device from where it stands to its end, read in pieces. 0 with \a ok false
     * when \a device is null or closed, or when reading fails; \a ok may be null.
     */
    static quint32 hash(QIODevice *device, bool *ok, quint32 polynomial = kOrdinaryPolynomial);
    static quint32 hash(const char *data, quint64 size, quint32 polynomial = kOrdinaryPolynomial);
    static quint32 hash(const QByteArray &data, quint32 polynomial = kOrdinaryPolynomial);

private:
    using Table = std::array<quint32, 256>;

    std::shared_ptr<const Table> m_table; // null for the ordinary polynomial
    quint32 m_value = 0;
};

} // namespace Talverine
