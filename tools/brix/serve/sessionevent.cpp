// SPDX-License-Identifier: MIT
#include "sessionevent.h"

#include <cli/printabletext.h>

namespace Brix {

using namespace Qt::StringLiterals;

namespace {

constexpr qsizetype kLongestValue = 4096;
constexpr auto kEscapedBlank = "\\u{20}"_L1;

// A database would take blanks at the ends away.
QString valueOf(const QString &text)
{
    QString value = printableText(QStringView(text).left(kLongestValue)).left(kLongestValue);
    if (value.startsWith(u' '))
        value.replace(0, 1, kEscapedBlank);
    if (value.endsWith(u' '))
        value.replace(value.size() - 1, 1, kEscapedBlank);
    return value;
}

} // namespace

void SessionEvent::add(const QString &name, const QString &value)
{
    fields.append({name, valueOf(value)});
}

QString SessionEvent::text() const
{
    QString line = time.toString(Qt::ISODateWithMs) + u"  "_s + id;
    for (const auto &[name, value] : fields)
        line += u"  "_s + name + u"=\""_s + QString(value).replace(u'"', "\\\""_L1) + u'"';
    return line;
}

} // namespace Brix
