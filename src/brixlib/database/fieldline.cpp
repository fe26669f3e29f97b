// SPDX-License-Identifier: MIT
#include <brixlib/database/fieldline_p.h>

namespace Talverine {

namespace {

bool isAsciiSpace(char byte)
{
    return byte == ' ' || (byte >= '\t' && byte <= '\r');
}

qsizetype leadingSpaces(QByteArrayView line)
{
    qsizetype count = 0;
    while (count < line.size() && isAsciiSpace(line[count]))
        ++count;
    return count;
}

// Before decoding, since nearly every line ends in CR.
QByteArrayView withoutEnd(QByteArrayView line)
{
    while (!line.isEmpty() && isAsciiSpace(line.back()))
        line.chop(1);
    return line;
}

} // namespace

QString FieldLine::ownValue() const
{
    return value.isEmpty() ? QString::fromLatin1("") : value.toString();
}

std::optional<FieldLine> parseFieldLine(QByteArrayView line)
{
    FieldLine field;
    field.text = QString::fromUtf8(withoutEnd(line));
    const QStringView trimmed = QStringView(field.text).trimmed();
    if (trimmed.startsWith(u'#'))
        return std::nullopt;
    const qsizetype equals = trimmed.indexOf(u'=');
    if (equals < 0)
        return std::nullopt;
    const QStringView left = trimmed.first(equals);
    const qsizetype dot = left.indexOf(u'.');
    field.name = (dot < 0 ? left : left.first(dot)).trimmed();
    if (field.name.isEmpty())
        return std::nullopt;
    field.value = trimmed.sliced(equals + 1).trimmed();
    return field;
}

FieldLineFilter::FieldLineFilter(const QString &name)
    : m_name(name.toUtf8())
    , m_isSure(!name.isEmpty() && !name.contains(QChar::ReplacementCharacter))
{
}

bool FieldLineFilter::mayMatch(QByteArrayView line) const
{
    line = line.sliced(leadingSpaces(line));
    if (line.isEmpty())
        return false;
    // A byte order mark or a space beyond ASCII may come before the name.
    const bool isAscii = static_cast<signed char>(line.front()) >= 0;
    return !isAscii || !m_isSure || line.startsWith(m_name);
}

bool FieldLineFilter::mayMatchBeginning(QByteArrayView beginning) const
{
    const qsizetype spaces = leadingSpaces(beginning);
    return beginning.size() - spaces < m_name.size() || mayMatch(beginning);
}

} // namespace Talverine
