// SPDX-License-Identifier: MIT
#pragma once

#include <brixlib/brixlib_export.h>

#include <QtCore/QHashFunctions>
#include <QtCore/QMetaType>

class QDataStream;

namespace Talverine {

/*!
 * Names a class of commands on the wire: four ASCII letters in one word, the first letter in the
 * most significant byte. The value 0 is the null id.
 *
 * Its record in a QDataStream is three words: 0x73636D69 ("scmi"), 0x00010000, the id. A reader
 * takes all three whatever they hold and never looks at the middle one; without the magic the id
 * is null and the stream stays good.
 */
class BRIXLIB_EXPORT SCommandId
{
public:
    constexpr SCommandId(unsigned int id = 0) noexcept
        : m_id(id)
    {
    }

    constexpr unsigned int id() const noexcept { return m_id; }
    constexpr bool isNull() const noexcept { return m_id == 0; }

    bool operator==(const SCommandId &) const noexcept = default;

private:
    quint32 m_id;
};

inline size_t qHash(const SCommandId &id, size_t seed = 0) noexcept
{
    return ::qHash(id.id(), seed);
}

BRIXLIB_EXPORT QDataStream &operator<<(QDataStream &stream, const SCommandId &id);
BRIXLIB_EXPORT QDataStream &operator>>(QDataStream &stream, SCommandId &id);

} // namespace Talverine

Q_DECLARE_TYPEINFO(Talverine::SCommandId, Q_RELOCATABLE_TYPE);
Q_DECLARE_METATYPE(Talverine::SCommandId)
