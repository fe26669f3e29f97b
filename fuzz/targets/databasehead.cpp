// SPDX-License-Identifier: MIT
// The reader of what stands before the records of a database: an input is the file.
#include "../fuzztarget.h"
#include "../plainrecords.h"
#include "../targets.h"

#include <brixlib/database/databasehead_p.h>

#include <QtCore/QBuffer>

using namespace Talverine;

namespace Fuzz {

namespace {

SDBRecord read(const QByteArray &file)
{
    QBuffer buffer;
    buffer.setData(file);
    require(buffer.open(QIODevice::ReadOnly), "a buffer can't be opened");
    return readSpecialRecord(&buffer);
}

QByteArray written(const DatabaseHead &head)
{
    QBuffer buffer;
    require(buffer.open(QIODevice::WriteOnly) && head.write(&buffer), "a head can't be written");
    return buffer.data();
}

void requireRoundTrip(const DatabaseHead &head)
{
    const QByteArray file = written(head);
    const SDBRecord record = read(file);
    require(record.checkSignature(), "the signature of a head does not fit");
    const DatabaseHead again = DatabaseHead::fromRecord(record);
    require(again == head, "a head changes when it is written");
    require(written(again) == file, "a head is written otherwise the second time");
}

} // namespace

bool databaseHead(const QByteArray &input)
{
    const SDBRecord record = read(input);
    const QList<PlainRecord> records =
        plainRecords(input, specialFieldName(DatabaseSpecialRecordField::dbKey));
    require(record == (records.isEmpty() ? SDBRecord() : records.first().record),
            "a head is read otherwise");
    if (record.isEmpty())
        return false;
    const DatabaseHead head = DatabaseHead::fromRecord(record);
    requireRoundTrip(head);
    return record.checkSignature() && !head.key.isEmpty();
}

} // namespace Fuzz
