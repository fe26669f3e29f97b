// SPDX-License-Identifier: MIT
#include <brixrt/sversion.h>

#include <QtCore/QDataStream>
#include <QtCore/QDebug>
#include <QtCore/QStringList>

#include <algorithm>
#include <array>

namespace Talverine {

using namespace Qt::StringLiterals;

namespace {

// Calls by name spell types without their namespace, so both spellings are registered.
[[maybe_unused]] const int registered = qRegisterMetaType<SVersion>("SVersion");

constexpr std::array<uint, 3> kLargestNumbers{0xFFFF, 0xFF, 0xFF};

// QStringView::toUInt() would also take a sign and blanks.
bool isDecimal(QStringView text)
{
    return !text.isEmpty() &&
           std::all_of(text.begin(), text.end(), [](QChar c) { return c >= u'0' && c <= u'9'; });
}

bool parse(QStringView text, quint32 *value)
{
    const QList<QStringView> parts = text.split(u'.');
    if (parts.size() > 3)
        return false;
    std::array<uint, 3> numbers{};
    for (qsizetype i = 0; i < parts.size(); ++i) {
        const auto place = static_cast<std::size_t>(i);
        bool ok = isDecimal(parts[i]);
        if (ok)
            numbers[place] = parts[i].toUInt(&ok);
        if (!ok || numbers[place] > kLargestNumbers[place])
            return false;
    }
    *value = numbers[0] << 16 | numbers[1] << 8 | numbers[2];
    return true;
}

} // namespace

QString SVersion::toString() const
{
    return u"%1.%2.%3"_s.arg(QString::number(major()), QString::number(minor()),
                             QString::number(patch()));
}

SVersion SVersion::fromString(const QString &text, bool *ok)
{
    quint32 value = 0;
    const bool known = parse(QStringView(text).trimmed(), &value);
    if (ok)
        *ok = known;
    return value;
}

QDataStream &operator<<(QDataStream &stream, SVersion version)
{
    return stream << version.value();
}

QDataStream &operator>>(QDataStream &stream, SVersion &version)
{
    quint32 value = 0;
    stream >> value;
    if (stream.status() == QDataStream::Ok)
        version = value;
    return stream;
}

QDebug operator<<(QDebug debug, SVersion version)
{
    const QDebugStateSaver saver(debug);
    return debug.noquote().nospace() << version.toString();
}

} // namespace Talverine
