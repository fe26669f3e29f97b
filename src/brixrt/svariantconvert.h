// SPDX-License-Identifier: MIT
#pragma once

#include <brixrt/brixrt_export.h>

#include <QtCore/QLocale>
#include <QtCore/QMetaType>
#include <QtCore/QVariant>

#include <functional>

namespace Talverine {

/*!
 * The process-wide converters from a variant of a registered type to text.
 *
 * Fully shared: every operation may be called from any thread, also before main().
 */
class BRIXRT_EXPORT SVariantConvert
{
public:
    using Converter = std::function<QString(const QVariant &value, const QLocale &locale)>;

    SVariantConvert() = default;

    /*!
     * Registers \a converter for the type; registering a type again replaces its converter, and an
     * empty one takes it away. It is called in the thread of each conversion, without a lock held.
     */
    static void sVariantToStringRegister(int metaTypeId, Converter converter);

    /*!
     * Registers the enumeration \a E by its companion class \a Companion, and the same conversion
     * with the default locale for plain QVariant::toString().
     */
    template<typename E, typename Companion>
    static void sVariantToStringRegister()
    {
        sVariantToStringRegister(
            qMetaTypeId<E>(), [](const QVariant &value, const QLocale &locale) {
                return Companion::instance().toString(value.value<E>(), locale);
            });
        if (!QMetaType::hasRegisteredConverterFunction<E, QString>()) {
            QMetaType::registerConverter<E, QString>(
                [](const E &value) { return Companion::instance().toString(value); });
        }
    }

    /*!
     * True when the value's type has a converter; then \a text (may be null) holds the result.
     * Otherwise \a text stays as it was.
     */
    static bool toString(const QVariant &value, const QLocale &locale, QString *text);
};

} // namespace Talverine
