// SPDX-License-Identifier: MIT
#pragma once

#include <brixrt/brixrt_export.h>

#include <QtCore/QHashFunctions>
#include <QtCore/QMetaType>
#include <QtCore/QString>

#include <compare>

// Old system headers define both as macros of one argument.
#ifdef major
#undef major
#endif
#ifdef minor
#undef minor
#endif

class QDataStream;
class QDebug;

namespace Talverine {

/*!
 * A version packed in one integer, major << 16 | minor << 8 | patch: 0x00010200 is 1.2.0.
 *
 * Versions are compared as these integers, and a stream holds the integer. A JSON number is read
 * with QJsonValue::toInteger(), as toInt() gives 0 for versions from 32768.0.0 on. Const calls may
 * come from any thread.
 */
class BRIXRT_EXPORT SVersion final
{
public:
    //! The version 0.0.0.
    constexpr SVersion() = default;
    //! Implicit, since version literals are written as numbers.
    constexpr SVersion(quint32 value)
        : m_value(value)
    {
    }
    constexpr SVersion(quint16 major, quint8 minor, quint8 patch)
        : m_value(quint32{major} << 16 | quint32{minor} << 8 | patch)
    {
    }

    constexpr quint32 value() const { return m_value; }
    constexpr quint16 major() const { return static_cast<quint16>(m_value >> 16); }
    constexpr quint8 minor() const { return static_cast<quint8>(m_value >> 8); }
    constexpr quint8 patch() const { return static_cast<quint8>(m_value); }

    //! The three numbers in decimal: "1.2.0".
    QString toString() const;
    /*!
     * The version written in \a text as one to three decimal numbers with dots between them, blanks
     * around it allowed; what is left out is 0. \a ok (may be null) tells whether the text was of
     * that form and each number in its range; if not, the result is 0.0.0.
     */
    static SVersion fromString(const QString &text, bool *ok = nullptr);

    friend constexpr bool operator==(SVersion, SVersion) = default;
    friend constexpr auto operator<=>(SVersion, SVersion) = default;

private:
    quint32 m_value = 0;
};

constexpr size_t qHash(SVersion version, size_t seed = 0) noexcept
{
    return ::qHash(version.value(), seed);
}

//! Writes the integer as an unsigned 32-bit word.
BRIXRT_EXPORT QDataStream &operator<<(QDataStream &stream, SVersion version);
//! Reads what the other operator wrote; a stream that fails leaves \a version as it was.
BRIXRT_EXPORT QDataStream &operator>>(QDataStream &stream, SVersion &version);

BRIXRT_EXPORT QDebug operator<<(QDebug debug, SVersion version);

} // namespace Talverine

Q_DECLARE_TYPEINFO(Talverine::SVersion, Q_PRIMITIVE_TYPE);
Q_DECLARE_METATYPE(Talverine::SVersion)
