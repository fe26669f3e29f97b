// SPDX-License-Identifier: MIT
#include <brixlib/foundation/interfaces.h>

using namespace Talverine;
using namespace Talverine::Interfaces;
using namespace Qt::StringLiterals;

namespace {

class Point : public IEquatable
{
public:
    explicit Point(int x)
        : m_x(x)
    {
    }
    bool equalsTo(const IEquatable *other) const override
    {
        return isSameType(other) && static_cast<const Point *>(other)->m_x == m_x;
    }

private:
    int m_x;
};

class NamedPoint final : public Point
{
public:
    using Point::Point;
};

class Other final : public IEquatable
{
public:
    bool equalsTo(const IEquatable *other) const override { return isSameType(other); }
};

class Text final : public IFormattable
{
public:
    using IFormattable::toString;
    QString toString(const QString &format, const QLocale &locale) const override
    {
        return u"[%1|%2]"_s.arg(format, locale.name());
    }
};

class Page final : public ISwappable
{
public:
    bool forceToDisk() override { return false; }
    bool tryToMemory() override { return false; }
    bool isInMemory() const override { return true; }
};

//! Several interfaces at once; each is reached through a pointer of its own.
class Whole final : public ICloneable, public IValidity, public IIdentifiable, public IHashable
{
public:
    explicit Whole(int *alive)
        : m_alive(alive)
    {
        ++*m_alive;
    }
    ~Whole() override { --*m_alive; }
    Q_DISABLE_COPY_MOVE(Whole)
    ICloneable *clone() const override { return new Whole(m_alive); }
    bool isNull() const override { return false; }
    bool isValid() const override { return true; }
    quint64 id() const override { return 7; }
    QByteArray hash() const override { return "h"; }

private:
    int *m_alive;
};

//! The rest of the interfaces; every operation leaves its trace in the log.
class Store final : public ISerializable,
                    public IJsonConvertible,
                    public IConcurrency,
                    public IBufferable,
                    public ICacheable
{
public:
    bool deserialize(QDataStream &) override { return note(u"deserialize"_s); }
    bool serialize(QDataStream &) const override { return note(u"serialize"_s); }
    QJsonObject toJsonObject() const override { return {{u"a"_s, 1}}; }
    void setConcurrence(int threads) override { note(u"setConcurrence %1"_s.arg(threads)); }
    int concurrence() const override { return 3; }
    int bufferSize() const override { return 4; }
    void setBufferSize(int bytes) override { note(u"setBufferSize %1"_s.arg(bytes)); }
    void cacheEnable() override { note(u"cacheEnable"_s); }
    void cacheDisable() override { note(u"cacheDisable"_s); }
    bool isCacheEnabled() const override { return note(u"isCacheEnabled"_s); }
    bool isCachePreferred(qint64 size) const override
    {
        return note(u"isCachePreferred %1"_s.arg(size));
    }
    void setCacheSize(qint64 totalBytes, int pages) override
    {
        note(u"setCacheSize %1 %2"_s.arg(QString::number(totalBytes), QString::number(pages)));
    }
    void setCachePreferredMode(const SCacheMode &mode) override
    {
        note(u"setCachePreferredMode %1"_s.arg(int(mode)));
    }
    SCacheMode cachePreferredMode() const override { return SCacheMode(2); }
    bool cacheFlush() override { return note(u"cacheFlush"_s); }

    mutable QStringList log;

private:
    bool note(const QString &line) const
    {
        log.append(line);
        return true;
    }
};

//! A user of whom only the order of the bases matters.
class Nobody final : public ISUser
{
public:
    ICloneable *clone() const override { return new Nobody; }
    bool isNull() const override { return true; }
    bool isValid() const override { return false; }
    void setEnabled(bool) override {}
    bool enabled() const override { return false; }
    void setUsername(const QString &) override {}
    QString username() const override { return u"nobody"_s; }
    void setHashedPassword(const QByteArray &) override {}
    QByteArray hashedPassword() const override { return {}; }
    void setHomeFolder(const QString &) override {}
    QString homeFolder() const override { return {}; }
    void setFullname(const QString &) override {}
    QString fullname() const override { return {}; }
    void setEmail(const QString &) override {}
    QString email() const override { return {}; }
};

//! Where the part of an object that is a \a Base stands.
template<typename Base, typename Class>
quintptr placeOf(const Class &object)
{
    return reinterpret_cast<quintptr>(static_cast<const Base *>(&object));
}

//! The smallest table of users.
class NoUsers final : public ISAuthenticationDb
{
    Q_OBJECT
    Q_INTERFACES(Talverine::Interfaces::ISAuthenticationDb)

public:
    using ISAuthenticationDb::ISAuthenticationDb;
    ICloneable *clone() const override { return new NoUsers; }
    bool isNull() const override { return true; }
    bool equalsTo(const IEquatable *other) const override { return isSameType(other); }
    void clear() override { Q_EMIT changed(); }
    bool isEmpty() const override { return true; }
    bool contains(const QString &) const override { return false; }
    void insert(ISUser *user) override
    {
        Q_EMIT added(user->username());
        delete user;
    }
    bool remove(const QString &username) override
    {
        Q_EMIT removed(username);
        return false;
    }
    const ISUser *value(const QString &) const override { return nullptr; }
    QList<QString> users() const override { return {}; }
    bool save(QIODevice *) override { return false; }
    bool load(QIODevice *) override { return false; }
};

} // namespace

class tst_Interfaces : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void nullIsNeverOfTheSameType()
    {
        QVERIFY(!Point(1).isSameType(nullptr));
        QVERIFY(!Point(1).equalsTo(nullptr));
    }

    void sameTypeMeansTheDynamicType()
    {
        const Point point(1);
        const NamedPoint named(1);
        const Other other;
        const IEquatable *base = &named;
        QVERIFY(point.isSameType(&point));
        QVERIFY(point.equalsTo(std::make_unique<Point>(1).get()));
        QVERIFY(!point.equalsTo(std::make_unique<Point>(2).get()));
        QVERIFY(!point.isSameType(&named));
        QVERIFY(!named.isSameType(&point));
        QVERIFY(!point.isSameType(&other));
        QVERIFY(named.isSameType(base));
    }

    void shortTextsUseTheLongOne()
    {
        const Text text;
        const QLocale locale(QLocale::Italian, QLocale::Italy);
        QLocale::setDefault(QLocale(QLocale::German, QLocale::Germany));
        QCOMPARE(text.toString(u"F"_s, locale), u"[F|it_IT]"_s);
        QCOMPARE(text.toString(locale), u"[|it_IT]"_s);
        QCOMPARE(text.toString(u"F"_s), u"[F|de_DE]"_s);
        QCOMPARE(text.toString(), u"[|de_DE]"_s);
    }

    void nothingIsSwappableUnlessItSaysSo()
    {
        const Page page;
        const ISwappable &base = page;
        QVERIFY(!base.isSwappable());
    }

    void objectDiesThroughAnyOfItsInterfaces()
    {
        int alive = 0;
        delete static_cast<ICloneable *>(new Whole(&alive));
        delete static_cast<IValidity *>(new Whole(&alive));
        delete static_cast<IIdentifiable *>(new Whole(&alive));
        delete static_cast<IHashable *>(new Whole(&alive));
        QCOMPARE(alive, 0);
    }

    void eachInterfaceReachesItsOwnOperations()
    {
        int alive = 0;
        const Whole whole(&alive);
        const std::unique_ptr<ICloneable> copy(whole.clone());
        QCOMPARE(alive, 2);
        QVERIFY(dynamic_cast<const Whole *>(copy.get()));
        QCOMPARE(dynamic_cast<const IIdentifiable *>(copy.get())->id(), 7u);
        QCOMPARE(dynamic_cast<const IHashable *>(copy.get())->hash(), QByteArray("h"));
        QVERIFY(dynamic_cast<const IValidity *>(copy.get())->isValid());
    }

    void everyOperationIsReachedThroughItsInterface()
    {
        Store store;
        QDataStream stream;
        QVERIFY(static_cast<ISerializable &>(store).deserialize(stream));
        QVERIFY(static_cast<const ISerializable &>(store).serialize(stream));
        QCOMPARE(static_cast<const IJsonConvertible &>(store).toJsonObject().size(), 1);
        static_cast<IConcurrency &>(store).setConcurrence(7);
        QCOMPARE(static_cast<const IConcurrency &>(store).concurrence(), 3);
        QCOMPARE(static_cast<const IBufferable &>(store).bufferSize(), 4);
        static_cast<IBufferable &>(store).setBufferSize(8);
        QCOMPARE(store.log, QStringList({u"deserialize"_s, u"serialize"_s, u"setConcurrence 7"_s,
                                         u"setBufferSize 8"_s}));
    }

    void cacheIsReachedThroughItsInterface()
    {
        Store store;
        ICacheable &cache = store;
        cache.cacheEnable();
        cache.cacheDisable();
        QVERIFY(std::as_const(cache).isCacheEnabled());
        QVERIFY(std::as_const(cache).isCachePreferred(Q_INT64_C(0x100000000)));
        cache.setCacheSize(Q_INT64_C(0x100000000), 5);
        cache.setCachePreferredMode(SCacheMode(1));
        QCOMPARE(int(cache.cachePreferredMode()), 2);
        QVERIFY(cache.cacheFlush());
        QCOMPARE(store.log,
                 QStringList({u"cacheEnable"_s, u"cacheDisable"_s, u"isCacheEnabled"_s,
                              u"isCachePreferred 4294967296"_s, u"setCacheSize 4294967296 5"_s,
                              u"setCachePreferredMode 1"_s, u"cacheFlush"_s}));
    }

    void basesOfUsersAndTheirTableStandInOrder()
    {
        const Nobody user;
        QVERIFY(placeOf<ICloneable>(user) < placeOf<IValidity>(user));
        const NoUsers users;
        QVERIFY(placeOf<QObject>(users) < placeOf<ICloneable>(users));
        QVERIFY(placeOf<ICloneable>(users) < placeOf<IEquatable>(users));
    }

    void interfaceIds()
    {
        QCOMPARE(qobject_interface_iid<ICloneable *>(), "Talverine.ICloneable/1.0");
        QCOMPARE(qobject_interface_iid<IEquatable *>(), "Talverine.IEquatable/1.0");
        QCOMPARE(qobject_interface_iid<ISAuthenticationDb *>(), "Talverine.ISAuthenticationDb/1.0");
        QCOMPARE(qobject_interface_iid<IConcurrency *>(), "Talverine.IConcurrency/1.0");
        QCOMPARE(qobject_interface_iid<IBufferable *>(), "Talverine.IBufferable/1.0");
    }

    void tableOfUsersIsAnObjectWithSignals()
    {
        NoUsers users;
        QSignalSpy changed(&users, &ISAuthenticationDb::changed);
        QSignalSpy added(&users, &ISAuthenticationDb::added);
        QSignalSpy removed(&users, &ISAuthenticationDb::removed);
        users.clear();
        users.insert(new Nobody);
        users.remove(u"nobody"_s);
        QCOMPARE(changed.size(), 1);
        QCOMPARE(added.size(), 1);
        QCOMPARE(added.first().first().toString(), u"nobody"_s);
        QCOMPARE(removed.size(), 1);
        QCOMPARE(removed.first().first().toString(), u"nobody"_s);
        QCOMPARE(qobject_cast<ISAuthenticationDb *>(static_cast<QObject *>(&users)), &users);
    }

    void progressKeepsValueAndWish()
    {
        class Progress final : public IProgress
        {
        } progress;
        progress.setProgress(40);
        progress.abort();
        QCOMPARE(progress.progress(), 40);
        QVERIFY(progress.isAbortRequested());
        progress.reset();
        QCOMPARE(progress.progress(), 0);
        QVERIFY(!progress.isAbortRequested());
    }
};

QTEST_APPLESS_MAIN(tst_Interfaces)
#include "tst_interfaces.moc"
