// SPDX-License-Identifier: MIT
// Single records, and where they are in the device.
#include "sdbtext_p.h"

#include <brixlib/database/records/recordreader_p.h>
#include <brixlib/database/records/recordwriter_p.h>
#include <brixlib/foundation/outofmemory_p.h>

#include <brixrt/sconvert.h>
#include <brixrt/senvironment.h>
#include <brixrt/slocale.h>

#include <QtCore/QDateTime>

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

void SDBTextPrivate::stamp(SDBRecord *record) const
{
    record->insert(SDBRecord::ownerKey(), user);
    record->insert(SDBRecord::cultureKey(), SLocale::lcName(head.culture, false));
    record->insert(SDBRecord::dateTimeKey(), QDateTime::currentDateTimeUtc());
}

DBError SDBTextPrivate::append(SDBRecord record, bool keepAsIs)
{
    return orOutOfMemory(DBError::WriteError, [&] { return appendRecord(&record, keepAsIs); });
}

DBError SDBTextPrivate::appendRecord(SDBRecord *record, bool keepAsIs)
{
    if (!keepAsIs && !signForWriting(record, head.key))
        return DBError::KeyIsNull;
    const QString key = keyOf(*record);
    qint64 position = 0;
    const DBError written =
        appendLines(recordSeparator(), recordLines(*record, head.culture), &position);
    if (written == DBError::NoError)
        addKey(key, position);
    return written;
}

// Stores in \a position where the lines begin.
DBError SDBTextPrivate::appendLines(const QByteArray &separator, const QByteArray &lines,
                                    qint64 *position)
{
    if (!settle())
        return DBError::WriteError;
    const DBError end = seekEnd();
    if (end != DBError::NoError)
        return end;
    QByteArray bytes;
    // The head would take the record for a part of it.
    if (isHeadEndMissing)
        bytes = SEnvironment::rawWindowsNewLine().toUtf8() + headEnd();
    bytes += separator;
    *position = device->pos() + bytes.size();
    if (!writeAll(device, bytes + lines)) {
        m_tornRecord = *position;
        static_cast<void>(hideTornRecord());
        return DBError::WriteError;
    }
    isHeadEndMissing = false;
    return DBError::NoError;
}

// Marks what there is of a record that could not be written as removed. Its key, or a part of it,
// would hide a later record of that key at the next open. False when that has to be tried again.
bool SDBTextPrivate::hideTornRecord()
{
    if (m_tornRecord < 0 || !hasOpenDevice())
        return true;
    // Seeking past the end of a buffer would lengthen it.
    if (m_tornRecord >= device->size()) {
        m_tornRecord = -1;
        return true;
    }
    LineReader lines(device, m_tornRecord, LineReader::kRecordBytes);
    QByteArrayView bytes;
    const bool hasLine = lines.next(&bytes);
    if (lines.hasFailed())
        return false;
    const std::optional<FieldLine> line =
        hasLine ? parseFieldLine(bytes) : std::optional<FieldLine>();
    const bool isKeyLine = line && line->name == head.key && !line->isDeletedKey();
    if (isKeyLine && !overwrite(m_tornRecord, scrambledLine(bytes.trimmed(), scramble)))
        return false;
    m_tornRecord = -1;
    return true;
}

void SDBTextPrivate::forgetRepairs()
{
    m_tornRecord = -1;
    m_repair = {};
}

bool SDBTextPrivate::overwrite(qint64 position, const QByteArray &bytes)
{
    return device->seek(position) && writeAll(device, bytes);
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
    if (keys.contains(key) && !settle())
        return DBError::WriteError;
    KeyLineBytes line;
    const DBError found = findKeyLine(key, &line);
    if (found != DBError::NoError)
        return found;
    if (!overwrite(line.position, line.dead)) {
        m_repair = {{{line.position, line.live}}, {}};
        static_cast<void>(repair());
        return DBError::WriteError;
    }
    keys.remove(key);
    return DBError::NoError;
}

DBError SDBTextPrivate::findKeyLine(const QString &key, KeyLineBytes *keyLine)
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
    *keyLine = {*position, bytes.toByteArray(), scrambledLine(bytes.trimmed(), scramble)};
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
