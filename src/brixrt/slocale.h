// SPDX-License-Identifier: MIT
#pragma once

#include <brixrt/brixrt_export.h>

#include <QtCore/QLocale>
#include <QtCore/QString>

namespace Talverine {

/*!
 * A locale made from its name, and the names that files and services have for locales.
 *
 * QLocale::operator== compares number options too, so a locale made with options doesn't equal a
 * plain one of the same name; a QDataStream doesn't keep the options. Const calls may come from any
 * thread.
 */
class BRIXRT_EXPORT SLocale : public QLocale
{
public:
    //! The default locale.
    SLocale() = default;
    /*!
     * The locale of a name such as "en-US", "en_US" or "sr-Latn-RS"; the C locale for a name that
     * nobody knows, or none.
     */
    explicit SLocale(const QString &name, NumberOptions options = DefaultNumberOptions);

    /*!
     * Language and country, "en-US" or "en_US" when \a underscores; "C" for the C locale. The
     * script stands between them only where another locale would be made of the name without it.
     */
    static QString lcName(const QLocale &locale, bool underscores);

    using QLocale::name;
    //! The code of the language, "pt", or QLocale::name() when \a region, "pt_BR".
    static QString name(const QLocale &locale, bool region);
};

} // namespace Talverine
