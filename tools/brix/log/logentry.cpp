// SPDX-License-Identifier: MIT
#include "logentry.h"

#include <database/fieldrules.h>

#include <brixlib/database/log/slogger.h>

#include <QtCore/QJsonArray>

namespace Brix::LogEntry {

using namespace Qt::StringLiterals;
using Talverine::SDBField;
using Talverine::SDBRecord;
using Talverine::SLogger;

namespace {

constexpr int kKeyDigits = 16;

QString dateOf(const SDBRecord &entry)
{
    const QDateTime date = SLogger::recordDateTime(entry);
    return date.isValid() ? date.toUTC().toString(Qt::ISODateWithMs) : u"-"_s;
}

QString idOf(const SDBRecord &entry)
{
    return entry.value(SLogger::logId()).toString();
}

// What a program wrote beside the identifier.
QList<SDBField> contentOf(const SDBRecord &entry)
{
    QList<SDBField> content;
    for (const SDBField &field : entry.fields()) {
        if (!isOwnField(field.key()) && !FieldRules::isWrittenByDatabase(field.key()))
            content.append(field);
    }
    return content;
}

QStringList textsOf(const SDBField &field)
{
    QStringList texts;
    for (const QVariant &value : field.valueList())
        texts.append(value.toString());
    return texts;
}

QJsonObject jsonOf(const SDBRecord &entry)
{
    QJsonObject fields;
    for (const SDBField &field : contentOf(entry)) {
        const QStringList texts = textsOf(field);
        fields.insert(field.key(), field.isArray() ? QJsonValue(QJsonArray::fromStringList(texts))
                                                   : QJsonValue(texts.value(0)));
    }
    return {{u"key"_s, entry.value(SDBRecord::uniqueIncKey()).toString()},
            {u"date"_s, dateOf(entry)},
            {u"id"_s, idOf(entry)},
            {u"pinned"_s, SLogger::isPinned(entry)},
            {u"fields"_s, fields}};
}

QString lineOf(const SDBRecord &entry)
{
    const QString pin = SLogger::isPinned(entry) ? u"*"_s : QString();
    QStringList parts{numberOf(entry) + pin, dateOf(entry), idOf(entry)};
    for (const SDBField &field : contentOf(entry))
        parts.append(field.key() + u'=' + textsOf(field).join(u", "_s));
    return parts.join(u"  "_s);
}

} // namespace

void write(const Output &output, const SDBRecord &entry)
{
    if (output.json)
        output.object(jsonOf(entry));
    else
        output.line(lineOf(entry));
}

QString keyOf(const QString &number)
{
    bool isNumber = false;
    const qint64 value = number.toLongLong(&isNumber);
    if (!isNumber || value < 1)
        return {};
    return QString::number(value).rightJustified(kKeyDigits, u'0');
}

QString numberOf(const SDBRecord &entry)
{
    const QString key = entry.value(SDBRecord::uniqueIncKey()).toString();
    bool isNumber = false;
    const qint64 value = key.toLongLong(&isNumber);
    return isNumber ? QString::number(value) : key;
}

bool isOwnField(const QString &name)
{
    return name == SLogger::logId() || name == SLogger::logDate() || name == SLogger::logPinDown();
}

} // namespace Brix::LogEntry
