// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QByteArray>
#include <QtCore/QByteArrayView>
#include <QtCore/QString>
#include <QtCore/QStringView>

#include <optional>

namespace Talverine {

//! A line of a database file that gives a field a value; the views are parts of the text.
struct FieldLine
{
    QString text;
    QStringView name;
    QStringView value;

    //! The value as a text of its own, never null.
    QString ownValue() const;
    //! Whether the value of a key line marks its record as deleted.
    bool isDeletedKey() const { return value.startsWith(u'$'); }
};

//! What \a line says, its line end allowed; nothing for blanks, comments and lines without a name
//! or a "=".
std::optional<FieldLine> parseFieldLine(QByteArrayView line);

/*!
 * Tells most lines that don't name a field from those that may, by their first bytes: a file has
 * ten times as many lines as keys, and decoding each costs more than all else.
 */
class FieldLineFilter
{
public:
    explicit FieldLineFilter(const QString &name);

    //! False only if \a line surely has another name.
    bool mayMatch(QByteArrayView line) const;
    //! As mayMatch(), of the beginning of a longer line.
    bool mayMatchBeginning(QByteArrayView beginning) const;

private:
    QByteArray m_name;
    bool m_isSure; // of a name that damaged bytes can't be read as
};

} // namespace Talverine
