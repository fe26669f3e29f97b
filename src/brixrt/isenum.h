// SPDX-License-Identifier: MIT
#pragma once

#include <brixrt/brixrt_export.h>

#include <QtCore/QLocale>
#include <QtCore/QString>

namespace Talverine {

/*!
 * The table of one enumeration's values and their names, whatever the type of the enumeration.
 *
 * Values travel as qint64 here; an unsigned 64-bit flag set keeps its bit pattern. Companion
 * classes (PasswordType_T and its like) derive from it and add calls in the enumeration's own type.
 * A table is filled while it is constructed; afterwards its const operations may be called from any
 * thread, and insert() only while no other thread reads.
 */
class BRIXRT_EXPORT ISEnum
{
public:
    virtual ~ISEnum();

    //! Name of the enumeration as it is declared, without namespace: "PasswordType".
    virtual QString name() const = 0;
    //! True when values combine as flags.
    virtual bool isFlags() const = 0;
    //! Text of a value: its first declared name, or the number as \a locale writes it.
    virtual QString toString(const qint64 &value, const QLocale &locale = QLocale()) const = 0;
    /*!
     * Value of a text, which is trimmed first. \a ok (may be null) tells whether it was known;
     * an unknown text gives \a defaultValue.
     */
    virtual qint64 fromString(const QString &text, const qint64 &defaultValue,
                              Qt::CaseSensitivity cs = Qt::CaseInsensitive,
                              bool *ok = nullptr) const = 0;
    /*!
     * Adds one pair unless it is there already; a further name of a known value is an alias. A
     * value that the enumeration's type cannot hold changes nothing.
     */
    virtual void insert(qint64 value, const QString &name) = 0;

protected:
    ISEnum() = default;
    Q_DISABLE_COPY_MOVE(ISEnum)
};

} // namespace Talverine
