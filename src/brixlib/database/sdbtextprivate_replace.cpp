// SPDX-License-Identifier: MIT
/*
 * Replacing a record so that a full disk or a killed program never loses it. Only bytes that are
 * already in the file change once the new record has been written:
 *
 * 1. The new record is appended, marked as deleted and with a separator of its own.
 * 2. The key line of the old record is scrambled.
 * 3. The mark of the new record is taken off, then its separator becomes the usual one.
 *
 * Where that stops after step 2, the next open finds the separator and completes step 3. Where it
 * stops earlier, the old record stays in use. A torn new record is never in use.
 */
#include "sdbtext_p.h"

#include <brixlib/database/records/recordreader_p.h>
#include <brixlib/database/records/recordwriter_p.h>
#include <brixlib/foundation/outofmemory_p.h>

#include <brixrt/sfilehelper.h>

#include <QtCore/QBuffer>

namespace Talverine {

namespace {

constexpr int kReadPieceBytes = 65536;

// As long as recordSeparator(), and blank for every reader. The first byte ends an unfinished line.
const QByteArray &pendingSeparator()
{
    static const QByteArray bytes("\n#\r\n");
    return bytes;
}

// The mark takes the place of the blank before the value.
qsizetype markOf(const QByteArray &lines)
{
    return lines.indexOf('=') + 1;
}

} // namespace

DBError SDBTextPrivate::replace(const QString &key, SDBRecord record)
{
    return orOutOfMemory(DBError::WriteError, [&] { return replaceRecord(key, &record); });
}

DBError SDBTextPrivate::replaceRecord(const QString &key, SDBRecord *record)
{
    KeyLineBytes old;
    const DBError found = findKeyLine(key, &old);
    if (found != DBError::NoError)
        return found;
    // A new key can't be taken for the old record's: both may be in use at the same time.
    if (keyOf(*record) != key)
        return replaceByOtherKey(key, old, *record);
    if (!signForWriting(record, head.key))
        return DBError::KeyIsNull;
    QByteArray lines = recordLines(*record, head.culture);
    lines[markOf(lines)] = '$';
    qint64 position = 0;
    const DBError written = appendLines(pendingSeparator(), lines, &position);
    if (written != DBError::NoError)
        return written;
    if (!overwrite(old.position, old.dead) || !overwrite(position + markOf(lines), " ")) {
        [[maybe_unused]] const bool isBack = overwrite(old.position, old.live);
        return DBError::WriteError;
    }
    // Both separators read the same.
    [[maybe_unused]] const bool isUsual =
        overwrite(position - recordSeparator().size(), recordSeparator());
    keys.remove(key);
    addKey(key, position);
    return DBError::NoError;
}

DBError SDBTextPrivate::replaceByOtherKey(const QString &key, const KeyLineBytes &old,
                                          const SDBRecord &record)
{
    const DBError written = append(record, false);
    if (written != DBError::NoError)
        return written;
    if (overwrite(old.position, old.dead)) {
        keys.remove(key);
        return DBError::NoError;
    }
    static_cast<void>(overwrite(old.position, old.live));
    static_cast<void>(scrambleKey(keyOf(record)));
    return DBError::WriteError;
}

void SDBTextPrivate::finishReplacement(qint64 keyLine)
{
    const QByteArray &marker = pendingSeparator();
    const qint64 begin = keyLine - marker.size();
    if (begin < 0 || !device->isWritable() || !device->seek(begin) ||
        SFileHelper::readAllBuffer(device, marker.size(), kReadPieceBytes) != marker)
        return;
    QByteArray lines =
        SFileHelper::readAllBuffer(device, device->size() - keyLine, kReadPieceBytes);
    const qsizetype mark = markOf(lines);
    if (mark < 1 || mark >= lines.size() || lines.at(mark) != '$')
        return;
    lines[mark] = ' ';
    QBuffer text(&lines);
    SDBRecord record;
    if (!text.open(QIODevice::ReadOnly) || !RecordReader(&text, head.key, 0).next(&record))
        return;
    const QString key = keyOf(record);
    // A record that was not written to its end, or whose old one was not scrambled yet.
    if (!record.checkSignature() || keys.contains(key))
        return;
    if (!overwrite(keyLine + mark, " "))
        return;
    [[maybe_unused]] const bool isUsual = overwrite(begin, recordSeparator());
    addKey(key, keyLine);
}

} // namespace Talverine
