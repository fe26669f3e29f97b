// SPDX-License-Identifier: MIT
// Single records, and where they are in the device.
#include <brixlib/database/sdbtext_p.h>

#include <brixlib/database/recordreader_p.h>
#include <brixlib/database/recordwriter_p.h>

#include <brixrt/sconvert.h>
#include <brixrt/senvironment.h>

#include <limits>

using namespace Qt::StringLiterals;

namespace Talverine {

namespace {

// The line in no more bytes: its value's place is taken by "$" and the value's characters. Bytes
// that are no UTF-8 would become longer, so those before the value stay as they are.
QByteArray scrambledLine(QByteArrayView line, const STextScramble &scramble)
{
    const qsizetype equals = line.indexOf('=');
    const QString rest = QString::fromUtf8(line.sliced(equals)).trimmed().mid(1);
    QString value(u'$');
    if (rest.size() > 2)
        value += scramble.scramble(rest.mid(1), 0);
    return (line.first(equals + 1).toByteArray() + value.toUtf8()).left(line.size());
}

} // namespace

DBError SDBTextPrivate::seekEnd()
{
    if (!hasOpenDevice() || device->size() < 1 || !device->seek(device->size()))
        return DBError::SeekError;
    return DBError::NoError;
}

DBError SDBTextPrivate::append(SDBRecord record, bool keepAsIs)
{
    if (!keepAsIs && !signForWriting(&record, head.key))
        return DBError::KeyIsNull;
    const DBError end = seekEnd();
    if (end != DBError::NoError)
        return end;
    QByteArray bytes;
    // The head would take the record for a part of it.
    if (isHeadEndMissing)
        bytes = SEnvironment::rawWindowsNewLine().toUtf8() + headEnd();
    bytes += recordSeparator();
    const qint64 position = device->pos() + bytes.size();
    if (!writeAll(device, bytes + recordLines(record, head.culture)))
        return DBError::WriteError;
    isHeadEndMissing = false;
    addKey(keyOf(record), position);
    return DBError::NoError;
}

DBError SDBTextPrivate::search(const QString &key, SDBRecord *record)
{
    record->clear();
    if (key.isEmpty())
        return DBError::KeyIsNull;
    const std::optional<qint64> position = keys.position(key);
    if (!position)
        return DBError::RecNotFound;
    if (!hasOpenDevice())
        return DBError::SeekError;
    const qint64 before = device->pos();
    RecordReader reader(device, head.key, *position, LineReader::kRecordBytes);
    if (reader.hasFailed())
        return DBError::SeekError;
    DBError result = DBError::RecNotFound;
    while (result != DBError::NoError && reader.next(record)) {
        if (keyOf(*record) == key)
            result = DBError::NoError;
        else
            noteRead(reader);
    }
    if (reader.hasFailed())
        result = DBError::ReadError;
    if (result != DBError::NoError)
        record->clear();
    return device->seek(before) ? result : DBError::SeekError;
}

DBError SDBTextPrivate::scrambleKey(const QString &key)
{
    const std::optional<qint64> position = keys.position(key);
    if (!position)
        return DBError::RecNotFound;
    LineReader lines(hasOpenDevice() ? device.data() : nullptr, *position,
                     LineReader::kRecordBytes);
    QByteArrayView bytes;
    if (!lines.next(&bytes))
        return DBError::UnknownError;
    const std::optional<FieldLine> line = parseFieldLine(bytes);
    if (!line || line->name != head.key || line->value != key)
        return DBError::UnknownError;
    const QByteArray scrambled = scrambledLine(bytes.trimmed(), scramble);
    if (!device->seek(*position) || !writeAll(device, scrambled))
        return DBError::WriteError;
    keys.remove(key);
    return DBError::NoError;
}

QString SDBTextPrivate::keyOf(const SDBRecord &record) const
{
    return record.field(head.key).toString(true, head.culture);
}

// Empty when there is no greater number.
QString SDBTextPrivate::nextUniqueKey()
{
    if (uniqueCounter == std::numeric_limits<qint64>::max())
        return QString();
    return SConvert::toString(QVariant(++uniqueCounter), u"D16"_s, head.culture);
}

} // namespace Talverine
