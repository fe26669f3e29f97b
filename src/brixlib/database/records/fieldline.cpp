// SPDX-License-Identifier: MIT
#include "fieldline_p.h"

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

bool isAscii(QByteArrayView line)
{
    char bits = 0;
    for (const char byte : line)
        bits |= byte;
    return static_cast<signed char>(bits) >= 0;
}

QByteArrayView trimmed(QByteArrayView text)
{
    while (!text.isEmpty() && isAsciiSpace(text.back()))
        text.chop(1);
    return text.sliced(leadingSpaces(text));
}

QStringView trimmed(QStringView text)
{
    return text.trimmed();
}

QAnyStringView anyView(QByteArrayView ascii)
{
    return QLatin1String(ascii.data(), ascii.size());
}

QAnyStringView anyView(QStringView text)
{
    return text;
}

template<typename Unit, typename View>
std::optional<FieldLine> takeApart(View line)
{
    line = trimmed(line);
    const qsizetype equals = line.indexOf(Unit('='));
    if (equals < 0 || line.front() == Unit('#'))
        return std::nullopt;
    const View left = line.first(equals);
    const qsizetype dot = left.indexOf(Unit('.'));
    const View name = trimmed(dot < 0 ? left : left.first(dot));
    if (name.isEmpty())
        return std::nullopt;
    return FieldLine{{}, anyView(name), anyView(trimmed(line.sliced(equals + 1)))};
}

} // namespace

std::optional<FieldLine> parseFieldLine(QByteArrayView line)
{
    if (isAscii(line))
        return takeApart<char>(line);
    const QString text = QString::fromUtf8(line);
    std::optional<FieldLine> field = takeApart<char16_t>(QStringView(text));
    if (field)
        field->decoded = text;
    return field;
}

FieldLineFilter::FieldLineFilter(const QString &name)
    : m_name(name.toUtf8())
    , m_first(static_cast<signed char>(m_name.isEmpty() ? '\0' : m_name.front()))
    , m_isSure(!name.isEmpty() && !name.contains(QChar::ReplacementCharacter))
{
}

bool FieldLineFilter::mayMatchIndented(QByteArrayView line) const
{
    line = line.sliced(leadingSpaces(line));
    if (line.isEmpty())
        return false;
    // A byte order mark or a space beyond ASCII may come before the name.
    const bool isAsciiFirst = static_cast<signed char>(line.front()) >= 0;
    return !isAsciiFirst || !m_isSure || line.startsWith(m_name);
}

bool FieldLineFilter::mayMatchBeginning(QByteArrayView beginning) const
{
    const qsizetype spaces = leadingSpaces(beginning);
    return beginning.size() - spaces < m_name.size() || mayMatchIndented(beginning);
}

} // namespace Talverine
