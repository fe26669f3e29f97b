// SPDX-License-Identifier: MIT
#pragma once

#include <brixlib/brixlib_export.h>

#include <brixrt/iprogress.h>
#include <brixrt/isenum.h>

#include <QtCore/QByteArray>
#include <QtCore/QDataStream>
#include <QtCore/QIODevice>
#include <QtCore/QJsonObject>
#include <QtCore/QLocale>
#include <QtCore/QObject>
#include <QtCore/QString>

#include <memory>

namespace Talverine {

enum class SCacheMode : int;

namespace Interfaces {

//! Can be copied behind a base pointer.
class BRIXLIB_EXPORT ICloneable
{
public:
    virtual ~ICloneable();
    //! A copy of the same dynamic type; the caller owns it.
    virtual ICloneable *clone() const = 0;
    virtual bool isNull() const = 0;
};

//! Can be compared behind a base pointer.
class BRIXLIB_EXPORT IEquatable
{
public:
    virtual ~IEquatable();
    //! True when \a other has the same dynamic type and an equal value; false for null.
    virtual bool equalsTo(const IEquatable *other) const = 0;
    //! False for null, else whether both objects have the same dynamic type.
    virtual bool isSameType(const IEquatable *other) const;
};

//! Has a binary form.
class BRIXLIB_EXPORT ISerializable
{
public:
    virtual ~ISerializable();
    //! Reads the object; on false it is as it was before.
    [[nodiscard]] virtual bool deserialize(QDataStream &stream) = 0;
    [[nodiscard]] virtual bool serialize(QDataStream &stream) const = 0;
};

//! Can be unfit for use.
class BRIXLIB_EXPORT IValidity
{
public:
    virtual ~IValidity();
    virtual bool isValid() const = 0;
};

//! Has a number that tells its kind apart from all others.
class BRIXLIB_EXPORT IIdentifiable
{
public:
    virtual ~IIdentifiable();
    //! The kind's number. Classes offer the same number without an object as a static uniqueId().
    virtual quint64 id() const = 0;
};

//! Has a digest of its value.
class BRIXLIB_EXPORT IHashable
{
public:
    virtual ~IHashable();
    virtual QByteArray hash() const = 0;
};

//! Has a JSON form.
class BRIXLIB_EXPORT IJsonConvertible
{
public:
    virtual ~IJsonConvertible();
    virtual QJsonObject toJsonObject() const = 0;
};

/*!
 * Has a text form by format and locale. A class that overrides one toString() names the others
 * with `using IFormattable::toString;`.
 */
class BRIXLIB_EXPORT IFormattable
{
public:
    virtual ~IFormattable();
    virtual QString toString(const QString &format, const QLocale &locale) const = 0;
    //! With an empty format.
    virtual QString toString(const QLocale &locale) const;
    //! With the default locale.
    virtual QString toString(const QString &format) const;
    //! With an empty format and the default locale.
    virtual QString toString() const;
};

//! Can spread its work over threads.
class BRIXLIB_EXPORT IConcurrency
{
public:
    virtual ~IConcurrency();
    //! 0 means half of QThread::idealThreadCount(); the result is kept between 1 and that count.
    virtual void setConcurrence(int threads) = 0;
    virtual int concurrence() const = 0;
};

//! Works through a buffer whose size, in bytes, can be set.
class BRIXLIB_EXPORT IBufferable
{
public:
    virtual ~IBufferable();
    virtual int bufferSize() const = 0;
    virtual void setBufferSize(int bytes) = 0;
};

//! Can move its content between memory and disk.
class BRIXLIB_EXPORT ISwappable
{
public:
    virtual ~ISwappable();
    virtual bool forceToDisk() = 0;
    virtual bool tryToMemory() = 0;
    virtual bool isInMemory() const = 0;
    //! Whether the object really moves; false unless a class says otherwise.
    virtual bool isSwappable() const;
};

//! Reads and writes through a cache of pages.
class BRIXLIB_EXPORT ICacheable
{
public:
    virtual ~ICacheable();
    virtual void cacheEnable() = 0;
    virtual void cacheDisable() = 0;
    virtual bool isCacheEnabled() const = 0;
    //! Whether a range of \a size bytes should go through the cache; 0 means all there is.
    virtual bool isCachePreferred(qint64 size) const = 0;
    //! \a totalBytes in all, spread over \a pages pages.
    virtual void setCacheSize(qint64 totalBytes, int pages) = 0;
    virtual void setCachePreferredMode(const SCacheMode &mode) = 0;
    virtual SCacheMode cachePreferredMode() const = 0;
    virtual bool cacheFlush() = 0;
};

//! One user of a server.
class BRIXLIB_EXPORT ISUser : public ICloneable, public IValidity
{
public:
    ~ISUser() override;
    virtual void setEnabled(bool enabled) = 0;
    virtual bool enabled() const = 0;
    virtual void setUsername(const QString &username) = 0;
    virtual QString username() const = 0;
    //! Hexadecimal SHA-512 of the password's UTF-8 bytes.
    virtual void setHashedPassword(const QByteArray &hashedPassword) = 0;
    virtual QByteArray hashedPassword() const = 0;
    //! Folder that the user's sessions are kept in.
    virtual void setHomeFolder(const QString &homeFolder) = 0;
    virtual QString homeFolder() const = 0;
    virtual void setFullname(const QString &fullname) = 0;
    virtual QString fullname() const = 0;
    virtual void setEmail(const QString &email) = 0;
    virtual QString email() const = 0;
};

/*!
 * The users that a server lets in. Implementations are fully shared between the threads of many
 * sessions; signals may be emitted from any of them.
 */
class BRIXLIB_EXPORT ISAuthenticationDb : public QObject, public ICloneable, public IEquatable
{
    Q_OBJECT

public:
    explicit ISAuthenticationDb(QObject *parent = nullptr);
    ~ISAuthenticationDb() override;

    virtual void clear() = 0;
    virtual bool isEmpty() const = 0;
    virtual bool contains(const QString &username) const = 0;
    //! Takes ownership; a user of the same name is replaced.
    virtual void insert(ISUser *user) = 0;
    //! True when the user was there.
    virtual bool remove(const QString &username) = 0;
    //! The user, or null. It stays the table's and is valid only while it is in the table.
    virtual const ISUser *value(const QString &username) const = 0;
    virtual QList<QString> users() const = 0;
    [[nodiscard]] virtual bool save(QIODevice *device) = 0;
    [[nodiscard]] virtual bool load(QIODevice *device) = 0;

Q_SIGNALS:
    //! The table as a whole has changed.
    void changed();
    //! A user was inserted or replaced.
    void added(const QString &user);
    //! A user was removed.
    void removed(const QString &user);
};

} // namespace Interfaces

} // namespace Talverine

Q_DECLARE_INTERFACE(Talverine::Interfaces::ICloneable, "Talverine.ICloneable/1.0")
Q_DECLARE_INTERFACE(Talverine::Interfaces::IEquatable, "Talverine.IEquatable/1.0")
Q_DECLARE_INTERFACE(Talverine::Interfaces::ISAuthenticationDb, "Talverine.ISAuthenticationDb/1.0")
Q_DECLARE_INTERFACE(Talverine::Interfaces::IConcurrency, "Talverine.IConcurrency/1.0")
Q_DECLARE_INTERFACE(Talverine::Interfaces::IBufferable, "Talverine.IBufferable/1.0")
