// SPDX-License-Identifier: MIT
#pragma once

#include <brixlib/brixlib_export.h>
#include <brixlib/compression/compressionalgorithm.h>
#include <brixlib/database/isdatabase.h>
#include <brixlib/database/sdbiterator.h>
#include <brixlib/database/sdbreverseiterator.h>

#include <memory>

namespace Talverine {

struct DatabaseHead;
class SDBTextPrivate;
class StagedFile;

/*!
 * A database in one text file that can be read in an editor. Records are signed and appended; a
 * removed one has its key line scrambled and the rest of it stays in the file until purge(). Only
 * the keys are held in memory.
 *
 *     SDBText database;
 *     database.authenticate("ada", "secret");
 *     if (!database.create("inks.db", "name", DBAuthGrants::ReadOnly))
 *         return false;
 *     SDBRecord ink;
 *     ink.insert("name", "cyan");
 *     ink.insert("level", 12);
 *     database.insert(ink);
 *
 * Each inserted record gets the fields of SDBRecord's static names: its owner, the culture that its
 * values are written in, the time, and the signature. Names that begin with "_" are the database's.
 * What the file can't hold, and nothing refuses: a line feed in a value (what follows it is read as
 * further fields or records), blanks at the ends of one, a "." or "=" in a name, a key that begins
 * with "$". Values come back as text.
 *
 * While it is open, "FILE.lck" keeps other programs out; "FILE.srec" holds a copy of the head, for
 * when that is damaged, and "FILE.idx" the index since the last close(). A database on a device
 * that is no file has none of these.
 *
 * Inserted records are not flushed to the disk. A program that is killed loses none of them; a
 * machine that stops may leave the last one without its end, which SDBRecord::checkSignature()
 * returns false for.
 *
 * purge(), clear(), restore() without merging and operator=() replace the whole content. That of a
 * file is written to "FILE.brixnew", flushed to the disk and renamed: whatever stops the program or
 * the machine, the file has the old content or the new one. On an error the old content stays, and
 * the database is open as before. If another program has locked or replaced the file since a
 * backup() and it can't be used, the database is closed and without keys, and databaseClosed() is
 * not emitted. If open() has failed, clear(), restore() and operator=() fail with KeyIsNull and
 * leave the file as it is. Owner, group and permissions stay; of a symbolic link the target is
 * replaced; other hard links of the file keep the old content. A device of any other class than
 * QFile itself is emptied and rewritten, and loses its content when that is stopped.
 *
 * Thread: fully shared; the device of open() is used in the thread that calls.
 */
class BRIXLIB_EXPORT SDBText : public Interfaces::ISDatabase
{
    Q_OBJECT
    Q_INTERFACES(Talverine::Interfaces::ISDatabase)

public:
    //! The names of the special record's fields.
    static const QString Version;
    static const QString Password;
    static const QString Owner;
    static const QString Grants;
    static const QString Key;
    static const QString Culture;

    //! A null database of the user "Everybody" without a password.
    explicit SDBText(QObject *parent = nullptr);
    //! A copy in memory, by operator=().
    SDBText(const SDBText &other);
    //! Closes the database.
    ~SDBText() override;

public Q_SLOTS:
    bool close() override;

public:
    bool open(const QString &fileName) override;
    bool open(QIODevice *device) override;
    bool create(const QString &fileName, const QString &key,
                DBAuthGrants grants = DBAuthGrants::All,
                const QLocale &locale = QLocale(QLocale::English, QLocale::UnitedStates),
                const QString &version = QString()) override;
    bool create(QIODevice *device, const QString &key, DBAuthGrants grants = DBAuthGrants::All,
                const QLocale &locale = QLocale(QLocale::English, QLocale::UnitedStates),
                const QString &version = QString()) override;
    /*!
     * The owner is whoever has the owner's name, in any case, and password. A user who is not the
     * owner gets false here and can still do what the database grants.
     */
    bool authenticate(const QString &user, const QString &password) override;

    //! Under unique keys, an empty key makes a record of the field.
    bool insert(const QString &key, const SDBField &field) override;
    //! A database whose key is SDBRecord::UniqueIncKey gives the record a key of 16 digits.
    bool insert(const SDBRecord &record) override;
    //! Removes the old record and inserts the new one: recordInserted() alone is emitted.
    bool replace(const SDBRecord &record) override;
    bool remove(const QString &key) override;
    bool remove(const SDBRecord &record) override;
    //! ResetError when the file can't be replaced, WriteError when the new content can't be
    //! written. On another device than a file, closes the database when the new head can't be
    //! written.
    bool purge() override;
    //! As purge().
    bool clear() override;

    bool contains(const QString &key) const override;
    bool contains(const SDBRecord &record) const override;
    bool first(SDBRecord &record) override;
    bool last(SDBRecord &record) override;
    bool next(const QString &key, SDBRecord &record) override;
    bool previous(const QString &key, SDBRecord &record) override;
    bool value(const QString &key, SDBRecord &record) override;
    //! The record of \a key, or an empty one.
    SDBRecord operator[](const QString &key);

    //! Iterators over the records in the order of their keys; end() is on an empty record.
    SDBIterator begin();
    SDBIterator end();
    SDBReverseIterator rbegin();
    SDBReverseIterator rend();
    //! An iterator on the record of the \a index-th key, on an empty record when there is none.
    SDBIterator find(int index);

    DBError error() const override;
    int count() const override;
    QLocale culture() const override;
    QString owner() const override;
    QString version() const override;
    QString key() const override;
    //! The file that was opened last; empty for a device that is no file.
    QString fileName() const;

    /*!
     * A closed \a device is opened, emptied and closed again, one that is open is written to from
     * where it stands, and closed. With a compressor it has to be closed. Afterwards this database
     * is open still, but no longer locked: another program may open the file, and when that
     * replaces the file, each operation here first opens the new one. With \a clearAfter the
     * database is locked before it is copied and stays locked, and a backup in a file is flushed to
     * the disk before the database is cleared.
     */
    bool backup(QIODevice *device, bool clearAfter = false) override;
    //! A new file gets the permissions of the database's.
    bool backup(const QString &fileName, bool clearAfter = false) override;
    /*!
     * Knows compressed backups by itself; a plain one is opened as any database is, has to allow
     * writing and gets companions when it is a file. With \a merge, records come in as inserted
     * anew, each in place of that of its key; under unique keys, all of them with new keys. What
     * stops that halfway leaves the records that came till then. Without \a merge, the content is
     * replaced as by purge().
     */
    bool restore(QIODevice *device, bool merge = false) override;
    bool restore(const QString &fileName, bool merge = false) override;
    //! Zip, Lz4 or Uncompressed, the default.
    Compression::CompressionAlgorithm backupCompressor() const;

public Q_SLOTS:
    //! Any other algorithm means Uncompressed.
    void setBackupCompressor(Talverine::Compression::CompressionAlgorithm algorithm);
#ifdef Q_MOC_RUN
    // The same slot under its short signature, for callers by name.
    void setBackupCompressor(Compression::CompressionAlgorithm algorithm);
#endif

public:
    bool isEmpty() const override;
    bool isNull() const override;
    DBAuthGrants grants() const override;

    bool addFieldIndex(const QString &name) override;
    bool delFieldIndex(const QString &name) override;
    bool isFieldIndexed(const QString &name) override;
    /*!
     * The records of a text come the latest first. The index does not follow replace() and
     * remove(): until it is built anew, it gives a record under the texts it had too, and under one
     * that it kept twice.
     */
    bool searchField(const SDBField &field, QList<SDBRecord> &records) override;
    //! Indexes the field from now on. The texts of removed records may be among the values.
    QList<SDBField> values(const QString &name) override;
    QList<QString> fieldsIndexed() const override;
    qint64 bytes() const override;

public Q_SLOTS:
    //! Makes all field indexes be built anew too.
    bool reindex() override;

public:
    //! Whether both have the same settings and equal records; false without the right to read both.
    bool operator==(const SDBText &other) const;
    bool operator!=(const SDBText &other) const
    {
        return !(*this == other);
    }
    /*!
     * Takes the records, settings, user and field indexes of \a other; what was in this database's
     * file or device is lost. Without either it gets a place in memory. Needs the right to write to
     * both.
     */
    SDBText &operator=(const SDBText &other);
    /*!
     * A copy in memory with the records of \a other, or without those of the same keys; null, with
     * the reason in its error(), when this database can't be copied.
     */
    SDBText operator+(const SDBText &other) const;
    SDBText operator-(const SDBText &other) const;
    //! Adds the records of \a other whose keys aren't here, unchanged.
    SDBText &operator+=(const SDBText &other);
    //! Removes the records whose keys \a other has.
    SDBText &operator-=(const SDBText &other);

private:
    friend class SLogger;

    //! Whether the whole content may be replaced now; error() tells why not. Locks the file.
    bool isReplaceable();
    bool stageCopy(StagedFile *staged);
    //! Whether the last assignment, even one that failed, has replaced the old content.
    bool isOldContentGone() const;
    bool init(QIODevice *device);
    bool createOn(QIODevice *device, const QString &key, DBAuthGrants grants, const QLocale &locale,
                  const QString &version);
    bool createInPlace(QIODevice *device, const DatabaseHead &head);
    bool returnBool(DBError error);
    bool _insert(const SDBRecord &record, bool notify);
    bool _remove(const QString &key, bool notify);
    bool _replace(const SDBRecord &record, bool notify);
    void finishInsert(const SDBRecord &record, bool notify);
    bool walkTo(const QString &key, SDBRecord *record);
    bool followFile();
    bool areFollowed(const SDBText &other) const;
    bool purgeFile(const SDBText &copy);
    bool purgeInPlace(const SDBText &copy);
    bool assign(const SDBText &other);
    bool add(const SDBText &other);
    bool subtract(const SDBText &other);
    bool mergeFrom(const SDBText &other);
    bool replaceBy(const SDBText &other);

    std::unique_ptr<SDBTextPrivate> d;
};

} // namespace Talverine
