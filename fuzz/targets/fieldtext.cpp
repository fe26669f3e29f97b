// SPDX-License-Identifier: MIT
// The reader of a field's text. The first byte of an input is the number of a format, and whether
// the text is in UTF-16; then comes the text.
#include "../fuzztarget.h"
#include "../targets.h"

#include <brixlib/database/records/sdbrecord.h>

#include <algorithm>
#include <iterator>

using namespace Talverine;
using namespace Qt::StringLiterals;

namespace Fuzz {

namespace {

constexpr QStringView kFormats[] = {u"", u"D16", u"X8", u"N2", u"F2", u"?"};

QString textOf(const QByteArray &bytes, bool isUtf16)
{
    if (!isUtf16)
        return QString::fromUtf8(bytes);
    QString text(bytes.size() / 2, Qt::Uninitialized);
    std::copy_n(bytes.constData(), 2 * text.size(), reinterpret_cast<char *>(text.data()));
    return text;
}

void requireLine(const QString &text)
{
    require(text == text.trimmed() && !text.contains(u'\n'), "a text is more than part of a line");
}

void requireWellFormed(const SDBField &field)
{
    requireLine(field.key());
    require(!field.key().contains(u'.') && !field.key().contains(u'='), "a name is cut too late");
    const QList<QVariant> values = field.isNull() ? QList<QVariant>() : field.valueList();
    for (const QVariant &value : values) {
        require(value.userType() == QMetaType::QString, "a value is no text");
        requireLine(value.toString());
    }
    require(values.isEmpty() || field.isArray() == (values.size() > 1), "an array of one value");
}

void requireRoundTrip(const SDBField &field, const QString &format, const QLocale &locale)
{
    const QString text = field.toString(format, locale);
    require(SDBField::fromString(text, format, locale) == field, "a field changes");

    QStringList values;
    for (const QVariant &value : field.valueList())
        values.append(value.toString());
    require(field.toString(u"F"_s, locale) == values.join(u"\r\n"_s), "values change");
    require(text.count(u'\n') == values.size() - 1, "a field has other lines than values");
}

} // namespace

bool fieldText(const QByteArray &input)
{
    Input bytes(input);
    const quint8 form = bytes.byte();
    const QString format = kFormats[(form / 2) % std::size(kFormats)].toString();
    const QString text = textOf(bytes.rest(), form % 2 != 0);

    const SDBField field = SDBField::fromString(text, format, QLocale::c());
    requireWellFormed(field);
    // What a text says does not depend on where it is read.
    require(SDBField::fromString(text) == field, "a field is another one elsewhere");
    if (field.isEmpty())
        return false;
    for (const QLocale &locale : {QLocale::c(), QLocale(QLocale::Arabic, QLocale::Egypt)})
        requireRoundTrip(field, format, locale);
    return true;
}

} // namespace Fuzz
