// SPDX-License-Identifier: MIT
#include <brixlib/database/records/sdbfield.h>

#include <brixrt/sconvert.h>
#include <brixrt/senvironment.h>

namespace Talverine {

namespace {

// "key = text", or "key.index = text" from an index of 0 on. Not a template that is filled: a key
// or a value that holds a marker of one would be filled as well.
QString line(const QString &key, qsizetype index, const QString &text)
{
    QString number;
    if (index >= 0)
        number = u'.' + QString::number(index);
    QString result;
    result.reserve(key.size() + number.size() + 3 + text.size());
    return result.append(key).append(number).append(QLatin1String(" = ")).append(text);
}

} // namespace

const SDBField SDBField::empty;

SDBField::SDBField() = default;

SDBField::SDBField(const QString &key, const QVariant &value)
    : m_key(key)
    , m_value(value)
{
}

SDBField::SDBField(const SDBField &other) = default;
SDBField::SDBField(SDBField &&other) noexcept = default;
SDBField::~SDBField() = default;
SDBField &SDBField::operator=(const SDBField &other) = default;
SDBField &SDBField::operator=(SDBField &&other) noexcept = default;

void SDBField::setKey(const QString &key)
{
    m_key = key;
}

void SDBField::setValue(const QVariant &value)
{
    m_value = value;
}

QMetaType::Type SDBField::type() const
{
    return static_cast<QMetaType::Type>(m_value.userType());
}

bool SDBField::isArray() const
{
    if (isEmpty())
        return false;
    switch (m_value.userType()) {
    case QMetaType::QVariantList:
    case QMetaType::QStringList:
    case QMetaType::QByteArray:
    case QMetaType::QBitArray:
        return true;
    default:
        return false;
    }
}

QList<QVariant> SDBField::valueList() const
{
    if (m_value.isNull())
        return {};
    if (isArray())
        return m_value.toList();
    // Not of a list in braces, which a value that is a list itself would be taken for.
    return QList<QVariant>(1, m_value);
}

void SDBField::append(const QVariant &value)
{
    if (!isArray() || m_value.userType() != QMetaType::QVariantList)
        m_value = QVariant::fromValue(valueList());
    static_cast<QVariantList *>(m_value.data())->append(value);
}

QString SDBField::toString(const QString &format, const QLocale &locale) const
{
    const bool valueOnly = format.compare(QLatin1String("F"), Qt::CaseInsensitive) == 0;
    if (!isArray()) {
        if (m_value.isNull())
            return QString();
        const QString text = SConvert::toString(m_value, format, locale);
        return valueOnly ? text : line(m_key, -1, text);
    }
    const QList<QVariant> values = m_value.toList();
    QString result;
    for (qsizetype i = 0; i < values.size(); ++i) {
        if (i > 0)
            result += SEnvironment::rawWindowsNewLine();
        const QString text = SConvert::toString(values.at(i), format, locale);
        result += valueOnly ? text : line(m_key, values.size() > 1 ? i : -1, text);
    }
    return result;
}

QString SDBField::toString(bool valueOnly, const QLocale &locale) const
{
    return toString(valueOnly ? QStringLiteral("F") : QString(), locale);
}

SDBField SDBField::fromString(const QString &text, const QString &format, const QLocale &locale)
{
    SDBField field;
    QList<QVariant> values;
    QStringView name;
    for (const QStringView part : QStringView(text).tokenize(u'\n', Qt::SkipEmptyParts)) {
        const qsizetype equals = part.indexOf(u'=');
        if (equals < 0)
            continue;
        name = part.first(equals);
        const QString value = part.sliced(equals + 1).trimmed().toString();
        values.append(SConvert::toVariant(value, format, locale));
    }
    if (values.isEmpty())
        return field;
    const qsizetype dot = name.indexOf(u'.');
    field.m_key = name.first(dot < 0 ? name.size() : dot).trimmed().toString();
    if (values.size() == 1)
        field.m_value = values.first();
    else
        field.m_value = QVariant::fromValue(values);
    return field;
}

} // namespace Talverine
