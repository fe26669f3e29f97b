// SPDX-License-Identifier: MIT
/*
 * Replacing a record so that a full disk or a killed program never loses it. Only bytes that are
 * already in the file change once the new record has been written:
 *
 * 1. The new record is appended, marked as removed.
 * 2. One byte of its separator becomes "#". This decides the replacement.
 * 3. The key line of the old record is scrambled.
 * 4. The mark of the new record is taken off.
 * 5. The byte of step 2 gets its usual value.
 *
 * What stops before step 2 leaves a removed record. What stops later leaves the "#", and the next
 * open completes the replacement. No other change is made to the file while the "#" is there: a
 * record that is removed then would be taken for one of step 3 or 4.
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

// The byte of a separator that decides a replacement, counted back from the key line. The line end
// before it ends an unfinished line; with "#" the line is a comment.
constexpr qsizetype kDecisionOffset = 2;

QByteArray decidedSeparator()
{
    QByteArray bytes = recordSeparator();
    bytes[bytes.size() - kDecisionOffset] = '#';
    return bytes;
}

QByteArray usualByte()
{
    return recordSeparator().last(kDecisionOffset).first(1);
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
    const DBError written = appendLines(recordSeparator(), lines, &position);
    if (written != DBError::NoError)
        return written;
    const qint64 decision = position - kDecisionOffset;
    const qint64 mark = position + markOf(lines);
    const bool isReplaced =
        overwrite(decision, "#") && overwrite(old.position, old.dead) && overwrite(mark, " ");
    if (isReplaced)
        m_repair = {{{decision, usualByte()}}, {}};
    else
        m_repair = {{{old.position, old.live}, {mark, "$"}, {decision, usualByte()}}, {}};
    // What fails is done before the next change.
    static_cast<void>(repair());
    if (!isReplaced)
        return DBError::WriteError;
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
    m_repair = {{{old.position, old.live}}, {}};
    // The new one stays if the old one can't be put back before.
    static_cast<void>(scrambleKey(keyOf(record)));
    return DBError::WriteError;
}

bool SDBTextPrivate::repair()
{
    QList<Patch> &patches = m_repair.patches;
    while (!patches.isEmpty()) {
        if (!hasOpenDevice() || !overwrite(patches.first().position, patches.first().bytes))
            return false;
        patches.removeFirst();
    }
    if (!m_repair.entry.key.isEmpty()) {
        keys.remove(m_repair.entry.key);
        addKey(m_repair.entry.key, m_repair.entry.position);
        m_repair.entry = {};
    }
    return true;
}

bool SDBTextPrivate::isDecided(qint64 keyLine)
{
    const QByteArray separator = decidedSeparator();
    const qint64 begin = keyLine - separator.size();
    return begin >= 0 && device->isWritable() && device->seek(begin) &&
           SFileHelper::readAllBuffer(device, separator.size(), kReadPieceBytes) == separator;
}

DBError SDBTextPrivate::finishReplacement(qint64 keyLine)
{
    if (!isDecided(keyLine))
        return DBError::NoError;
    // Without the lock, another program may be in the middle of it.
    const bool wasLocked = lock != nullptr;
    if (!takeLock(device))
        return DBError::NoError;
    DBError result = DBError::NoError;
    if (isDecided(keyLine))
        result = planRepair(keyLine);
    // What fails is done before the next change.
    static_cast<void>(repair());
    if (!wasLocked)
        lock.reset();
    return result;
}

DBError SDBTextPrivate::planRepair(qint64 keyLine)
{
    m_repair = {{{keyLine - kDecisionOffset, usualByte()}}, {}};
    if (!device->seek(keyLine))
        return DBError::SeekError;
    QByteArray lines =
        SFileHelper::readAllBuffer(device, device->size() - keyLine, kReadPieceBytes);
    const qsizetype mark = markOf(lines);
    // The mark is off already.
    if (mark < 1 || mark >= lines.size() || lines.at(mark) != '$')
        return DBError::NoError;
    lines[mark] = ' ';
    QBuffer text(&lines);
    SDBRecord record;
    // A machine that stopped may have kept the decision and lost a part of the record.
    if (!text.open(QIODevice::ReadOnly) || !RecordReader(&text, head.key, 0).next(&record) ||
        !record.checkSignature())
        return DBError::NoError;
    const QString key = keyOf(record);
    KeyLineBytes old;
    const DBError found = findKeyLine(key, &old);
    if (found != DBError::NoError && found != DBError::RecNotFound)
        return found;
    m_repair.patches.prepend({keyLine + mark, " "});
    if (found == DBError::NoError)
        m_repair.patches.prepend({old.position, old.dead});
    else
        addKey(key, keyLine);
    m_repair.entry = {key, keyLine};
    return DBError::NoError;
}

} // namespace Talverine
