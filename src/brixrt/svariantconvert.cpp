// SPDX-License-Identifier: MIT
#include <brixrt/svariantconvert.h>

#include <QtCore/QHash>
#include <QtCore/QReadWriteLock>

namespace Talverine {

namespace {

struct Converters
{
    QReadWriteLock lock;
    QHash<int, SVariantConvert::Converter> byType;
};

// Leaked on purpose: code that runs after this file's statics are gone may still convert.
Converters &converters()
{
    static auto *instance = new Converters;
    return *instance;
}

} // namespace

void SVariantConvert::sVariantToStringRegister(int metaTypeId, Converter converter)
{
    const QWriteLocker locker(&converters().lock);
    converters().byType.insert(metaTypeId, std::move(converter));
}

bool SVariantConvert::toString(const QVariant &value, const QLocale &locale, QString *text)
{
    Converter converter;
    {
        const QReadLocker locker(&converters().lock);
        converter = converters().byType.value(value.metaType().id());
    }
    if (!converter)
        return false;
    const QString result = converter(value, locale);
    if (text)
        *text = result;
    return true;
}

} // namespace Talverine
