// SPDX-License-Identifier: MIT
#include "plainrecords.h"

#include <algorithm>

using namespace Talverine;

namespace Fuzz {

namespace {

// Without a name when the line gives no field a value.
SDBField fieldOf(const QByteArray &line)
{
    const QString text = QString::fromUtf8(line).trimmed();
    return text.startsWith(u'#') ? SDBField() : SDBField::fromString(text);
}

// The lines of one name are an array.
void addTo(SDBRecord *record, const SDBField &field)
{
    QList<QVariant> values = record->field(field.key()).valueList();
    values.append(field.value());
    record->insert(field.key(), values.size() == 1 ? values.first() : QVariant(values));
}

} // namespace

QList<PlainRecord> plainRecords(const QByteArray &file, const QString &keyName, qint64 recordLimit)
{
    QList<PlainRecord> records;
    bool isInRecord = false;
    qint64 recordBytes = 0;
    qint64 position = 0;
    for (const QByteArray &line : file.split('\n')) {
        const SDBField field = fieldOf(line);
        if (!field.isNull() && field.key() == keyName) {
            const QString key = field.value().toString();
            isInRecord = !key.startsWith(u'$');
            recordBytes = 0;
            if (isInRecord)
                records.append({position, key, {}});
        } else if (!field.isNull()) {
            recordBytes += line.size();
            isInRecord = isInRecord && recordBytes <= recordLimit;
        }
        if (isInRecord && !field.isNull())
            addTo(&records.last().record, field);
        position += line.size() + 1;
    }
    return records;
}

bool isMarked(const QString &name)
{
    return name.startsWith(QChar(QChar::ByteOrderMark));
}

bool hasMarkedName(const SDBRecord &record)
{
    const QList<QString> &names = record.names();
    return std::any_of(names.begin(), names.end(), isMarked);
}

} // namespace Fuzz
