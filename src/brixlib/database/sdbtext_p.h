// SPDX-License-Identifier: MIT
#pragma once

#include "databasehead_p.h"
#include <brixlib/compression/compressionalgorithm.h>
#include <brixlib/database/dberror.h>
#include <brixlib/database/index/fieldindexes_p.h>
#include <brixlib/database/index/keyindex_p.h>
#include <brixlib/database/records/stextscramble.h>

#include <QtCore/QIODevice>
#include <QtCore/QLockFile>
#include <QtCore/QMutex>
#include <QtCore/QPointer>

#include <functional>
#include <memory>

class QFile;

namespace Talverine {

struct KeyLine;
class RecordReader;
class SCrc32;
class StagedFile;

//! Pieces in which whole databases are copied.
inline constexpr int kCopyPieceBytes = 32768;

// Each record is one write. Buffered, its failure would show with a later operation or never, and a
// killed program would lose it.
inline constexpr QIODevice::OpenMode kDatabaseOpenMode =
    QIODevice::ReadWrite | QIODevice::Unbuffered;

/*!
 * The state of a database and what is done with its device. It knows neither signals nor
 * permissions to act: SDBText asks for these first, with the mutex held.
 *
 * How each operation ended is its result; the caller keeps it in error.
 */
class SDBTextPrivate
{
public:
    SDBTextPrivate() = default;
    Q_DISABLE_COPY_MOVE(SDBTextPrivate)

    // The user
    void setUser(const QString &name, const QString &secret);
    bool isOwner() const;
    //! What a database of the user's has for a password; nothing without one.
    QString headPassword() const { return password.isEmpty() ? QString() : m_passwordHash; }
    bool mayRead() const;
    bool mayWrite() const;
    bool mayInsert() const;
    //! Whether the record of \a key is the user's own, and the user may change such.
    bool mayWriteOwn(const QString &key);

    // The device
    bool isNull() const { return !device || !isOpen; }
    //! Whether \a other is the device of this database, or another device on the same file.
    bool isOwnDevice(const QIODevice *other) const;
    //! Whether the device could not be opened as a database. Its content must not be replaced.
    bool isForeign() const { return device && head.key.isEmpty(); }
    //! As !isNull(), and nobody has closed the device meanwhile.
    bool hasOpenDevice() const { return device && device->isOpen(); }
    //! As isOwnDevice(), also when the file of the open database was removed from its directory:
    //! creating a database there needs the lock that this one has.
    bool isOwnPlace(const QIODevice *other) const;
    QString fileName() const;
    DBError openDevice();
    //! Locks and opens \a target with \a mode; \a failure is what not being able to open is called.
    DBError openEmpty(QIODevice *target, DBError failure);
    //! Writes an empty database and closes it: opening it afterwards proves what was written.
    DBError writeEmpty(QIODevice *target, const DatabaseHead &newHead);
    //! Closes the device and saves its index.
    void close();
    //! Closes \a target, which may be another device, and lets go of the lock.
    void closeDevice(QIODevice *target);
    //! Closes the device of a file that belongs to another program now, and discards the indexes:
    //! no index is saved beside that file.
    void abandon();
    DBError seekEnd();
    //! Makes the device empty, and the indexes with it.
    DBError truncate();

    // The whole content
    //! Writes a content to an open device.
    using Write = std::function<DBError(QIODevice *target)>;
    //! Whether the content can be replaced in one step: that of a QFile of a regular file.
    bool isPlainFile() const;
    /*!
     * Replaces the whole content by what \a write writes. A plain file has its old content until
     * the new one is on the disk, keeps it when this fails, and is open and locked afterwards. Any
     * other device is emptied first. The indexes are empty then.
     */
    DBError replaceContent(const Write &write);
    //! Replaces the content of a plain file by the head and the records of \a source, in the order
    //! of their keys and otherwise unchanged.
    DBError rewriteSorted(SDBTextPrivate *source);
    //! Copies the database to a staged file, up to its sync(). Unlike copyToClosed(), keeps the
    //! lock.
    DBError stageCopy(StagedFile *staged);
    //! Takes the lock again that a backup has let go of, and follows the file. Closes the device if
    //! another program has the lock.
    DBError relock();
    //! Relocks a plain file that is open and asks for the right to write, whose answer may be
    //! another one by then. Returns what forbids replacing the content, or NoError.
    DBError prepareReplacing();
    //! Opens the file again if it is not locked and another program has replaced it meanwhile, and
    //! reads its head and its keys. Closes the device if that fails.
    DBError followFile();

    // The head
    //! Reads the head of the open device, or its copy, and the index.
    DBError load();
    void saveHeadCopy();
    //! What forbids a backup to \a target, or NoError.
    DBError faultOfBackup(const QIODevice *target) const;
    //! What forbids a restore from \a source, or NoError.
    DBError faultOfSource(const QIODevice *source) const;
    //! Copies the whole device to the open \a target; a head of its own first if this one's is
    //! damaged.
    DBError copyTo(QIODevice *target);
    //! The same, opening \a target if need be and closing it. Lets go of the lock unless \a
    //! keepsLock.
    DBError copyToClosed(QIODevice *target, bool keepsLock);

    // Records
    //! Notes in \a record who writes it, when, and in which culture.
    void stamp(SDBRecord *record) const;
    DBError append(SDBRecord record, bool keepAsIs);
    DBError search(const QString &key, SDBRecord *record);
    DBError scrambleKey(const QString &key);
    //! Scrambles the record of \a key and appends \a record, of this key or of a new one. On an
    //! error the old record stays.
    DBError replace(const QString &key, SDBRecord record);
    QString keyOf(const SDBRecord &record) const;
    QString nextUniqueKey();
    /*!
     * Calls \a use with each key and record, in the order of keys, until it gives false. A read
     * that fails ends it too, with its error: a part must not pass for all. A record that the file
     * does not hold under its key is passed over.
     */
    template<typename Use>
    DBError forEachRecord(Use use);

    // Indexes
    void addKey(const QString &key, qint64 position);
    void clearIndexes();
    //! Reads all keys from the text, which \a crc follows.
    DBError createIndex(SCrc32 *crc = nullptr);
    //! Has the indexes from their file or, when that is not to be used, at times from the text
    //! already; false when they are to be created yet.
    bool loadIndex();
    //! Saves the index of the database that was closed, or removes one that would not fit.
    void saveIndex();
    QByteArray deviceHash();
    //! Makes the index of a field fit for use; those of a closed database are not.
    DBError prepareFieldIndex(const QString &name);

    DatabaseHead head;
    QString user = QStringLiteral("Everybody");
    QString password;
    STextScramble scramble;
    KeyIndex keys;
    FieldIndexes fields;
    DBError error = DBError::NoError;
    QPointer<QIODevice> device;
    QRecursiveMutex mutex;
    std::unique_ptr<QLockFile> lock;
    bool isOpen = false;
    qint64 uniqueCounter = 0;
    std::unique_ptr<QIODevice> ownDevice;
    bool isHeadFromCopy = false;
    bool mayReadHeadCopy = true;   //!< whether the copy may replace a head that can't be read
    bool isOldContentGone = false; //!< the last replaceContent() came so far
    bool isHeadEndMissing = false; //!< the file ends before the line that ends its head
    bool hasIndex = false;         //!< the indexes are those of the device
    Compression::CompressionAlgorithm backupCompressor =
        Compression::CompressionAlgorithm::Uncompressed;

private:
    //! A key line as it is, and as that of a removed record, in as many bytes or fewer.
    struct KeyLineBytes
    {
        qint64 position = 0;
        QByteArray live;
        QByteArray dead;
    };
    //! Bytes to be written over those of the file.
    struct Patch
    {
        qint64 position = 0;
        QByteArray bytes;
    };
    //! What remains of a replacement, and the key line that is in use afterwards.
    struct Repair
    {
        QList<Patch> patches;
        KeyIndex::Entry entry;
    };

    DBError appendRecord(SDBRecord *record, bool keepAsIs);
    DBError replaceRecord(const QString &key, SDBRecord *record);
    DBError findKeyLine(const QString &key, KeyLineBytes *line);
    DBError appendLines(const QByteArray &separator, const QByteArray &lines, qint64 *position);
    bool hideTornRecord();
    bool overwrite(qint64 position, const QByteArray &bytes);
    DBError replaceByOtherKey(const QString &key, const KeyLineBytes &old, const SDBRecord &record);
    //! Completes the replacement that was interrupted after its decision, or clears the decision,
    //! if there is one at the last key line of the file, \a keyLine.
    DBError finishReplacement(qint64 keyLine);
    bool isDecided(qint64 keyLine);
    DBError planRepair(qint64 keyLine);
    //! Does what has to come before any other change to the file; false if it has to be tried
    //! again.
    bool settle() { return hideTornRecord() && repair(); }
    bool repair();
    //! What was to be done was in a file that is no longer that of the database.
    void forgetRepairs();
    bool takeLock(QIODevice *target);
    DBError replaceFile(const Write &write);
    DBError reopenReplacedFile();
    DBError putInPlace(StagedFile *staged);
    DBError writeRecords(QIODevice *target, SDBTextPrivate *source, KeyIndex *written);
    void removeIndexFile();
    SDBRecord readHeadRecord();
    SDBRecord readHeadCopy();
    bool readIndex(QIODevice *file);
    QByteArray hashCreatingIndex();
    bool writeIndexFile();
    DBError buildStaleFieldIndexes();
    bool loadKey(const KeyLine &line);
    void noteUniqueKey(const QString &key);
    void noteRead(const RecordReader &reader);

    QString m_passwordHash;
    QString m_lockName;       //!< of the lock's file
    qint64 m_tornRecord = -1; //!< where a record begins that could not be written, or -1
    Repair m_repair;
};

template<typename Use>
DBError SDBTextPrivate::forEachRecord(Use use)
{
    SDBRecord record;
    for (QString key = keys.first(); !key.isEmpty(); key = keys.above(key)) {
        const DBError found = search(key, &record);
        if (found == DBError::RecNotFound)
            continue;
        if (found != DBError::NoError)
            return found;
        if (!use(key, record))
            break;
    }
    return DBError::NoError;
}

//! The file that lies beside that of \a device under its name and \a suffix; empty for a device
//! that is no file.
QString companionFile(const QIODevice *device, QLatin1String suffix);

//! Opens such a file, or a backup, for writing, empty, with the permissions of the \a database.
[[nodiscard]] bool openCompanion(QFile *file, const QIODevice *database);

} // namespace Talverine
