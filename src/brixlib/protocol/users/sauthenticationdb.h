// SPDX-License-Identifier: MIT
#pragma once

#include <brixlib/brixlib_export.h>
#include <brixlib/foundation/interfaces.h>

#include <QtCore/QHash>
#include <QtCore/QRecursiveMutex>
#include <QtCore/QString>

#include <memory>

namespace Talverine {

/*!
 * The stock table of users: kept in memory, stored as one JSON document.
 *
 * Users are found by their user name exactly as it is written; SUserData keeps it in lower case.
 *
 *     SAuthenticationDb db;
 *     db.insert(new SUserData(u"ann"_s, u"secret"_s, u"/srv/ann"_s));
 *     QFile file(u"users.json"_s);
 *     if (!db.save(&file))
 *         qWarning() << file.errorString();
 *
 * Thread: fully shared. Every operation holds a recursive mutex; the signals are emitted with it
 * held, so a directly connected slot should be quick and wait for no other thread.
 */
class BRIXLIB_EXPORT SAuthenticationDb : public Interfaces::ISAuthenticationDb
{
    Q_OBJECT
    Q_INTERFACES(Talverine::Interfaces::ISAuthenticationDb Talverine::Interfaces::ICloneable
                     Talverine::Interfaces::IEquatable)

public:
    explicit SAuthenticationDb(QObject *parent = nullptr);
    //! Shares the user objects of \a other; has no parent.
    SAuthenticationDb(const SAuthenticationDb &other);
    //! Shares the user objects of \a other; emits nothing.
    SAuthenticationDb &operator=(const SAuthenticationDb &other);
    ~SAuthenticationDb() override;

    //! Whether both tables hold the same names with users of equal values.
    bool operator==(const SAuthenticationDb &other) const;

    /*!
     * Reads the whole \a device. It is opened, and closed again, unless it is open already. A
     * device that does not open, or a content that is not a JSON object, gives an empty table and
     * one line in the debug log.
     */
    static SAuthenticationDb fromDevice(QIODevice *device);
    //! As fromDevice(), on the file \a fileName.
    static SAuthenticationDb fromFile(const QString &fileName);

    SAuthenticationDb *clone() const override;
    //! Whether there is no user.
    bool isNull() const override;
    bool equalsTo(const Interfaces::IEquatable *other) const override;

    //! Drops all users, then emits changed().
    void clear() override;
    bool isEmpty() const override;
    bool contains(const QString &username) const override;
    /*!
     * Takes ownership, replaces the user of that name, then emits added(). Null is ignored. The
     * user that the table already holds under that name may be inserted again; any other object
     * belongs to no table.
     */
    void insert(Interfaces::ISUser *user) override;
    //! True when the user was there; then emits removed() and releases the object.
    bool remove(const QString &username) override;
    /*!
     * The user, or null. A remove(), clear() or insert() in another thread may end its life at any
     * time: use sharedUser() where the table is changed while it is in use.
     */
    const Interfaces::ISUser *value(const QString &username) const override;
    //! The user, or null. It lives as long as the pointer, in the table or not.
    std::shared_ptr<const Interfaces::ISUser> sharedUser(const QString &username) const;
    //! The names in ascending order.
    QList<QString> users() const override;

    /*!
     * Writes the table to \a device, which must be closed: it is opened with Truncate and closed
     * again; only a QSaveFile stays open, for its commit(). False when it does not open (nothing is
     * touched then, and the debug log tells) or does not take the whole document. The mutex is not
     * held while the device works.
     */
    [[nodiscard]] bool save(QIODevice *device) override;
    /*!
     * Replaces the table by what fromDevice() reads, without a signal. False, with the table as it
     * was, when that holds no user.
     */
    [[nodiscard]] bool load(QIODevice *device) override;
    /*!
     * Replaces the table by that of \a other in one step. Then emits removed() for each user who
     * is gone, and added() for each who is new or differs in anything but full name and e-mail: the
     * sessions of these users end, all others continue.
     */
    void replaceBy(const SAuthenticationDb &other);

private:
    using Table = QHash<QString, std::shared_ptr<Interfaces::ISUser>>;

    QByteArray document() const;
    Table table() const;

    const std::unique_ptr<QRecursiveMutex> m_mutex;
    Table m_table;
};

} // namespace Talverine
