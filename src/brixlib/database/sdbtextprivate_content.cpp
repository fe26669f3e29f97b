// SPDX-License-Identifier: MIT
// Replacing the whole content: of a file in one step, of any other device in place.
#include "sdbtext_p.h"

#include <brixlib/database/records/recordwriter_p.h>
#include <brixlib/database/storage/stagedfile_p.h>
#include <brixlib/foundation/outofmemory_p.h>

#include <brixrt/sfilehelper.h>

#include <QtCore/QFile>
#include <QtCore/QFileInfo>

#include <typeinfo>

namespace Talverine {

// A subclass may keep its content in a way of its own. A temporary file stays with the file that it
// has opened, whatever takes its name.
bool SDBTextPrivate::isPlainFile() const
{
    const QIODevice *current = device;
    return current && typeid(*current) == typeid(QFile) && QFileInfo(fileName()).isFile();
}

DBError SDBTextPrivate::replaceContent(const Write &write)
{
    isOldContentGone = false;
    if (isPlainFile()) {
        const DBError result = replaceFile(write);
        // A database that was closed is so again.
        if (result != DBError::NoError && !hasOpenDevice())
            closeDevice(device);
        return result;
    }
    isOldContentGone = true;
    const DBError emptied = truncate();
    return emptied == DBError::NoError ? write(device) : emptied;
}

DBError SDBTextPrivate::replaceFile(const Write &write)
{
    if (const DBError locked = relock(); locked != DBError::NoError)
        return locked;
    StagedFile staged(fileName());
    if (!staged.open())
        return DBError::ResetError;
    if (const DBError written = write(staged.device()); written != DBError::NoError)
        return written;
    return staged.sync() ? putInPlace(&staged) : DBError::WriteError;
}

DBError SDBTextPrivate::putInPlace(StagedFile *staged)
{
    const bool wasOpen = device->isOpen();
    // It describes a content that is about to go.
    removeIndexFile();
    device->close();
    const bool isReplaced = staged->putInPlace();
    isOpen = (isReplaced || wasOpen) && device->open(kDatabaseOpenMode);
    if (isReplaced) {
        isOldContentGone = true;
        hasIndex = isOpen;
        isHeadEndMissing = false;
        forgetRepairs();
        clearIndexes();
    }
    return isReplaced && isOpen ? DBError::NoError : DBError::ResetError;
}

DBError SDBTextPrivate::relock()
{
    if (lock)
        return DBError::NoError;
    if (!takeLock(device)) {
        abandon();
        return DBError::FileLockError;
    }
    return reopenReplacedFile();
}

DBError SDBTextPrivate::prepareReplacing()
{
    if (const DBError followed = followFile(); followed != DBError::NoError)
        return followed;
    // Who may not write must not lock others out.
    if (!mayWrite())
        return DBError::AuthError;
    if (!hasOpenDevice() || !isPlainFile())
        return DBError::NoError;
    const DBError locked = relock();
    return locked == DBError::NoError && !mayWrite() ? DBError::AuthError : locked;
}

DBError SDBTextPrivate::stageCopy(StagedFile *staged)
{
    if (!staged->open())
        return DBError::OpenError;
    if (const DBError copied = copyTo(staged->device()); copied != DBError::NoError)
        return copied;
    return staged->sync(fileName()) ? DBError::NoError : DBError::WriteError;
}

DBError SDBTextPrivate::followFile()
{
    return lock ? DBError::NoError : reopenReplacedFile();
}

DBError SDBTextPrivate::reopenReplacedFile()
{
    if (!hasOpenDevice() || !isPlainFile() ||
        SFileHelper::isSameFile(*qobject_cast<QFile *>(device), QFile(fileName())))
        return DBError::NoError;
    device->close();
    forgetRepairs();
    isHeadFromCopy = false;
    hasIndex = false;
    DBError result = device->open(kDatabaseOpenMode) ? DBError::NoError : DBError::OpenError;
    if (result == DBError::NoError)
        result = load();
    if (result != DBError::NoError)
        abandon();
    return result;
}

DBError SDBTextPrivate::rewriteSorted(SDBTextPrivate *source)
{
    KeyIndex written;
    const DBError result = replaceContent([&](QIODevice *target) {
        return orOutOfMemory(DBError::WriteError, [&] {
            return head.write(target) ? writeRecords(target, source, &written)
                                      : DBError::WriteError;
        });
    });
    if (result != DBError::NoError)
        return result;
    isHeadFromCopy = false;
    uniqueCounter = 0;
    keys = std::move(written);
    keys.forEach([this](const KeyIndex::Entry &entry) {
        noteUniqueKey(entry.key);
        return true;
    });
    return DBError::NoError;
}

DBError SDBTextPrivate::writeRecords(QIODevice *target, SDBTextPrivate *source, KeyIndex *written)
{
    bool isWritten = true;
    const DBError read = source->forEachRecord([&](const QString &, const SDBRecord &record) {
        const qint64 position = target->pos() + recordSeparator().size();
        isWritten = writeAll(target, recordSeparator() + recordLines(record, head.culture));
        if (isWritten)
            written->add(keyOf(record), position);
        return isWritten;
    });
    return isWritten ? read : DBError::WriteError;
}

} // namespace Talverine
