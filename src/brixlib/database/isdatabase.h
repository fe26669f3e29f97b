// SPDX-License-Identifier: MIT
#pragma once

#include <brixlib/brixlib_export.h>
#include <brixlib/database/dbauthgrants.h>
#include <brixlib/database/dberror.h>
#include <brixlib/database/records/sdbrecord.h>

#include <QtCore/QList>
#include <QtCore/QLocale>
#include <QtCore/QObject>
#include <QtCore/QString>

class QIODevice;

namespace Talverine::Interfaces {

/*!
 * A keyed store of records in one file or device, which belongs to an owner and grants other users
 * some rights.
 *
 * A database is null until open() or create() succeeds, and again after close(). Operations that
 * can fail return false, or an empty result, and leave the reason in error(); what is said of
 * failures below names that reason. Reading needs the right to read, else AuthError; changing
 * needs that to write, or to write one's own records.
 *
 * Implementations are fully shared between threads: each operation is one step for the others.
 * Signals are emitted in the thread that called.
 */
class BRIXLIB_EXPORT ISDatabase : public QObject
{
    Q_OBJECT

public:
    explicit ISDatabase(QObject *parent = nullptr);
    ~ISDatabase() override;

public Q_SLOTS:
    //! Closes the database, then emits databaseClosed(), also when nothing was open. Always true.
    virtual bool close() = 0;

public:
    /*!
     * Closes what was open and opens a database that exists; emits databaseOpened() with the
     * result. A missing file is FileNotFound, which changes and emits nothing, one that another
     * program has open FileLockError, a file that is no database WrongDB, one with a changed head
     * SignError.
     */
    virtual bool open(const QString &fileName) = 0;
    //! The same on a device, which stays the caller's and must outlive the open database.
    virtual bool open(QIODevice *device) = 0;
    /*!
     * Makes an empty database of the records' key field \a key and opens it; what was in the file
     * is lost. The user of authenticate() becomes its owner; with an empty password nobody does.
     * \a locale is what values are written in, \a version any text of the program's. Emits
     * databaseOpened() with the result, unless the empty database could not be written: then the
     * database that was open stays open, unless it is the one to be overwritten. CreateError, and
     * nothing is written, when the settings have more than 1 MiB together, which could not be read.
     */
    virtual bool create(const QString &fileName, const QString &key,
                        DBAuthGrants grants = DBAuthGrants::All,
                        const QLocale &locale = QLocale(QLocale::English, QLocale::UnitedStates),
                        const QString &version = QString()) = 0;
    virtual bool create(QIODevice *device, const QString &key,
                        DBAuthGrants grants = DBAuthGrants::All,
                        const QLocale &locale = QLocale(QLocale::English, QLocale::UnitedStates),
                        const QString &version = QString()) = 0;
    /*!
     * Names the user of what follows. On an open database the result is whether that is its owner,
     * whatever others are granted; on a null one whether \a user isn't empty. Emits
     * userAutenticated() with the result.
     */
    virtual bool authenticate(const QString &user, const QString &password) = 0;

    //! Sets \a field in the record of \a key, which is made when there is none.
    virtual bool insert(const QString &key, const SDBField &field) = 0;
    //! Adds a record. RecExist when there is one of its key, KeyIsNull without a key.
    virtual bool insert(const SDBRecord &record) = 0;
    //! Takes the place of the record of the same key; RecNotFound when there is none. On an error
    //! the old record stays, WriteError on a full disk.
    virtual bool replace(const SDBRecord &record) = 0;
    //! Removes the record of a key; RecNotFound when there is none.
    virtual bool remove(const QString &key) = 0;
    virtual bool remove(const SDBRecord &record) = 0;
    //! Rewrites the file without what was removed, in the order of keys.
    virtual bool purge() = 0;
    //! Removes all records.
    virtual bool clear() = 0;

    virtual bool contains(const QString &key) const = 0;
    //! Whether there is a record of the same key.
    virtual bool contains(const SDBRecord &record) const = 0;
    //! The record of the lowest key, keys in the order of QString.
    virtual bool first(SDBRecord &record) = 0;
    //! The record of the highest key.
    virtual bool last(SDBRecord &record) = 0;
    /*!
     * The record behind that of \a key, the first one for an empty key. At the end, and behind a
     * key that isn't there, \a record is cleared, with RecNotFound.
     */
    virtual bool next(const QString &key, SDBRecord &record) = 0;
    /*!
     * The record before that of \a key, the last one for an empty or unknown key. Before the first
     * one \a record is cleared, with RecNotFound.
     */
    virtual bool previous(const QString &key, SDBRecord &record) = 0;
    //! The record of \a key; RecNotFound when there is none, ReadError when it can't be read or
    //! memory runs out.
    virtual bool value(const QString &key, SDBRecord &record) = 0;

    //! How the last operation ended.
    virtual DBError error() const = 0;
    //! Number of records.
    virtual int count() const = 0;
    virtual QLocale culture() const = 0;
    virtual QString owner() const = 0;
    virtual QString version() const = 0;
    //! Name of the key field.
    virtual QString key() const = 0;

    /*!
     * Copies the whole database to a file or device, compressed if the implementation was told
     * so; then clears it when \a clearAfter. OpenError, and nothing is written, when the target is
     * the database's own file, also through a link of either kind or by handle.
     */
    virtual bool backup(const QString &fileName, bool clearAfter = false) = 0;
    virtual bool backup(QIODevice *device, bool clearAfter = false) = 0;
    /*!
     * Reads a backup, whose owner the user must be, with the same key field: in place of all that
     * is there, or record by record into it when \a merge, in place of those of the same key.
     *
     * A backup that is damaged is an error, and the database stays as it was: WrongDB when it can't
     * be unpacked or its head can't be read, SignError when its head was changed.
     */
    virtual bool restore(const QString &fileName, bool merge = false) = 0;
    virtual bool restore(QIODevice *device, bool merge = false) = 0;

    //! Whether the database is null or has no records.
    virtual bool isEmpty() const = 0;
    //! Whether nothing is open.
    virtual bool isNull() const = 0;
    //! What the current user may do: All for the owner.
    virtual DBAuthGrants grants() const = 0;

    //! Keeps an index of the field \a name from now on, if there is none; it is built when first
    //! used. FieldIndexError without a name, here and in the next two.
    virtual bool addFieldIndex(const QString &name) = 0;
    //! True also when there is no such index.
    virtual bool delFieldIndex(const QString &name) = 0;
    virtual bool isFieldIndexed(const QString &name) = 0;
    /*!
     * The records that hold \a field with the same text, an array with the same texts in the same
     * order. False with RecNotFound when there are none, with FieldIndexError and \a records as
     * they were when the field isn't indexed or has no value.
     */
    virtual bool searchField(const SDBField &field, QList<SDBRecord> &records) = 0;
    /*!
     * One field for each different text of the field \a name, in order; of an empty name, the keys.
     * A field that was not indexed is from now on. Texts of removed records can be among them. The
     * list is empty on failure too, which error() tells.
     */
    virtual QList<SDBField> values(const QString &name) = 0;
    //! The names of the indexed fields, in any order.
    virtual QList<QString> fieldsIndexed() const = 0;
    //! Size of the file or device.
    virtual qint64 bytes() const = 0;

public Q_SLOTS:
    //! Builds the index of keys anew; emits databaseReindexed().
    virtual bool reindex() = 0;

Q_SIGNALS:
    //! Once at the end of open() and create(), behind the databaseClosed() of what was open.
    void databaseOpened(bool result);
    //! Once for each close(), also for those within other operations.
    void databaseClosed();
    //! Once for each restore() of a backup of the user's with the same key field, with whether it
    //! came to its end; databaseModified() follows.
    void databaseRestored(bool result);
    /*!
     * Once for each operation that changed records, behind recordInserted() or recordRemoved().
     * purge(), which keeps them all, emits it when the file has been emptied.
     */
    void databaseModified();
    //! Once at the end of each purge() that succeeded.
    void databasePurged();
    //! Once for each reindex() that was allowed.
    void databaseReindexed(bool result);
    //! Once for each authenticate(). So spelled; programs connect to it by name.
    void userAutenticated(bool result);
    //! Once for each remove() that succeeded; not for a record that is replaced.
    void recordRemoved(const QString &key);
    //! Once for each record that insert() or replace() wrote; not for those of restore().
    void recordInserted(const QString &key);
};

} // namespace Talverine::Interfaces

Q_DECLARE_INTERFACE(Talverine::Interfaces::ISDatabase, "Talverine.ISDatabase/1.4")
