// SPDX-License-Identifier: MIT
#pragma once

#include <brixlib/brixlib_export.h>
#include <brixlib/database/sdbtext.h>

#include <QtCore/QDateTime>
#include <QtCore/QFuture>
#include <QtCore/QMutex>
#include <QtCore/QObject>
#include <QtCore/QString>

#include <limits>

namespace Talverine {

class BackupSlot;

//! What a log may grow to, and what is left of it then.
struct RotateParameters
{
    //! Number of records above which opening rotates.
    int maxLogs = 10000;
    //! How many entries a rotation aims to carry over. Those of one date, which has milliseconds,
    //! count as one: of a program that writes many in each, a rotation may keep all.
    int keepLogs = 300;
    /*!
     * Size of the file in bytes above which opening rotates. It also bounds what a rotation keeps,
     * by a number of 32 bits that may well come out negative for the default: the new log then
     * keeps nothing. A program that means keepLogs sets a size.
     */
    qint64 maxBytes = std::numeric_limits<qint64>::max();

    friend bool operator==(const RotateParameters &, const RotateParameters &) = default;
};

/*!
 * A log of events in a database file. Each entry is a record with an identifier and a date, in the
 * order of their coming.
 *
 *     SLogger log("machine.log", {.maxLogs = 10000, .keepLogs = 300, .maxBytes = 64 << 20});
 *     if (!log.open("ada", "secret"))
 *         return false;
 *     SDBRecord details;
 *     details.insert("head", 3);
 *     log.append("HeadCleaned", details);
 *     log.search(SLogger::logId(), "HeadCleaned"); // all such entries
 *
 * A log that has outgrown its limits is rotated when it is opened, and then only: it is copied to a
 * backup beside it, "machine.B00" to "machine.B09" for the log above, and begins anew with an entry
 * "LogRotate", the pinned entries and the newest. Nine backups stay, the oldest goes. Logs in one
 * folder need names that differ before their first dot, or they share their backups.
 *
 * Only its owner, who is whoever opened it first, may write to a log; without a password nobody
 * does. What fails gives false and leaves the reason in error().
 *
 * Thread: fully shared. Signals are emitted in the thread that does the work, with the log locked.
 */
class BRIXLIB_EXPORT SLogger : public QObject
{
    Q_OBJECT

public:
    using RotateParameters = Talverine::RotateParameters;

    // Names of the fields that make a record an entry.
    static const QString &logId();      //!< "logid", the identifier
    static const QString &logDate();    //!< "logdate", by SDotNetCompatibilityHelper::toBinary()
    static const QString &logPinDown(); //!< "logpindown", a bool; absent until first set

    explicit SLogger(const QString &pathName, const RotateParameters &parameters = {},
                     QObject *parent = nullptr);
    /*!
     * With limits in range: \a maxLogs is at least 10, or 0 for no limit; \a keepLogs from 0 to a
     * tenth of that.
     */
    SLogger(const QString &pathName, int maxLogs, int keepLogs, QObject *parent = nullptr);
    //! A copy in memory, which has no path.
    SLogger(const SLogger &other);
    //! Takes user, limits and entries of \a other; an open log stays in its file.
    SLogger &operator=(const SLogger &other);
    //! Waits for an open in the background, and closes the log.
    ~SLogger() override;

    /*!
     * Opens the log for \a user, or creates it, and rotates it if need be. Emits opened(). In the
     * \a background it returns true at once, and a thread of the global pool does this.
     *
     * When only the rotation fails, as it does for a user who may not write, it returns false, but
     * the log is open and its backups are as before.
     */
    bool open(const QString &user, const QString &password, bool background = false);
    //! Whether the log is open and no open in the background is on its way, which it doesn't wait
    //! for.
    bool isReady() const;
    //! Waits for an open in the background, or does its work where the pool hasn't begun with it.
    //! Never returns in a slot that this open calls directly.
    void waitForFinished() const;
    //! Emits closed(). Always true.
    bool close();

    /*!
     * Adds an entry, dated now unless the record has a valid date; false without an \a id. Costs
     * one write to the file, and never rotates. A write that fails, as on a full disk, may leave
     * the beginning of the entry in the file, without a signature, and leaves error() as it was.
     */
    bool append(const QString &id);
    bool append(const QString &id, const SDBRecord &record);
    //! Adds an entry for each record; true when any went in. Emits changed() once.
    bool append(const QString &id, const QList<SDBRecord> &records);

    /*!
     * Pins an entry, so that rotations keep it, or marks it as not pinned; they keep that too. The
     * entry comes to the end of the log under a new key; false when \a record isn't in the log. Its
     * key tells which entry it is, so it must have been read since the last rotation.
     */
    bool pinDown(const SDBRecord &record, bool pin = true);
    static bool isPinned(const SDBRecord &record);
    //! The date of an entry; not valid when it has none.
    static QDateTime recordDateTime(const SDBRecord &record);

    //! Keeps an index of the field \a name from now on.
    bool addIndex(const QString &name);
    //! The entries that hold \a value in \a field, the latest first. The field is indexed from now
    //! on.
    QList<SDBRecord> search(const QString &field, const QString &value);
    bool contains(const QString &field, const QString &value);
    //! One field for each different text of the field \a name, in the order of QString.
    QList<SDBField> values(const QString &name);
    bool reindex();

    //! Size of the file.
    qint64 bytes() const;
    //! Number of entries.
    int count() const;
    QLocale culture() const;
    bool isEmpty() const;
    //! Whether no log is open.
    bool isNull() const;
    //! The oldest and the newest entry; empty when there is none.
    SDBRecord first();
    SDBRecord last();
    //! Iterators from the oldest entry to the newest. The log must outlive them.
    SDBIterator begin();
    SDBIterator end();
    SDBIterator find(int index);

    //! What the user may do with the log.
    bool isReadable() const;
    bool isWriteable() const;
    QString pathName() const;
    RotateParameters rotateParameters() const;
    //! How the last operation on the log's database ended.
    DBError error() const;

    //! Whether backup() packs with LZ4; backups by rotation are never packed.
    void setBackupCompression(bool enabled);
    bool backupCompressionEnabled() const;
    //! Copies the log to a file in \a dir, under its own name if \a name is empty. Another program
    //! may open the log from then on.
    bool backup(const QString &dir, const QString &name = QString());
    /*!
     * Reads a backup, which must belong to the log's user.
     *
     * Without \a merge it replaces the log, which is rotated before: a backup that is
     * missing or can't be read leaves the log with nothing but its "LogRotate".
     *
     * With \a merge its entries are added to the end, dates kept. An entry whose \a uniqueField
     * has a text that the log holds already is left out; a packed backup can't be sifted so.
     */
    bool restore(const QString &dir, const QString &name, bool merge,
                 const QString &uniqueField = QString());
    //! The same for a backup under the log's own name.
    bool restore(const QString &dir, bool merge, const QString &uniqueField = QString());
    //! A literal would become the bool of the form above; give the name with its merge.
    template<typename Char>
    bool restore(const QString &dir, const Char *name) = delete;
    /*!
     * Copies the log to a backup beside it and begins anew: with nothing but the entry "LogRotate",
     * or with the pinned and newest ones after it when \a keep.
     *
     * The backup is on the disk before the log is replaced in one step. Whatever stops the program
     * or the machine, no entry is lost, and the next open() removes what is left of the rotation.
     * If it fails, the log and its backups are as before; error() returns why. It is OpenError for
     * a log that has the name of its own next backup. At rotated() all that is done.
     */
    bool rotate(bool keep);

Q_SIGNALS:
    //! Follows each restored(), logAdded(), rotated() and reindexed().
    void changed();
    void closed();
    void logAdded(const QString &id);
    void opened(bool result);
    //! An entry of this identifier was pinned, or marked as not pinned.
    void pinChanged(const QString &id);
    void reindexed();
    //! A backup was read, to its end or not.
    void restored();
    void rotated();

protected:
    QString user() const;
    QString passwd() const;

private:
    bool _open(const QString &user, const QString &password);
    static bool create(SDBText *database, const QString &fileName);
    static void updateRecord(const QString &id, SDBRecord *record);
    bool insert(const QString &id, SDBRecord record);
    QFuture<bool> backgroundOpen() const;

    bool isOverLimits() const;
    bool giveWay(bool keep);
    int keptEntries() const;
    bool backupAndReplace(const SDBText &fresh, BackupSlot *slot, const QString &stamp);
    static QString stampOf(const SDBRecord &marker);
    QString rotationNote() const;
    QString restorationNote() const;
    void removeRemains();
    bool fill(SDBText *target, const SDBRecord &marker, int kept);
    bool carry(const SDBField &field, SDBText *target);

    QString outsidePath(const QString &dir, const QString &name) const;
    bool restoreInPlace(const QString &source);
    bool mergeNew(const QString &source, const QString &uniqueField);
    DBError copyAndRemoveDuplicated(const QString &source, const QString &field,
                                    const QString &copy);

    QString m_user;
    QString m_password;
    QString m_pathName;
    SDBText m_database;
    RotateParameters m_parameters;
    mutable QRecursiveMutex m_mutex;
    mutable QMutex m_futureMutex; //!< for what asks after an open that holds the other one
    QFuture<bool> m_future;       //!< of the latest open in the background
};

} // namespace Talverine
