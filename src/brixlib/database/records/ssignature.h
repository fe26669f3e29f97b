// SPDX-License-Identifier: MIT
#pragma once

#include <brixlib/brixlib_export.h>

#include <QtCore/QByteArray>
#include <QtCore/QCryptographicHash>
#include <QtCore/QString>

namespace Talverine {

/*!
 * Hashes as text, lower-case hexadecimal: what signs records and stands for a database's password.
 *
 * It tells that something was changed by accident; without a key it is no proof of who wrote it.
 * Fully shared: all calls may come from any thread.
 */
class BRIXLIB_EXPORT SSignature
{
public:
    SSignature() = default;

    //! Of the UTF-8 bytes of \a text.
    static QString generate(const QString &text, QCryptographicHash::Algorithm algorithm);
    //! Of \a data.
    static QString generate(const QByteArray &data, QCryptographicHash::Algorithm algorithm);
    /*!
     * Of one byte for each UTF-16 unit of \a text, its low eight bits. Characters above U+00FF lose
     * their high byte and are not all told apart; it is the form of record signatures.
     */
    static QString generateLegacy(const QString &text, QCryptographicHash::Algorithm algorithm);
};

} // namespace Talverine
