// SPDX-License-Identifier: MIT
#include <brixlib/foundation/interfaces.h>

#include <typeinfo>

// The destructors stand here so that each interface has one table of virtual operations.
namespace Talverine::Interfaces {

ICloneable::~ICloneable() = default;
IEquatable::~IEquatable() = default;
ISerializable::~ISerializable() = default;
IValidity::~IValidity() = default;
IIdentifiable::~IIdentifiable() = default;
IHashable::~IHashable() = default;
IJsonConvertible::~IJsonConvertible() = default;
IFormattable::~IFormattable() = default;
IConcurrency::~IConcurrency() = default;
IBufferable::~IBufferable() = default;
ISwappable::~ISwappable() = default;
ICacheable::~ICacheable() = default;
ISUser::~ISUser() = default;
ISAuthenticationDb::~ISAuthenticationDb() = default;

bool IEquatable::isSameType(const IEquatable *other) const
{
    return other && typeid(*this) == typeid(*other);
}

QString IFormattable::toString(const QLocale &locale) const
{
    return toString(QString(), locale);
}

QString IFormattable::toString(const QString &format) const
{
    return toString(format, QLocale());
}

QString IFormattable::toString() const
{
    return toString(QString(), QLocale());
}

bool ISwappable::isSwappable() const
{
    return false;
}

ISAuthenticationDb::ISAuthenticationDb(QObject *parent)
    : QObject(parent)
{
}

} // namespace Talverine::Interfaces

#include "moc_interfaces.cpp"
