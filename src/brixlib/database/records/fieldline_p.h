// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QAnyStringView>
#include <QtCore/QByteArray>
#include <QtCore/QByteArrayView>
#include <QtCore/QString>

#include <optional>

namespace Talverine {

//! A line of a database file that gives a field a value. The views hold as long as the line's
//! bytes do.
struct FieldLine
{
    QString decoded; //!< what the views are parts of where the line is not in ASCII
    QAnyStringView name;
    QAnyStringView value;

    //! Whether the value of a key line marks its record as deleted.
    bool isDeletedKey() const { return !value.isEmpty() && value.front() == u'$'; }
};

//! What \a line says, its line end allowed; nothing for blanks, comments and lines without a name
//! or a "=".
std::optional<FieldLine> parseFieldLine(QByteArrayView line);

/*!
 * Tells most lines that don't name a field from those that may, by their first bytes: a file has
 * ten times as many lines as keys, and taking each apart costs more than all else.
 */
class FieldLineFilter
{
public:
    explicit FieldLineFilter(const QString &name);

    //! False only if \a line surely has another name.
    bool mayMatch(QByteArrayView line) const
    {
        // The shortest field is "k=".
        if (line.size() < 2)
            return false;
        // Nearly every line is told by its first byte. Those beyond ASCII are negative.
        const auto first = static_cast<signed char>(line.front());
        return (first <= ' ' || first == m_first || !m_isSure) && mayMatchIndented(line);
    }
    //! As mayMatch(), of the beginning of a longer line.
    bool mayMatchBeginning(QByteArrayView beginning) const;

private:
    bool mayMatchIndented(QByteArrayView line) const;

    QByteArray m_name;
    signed char m_first;
    bool m_isSure; // of a name that damaged bytes can't be read as
};

} // namespace Talverine
