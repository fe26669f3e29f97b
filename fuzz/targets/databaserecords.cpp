// SPDX-License-Identifier: MIT
// The reader of a database's records. The first bytes of an input are the number of the key field's
// name, the size of the blocks that are read, and a limit of the record's bytes or 0; then comes
// the file.
#include "../fuzztarget.h"
#include "../inputforms.h"
#include "../plainrecords.h"
#include "../targets.h"

#include <brixlib/database/records/recordreader_p.h>
#include <brixlib/database/records/recordwriter_p.h>

#include <QtCore/QBuffer>

#include <algorithm>
#include <iterator>

using namespace Talverine;

namespace Fuzz {

namespace {

// Enough to come by everything; an input may have a thousand records.
constexpr qsizetype kRecordsLookedAt = 16;

// How a file is to be read.
struct Reading
{
    QString keyName;
    qsizetype blockBytes = LineReader::kScanBytes;
    qint64 recordLimit = std::numeric_limits<qint64>::max();
};

QBuffer &openedOn(QBuffer &buffer, const QByteArray &file)
{
    buffer.setData(file);
    require(buffer.open(QIODevice::ReadOnly), "a buffer can't be opened");
    return buffer;
}

QList<PlainRecord> read(const QByteArray &file, const Reading &reading, qint64 from = 0)
{
    QBuffer buffer;
    RecordReader reader(&openedOn(buffer, file), reading.keyName, from, reading.blockBytes);
    reader.setRecordLimit(reading.recordLimit);
    QList<PlainRecord> records;
    SDBRecord record;
    while (reader.next(&record))
        records.append({reader.position(), reader.key(), record});
    require(!reader.hasFailed() && record.isEmpty(), "a record remains behind the last one");
    return records;
}

// The keys of the index are found without reading the records.
void requireSameKeys(const QByteArray &file, const Reading &reading,
                     const QList<PlainRecord> &records)
{
    QBuffer buffer;
    KeyLineScanner scanner(&openedOn(buffer, file), reading.keyName, 0, reading.blockBytes);
    auto record = records.begin();
    while (const std::optional<KeyLine> line = scanner.next()) {
        if (line->field.isDeletedKey())
            continue;
        require(record != records.end() && record->position == line->position &&
                    record->key == line->field.value.toString(),
                "a key line is of no record");
        ++record;
    }
    require(record == records.end(), "a record has no key line");
}

void requireFoundAgain(const QByteArray &file, const Reading &reading, const PlainRecord &expected)
{
    QBuffer buffer;
    RecordReader reader(&openedOn(buffer, file), reading.keyName, expected.position,
                        reading.blockBytes);
    reader.setRecordLimit(reading.recordLimit);
    SDBRecord record;
    require(reader.next(&record) && record == expected.record &&
                reader.position() == expected.position,
            "a record is another one at its place");
}

QList<SDBRecord> readAgain(const QList<SDBRecord> &records, const QString &keyName)
{
    QByteArray file;
    for (const SDBRecord &record : records)
        file += recordSeparator() + recordLines(record, QLocale::c());
    QList<SDBRecord> again;
    for (const PlainRecord &record : read(file, {keyName}))
        again.append(record.record);
    return again;
}

// What was read, as it is and signed, is the same when it has been written and read.
void requireRoundTrip(const QList<PlainRecord> &records, const QString &keyName)
{
    QList<SDBRecord> list;
    for (const PlainRecord &record : records) {
        if (!hasMarkedName(record.record))
            list.append(record.record);
    }
    require(readAgain(list, keyName) == list, "records change when they are written");

    list.resize(std::min(list.size(), kRecordsLookedAt));
    for (SDBRecord &record : list) {
        record.checkSignature();
        require(signForWriting(&record, keyName), "a record can't be signed");
    }
    const QList<SDBRecord> again = readAgain(list, keyName);
    require(again == list, "signed records change when they are written");
    for (const SDBRecord &record : again)
        require(record.checkSignature(), "a signature does not fit when it has been written");
}

} // namespace

bool databaseRecords(const QByteArray &input)
{
    Input bytes(input);
    const QString keyName =
        kKeyNamesOfInputs[bytes.byte() % std::size(kKeyNamesOfInputs)].toString();
    Reading reading{keyName, 1 + bytes.byte()};
    if (const int limit = bytes.byte(); limit > 0)
        reading.recordLimit = limit;
    const QByteArray file = bytes.rest();

    const QList<PlainRecord> records = plainRecords(file, keyName, reading.recordLimit);
    require(read(file, reading) == records, "records are read otherwise in small blocks");
    require(read(file, {keyName, LineReader::kScanBytes, reading.recordLimit}) == records,
            "records are read otherwise");
    requireSameKeys(file, reading, records);
    for (const PlainRecord &record : records.first(std::min(records.size(), kRecordsLookedAt)))
        requireFoundAgain(file, reading, record);
    requireRoundTrip(records, keyName);
    return !records.isEmpty();
}

} // namespace Fuzz
