// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QByteArray>
#include <QtCore/QString>

#include <array>
#include <cstddef>

namespace Talverine::Security {

/*!
 * A UTF-8 literal that does not stand readable in the program file: its bytes are mixed with a
 * running key at compile time and restored at run time. It hinders a look with `strings` and
 * nothing more; no secret is safe in it.
 *
 *     static constexpr SObfuscatedString name("brix");
 *     qDebug() << name.toString();
 *
 * Const calls may come from any thread.
 */
template<std::size_t N>
class SObfuscatedString final
{
public:
    consteval explicit SObfuscatedString(const char (&literal)[N])
    {
        for (std::size_t i = 0; i < N; ++i)
            m_bytes[i] =
                static_cast<unsigned char>(static_cast<unsigned char>(literal[i]) ^ key(i));
    }

    //! The literal's bytes, without the terminating zero.
    QByteArray toUtf8() const
    {
        // Volatile, so that no compiler restores the text itself and writes it into the program.
        const volatile unsigned char *mixed = m_bytes.data();
        QByteArray bytes(static_cast<qsizetype>(N - 1), Qt::Uninitialized);
        for (std::size_t i = 0; i + 1 < N; ++i)
            bytes[static_cast<qsizetype>(i)] = static_cast<char>(mixed[i] ^ key(i));
        return bytes;
    }

    QString toString() const { return QString::fromUtf8(toUtf8()); }

private:
    static constexpr unsigned char key(std::size_t i)
    {
        return static_cast<unsigned char>(0xA7u + 0x3Bu * i);
    }

    std::array<unsigned char, N> m_bytes{};
};

} // namespace Talverine::Security
