// SPDX-License-Identifier: MIT
#include <brixlib/protocol/users/suserdata.h>

#include <brixsec/ssecurestring.h>

using namespace Talverine;
using namespace Qt::StringLiterals;

namespace {

// sha512sum of the five bytes "hello".
const auto helloHash = "9b71d224bd62f3785d96d46ad3ea3d73319bfbc2890caadae2dff72519673ca7"
                       "2323c3d99ba5c11d7c7acc6e14b8c5da0c4663475c2e5c3adef46f73bcdec043"_ba;

// sha512sum of no bytes.
const auto emptyHash = "cf83e1357eefb8bdf1542850d66d8007d620e4050b5715dc83f4a921d36ce9ce"
                       "47d0d13c5d85f2b0ff8318d2877eec2f63b931bd47417a81a538327af927da3e"_ba;

SUserData ann()
{
    return SUserData(u"ann"_s, u"hello"_s, u"/srv/ann"_s, u"Ann Smith"_s, u"ann@example.com"_s,
                     false);
}

// A user of another kind, which keeps what it is given.
class ForeignUser final : public Interfaces::ISUser
{
public:
    ICloneable *clone() const override { return new ForeignUser(*this); }
    bool isNull() const override { return false; }
    bool isValid() const override { return true; }
    void setEnabled(bool) override {}
    bool enabled() const override { return false; }
    void setUsername(const QString &) override {}
    QString username() const override { return u"EVE"_s; }
    void setHashedPassword(const QByteArray &) override {}
    QByteArray hashedPassword() const override { return "ABCDEF"; }
    void setHomeFolder(const QString &) override {}
    QString homeFolder() const override { return u"/Home"_s; }
    void setFullname(const QString &) override {}
    QString fullname() const override { return u"Eve X"_s; }
    void setEmail(const QString &) override {}
    QString email() const override { return u"Eve@X"_s; }
};

} // namespace

class tst_SUserData : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void freshUserIsNullEnabledAndInvalid()
    {
        const SUserData user;
        QVERIFY(user.isNull());
        QVERIFY(user.enabled());
        QVERIFY(!user.isValid());
        QVERIFY(user.username().isEmpty());
        QVERIFY(user.hashedPassword().isEmpty());
        QVERIFY(user.homeFolder().isEmpty());
        QVERIFY(user.fullname().isEmpty());
        QVERIFY(user.email().isEmpty());
    }

    void userMadeOfEmptyTextsIsNull()
    {
        QVERIFY(
            SUserData(QString(), QByteArray(), QString(), QString(), QString(), false).isNull());
        QVERIFY(SUserData(u""_s, u""_s, u""_s, u""_s, u""_s, false).isNull());
    }

    void anyValueEndsBeingNull()
    {
        QVERIFY(
            !SUserData(QString(), QByteArray(), QString(), QString(), QString(), true).isNull());
        QVERIFY(!SUserData(u"a"_s, QByteArray(), QString()).isNull());
        QVERIFY(!SUserData(QString(), "00"_ba, QString()).isNull());
        QVERIFY(!SUserData(QString(), u"a"_s, QString()).isNull());
        QVERIFY(!SUserData(QString(), QByteArray(), u"/"_s).isNull());
        QVERIFY(!SUserData(QString(), QByteArray(), QString(), u"A"_s).isNull());
        QVERIFY(!SUserData(QString(), QByteArray(), QString(), QString(), u"a@b"_s).isNull());
    }

    void userNameIsLowered()
    {
        QCOMPARE(SUserData(u"Bob"_s, u"x"_s, u"/"_s).username(), u"bob"_s);
        QCOMPARE(SUserData(u"BOB"_s, "00"_ba, u"/"_s).username(), u"bob"_s);
        SUserData user;
        user.setUsername(u"Ärger MIT Éric"_s);
        QCOMPARE(user.username(), u"ärger mit éric"_s);
    }

    void passwordIsHashedWithSha512_data()
    {
        QTest::addColumn<QString>("password");
        QTest::addColumn<QByteArray>("hash");
        QTest::newRow("ascii") << u"hello"_s << helloHash;
        QTest::newRow("empty") << QString() << emptyHash;
        // printf 'pässword€' | sha512sum
        QTest::newRow("UTF-8")
            << u"pässword€"_s
            << QByteArray("37ac046a33ea7c5d5e05047a79cd680c2993e6e21f4b508a51fd54efad7777b8"
                          "28a6e3a91e901fc351f2887cfd8edc2ebf102a0655abec32603f9f8fe2fef5cd");
    }

    void passwordIsHashedWithSha512()
    {
        QFETCH(QString, password);
        QFETCH(QByteArray, hash);
        QCOMPARE(SUserData::hashPassword(password), hash);
        QCOMPARE(SUserData::hashPassword(Security::SSecureString(password)), hash);
        QCOMPARE(SUserData(u"a"_s, password, u"/"_s).hashedPassword(), hash);
        SUserData user;
        user.setPassword(password);
        QCOMPARE(user.hashedPassword(), hash);
    }

    void hashIsTakenAsItStandsInLowerCase()
    {
        QCOMPARE(SUserData(u"a"_s, helloHash.toUpper(), u"/"_s).hashedPassword(), helloHash);
        QCOMPARE(SUserData(u"a"_s, "no HASH"_ba, u"/"_s).hashedPassword(), "no hash"_ba);
        SUserData user;
        user.setHashedPassword(helloHash.toUpper());
        QCOMPARE(user.hashedPassword(), helloHash);
    }

    void lastArgumentSaysDisabled()
    {
        QVERIFY(!SUserData(u"a"_s, u"p"_s, u"/"_s, QString(), QString(), true).enabled());
        QVERIFY(SUserData(u"a"_s, u"p"_s, u"/"_s, QString(), QString(), false).enabled());
        QVERIFY(!SUserData(u"a"_s, "00"_ba, u"/"_s, QString(), QString(), true).enabled());
        QVERIFY(SUserData(u"a"_s, "00"_ba, u"/"_s, QString(), QString(), false).enabled());
    }

    void settersAreReadBack()
    {
        SUserData user;
        user.setEnabled(false);
        user.setHomeFolder(u"/Home Folder"_s);
        user.setFullname(u"Full Name"_s);
        user.setEmail(u"Mail@Host"_s);
        QVERIFY(!user.enabled());
        QCOMPARE(user.homeFolder(), u"/Home Folder"_s);
        QCOMPARE(user.fullname(), u"Full Name"_s);
        QCOMPARE(user.email(), u"Mail@Host"_s);
    }

    void wholeUserIsValid() { QVERIFY(ann().isValid()); }

    void userWithoutHomeFolderIsNotValid()
    {
        SUserData user = ann();
        user.setHomeFolder(QString());
        QVERIFY(!user.isValid());
    }

    void disabledUserIsNotValid()
    {
        SUserData user = ann();
        user.setEnabled(false);
        QVERIFY(!user.isValid());
    }

    void userWithoutNameOrHashIsNotValid()
    {
        SUserData nameless = ann();
        nameless.setUsername(QString());
        QVERIFY(!nameless.isValid());
        SUserData hashless = ann();
        hashless.setHashedPassword(QByteArray());
        QVERIFY(!hashless.isValid());
    }

    void fullNameAndEmailAreNotNeeded()
    {
        SUserData user = ann();
        user.setFullname(QString());
        user.setEmail(QString());
        QVERIFY(user.isValid());
    }

    void comparisonLooksAtEachValue()
    {
        QVERIFY(ann() == ann());
        const auto differs = [](auto change) {
            SUserData user = ann();
            change(user);
            return !(user == ann());
        };
        QVERIFY(differs([](SUserData &user) { user.setEnabled(false); }));
        QVERIFY(differs([](SUserData &user) { user.setFullname(u"x"_s); }));
        QVERIFY(differs([](SUserData &user) { user.setEmail(u"x"_s); }));
        QVERIFY(differs([](SUserData &user) { user.setUsername(u"x"_s); }));
        QVERIFY(differs([](SUserData &user) { user.setPassword(u"x"_s); }));
        QVERIFY(differs([](SUserData &user) { user.setHomeFolder(u"x"_s); }));
    }

    void copyAndCloneAreEqualAndIndependent()
    {
        const SUserData user = ann();
        SUserData copy(user);
        QVERIFY(copy == user);
        copy.setEmail(u"other"_s);
        QVERIFY(!(copy == user));
        copy = user;
        QVERIFY(copy == user);
        const std::unique_ptr<SUserData> clone(user.clone());
        QVERIFY(*clone == user);
        const Interfaces::ICloneable &base = user;
        const std::unique_ptr<Interfaces::ICloneable> baseClone(base.clone());
        QVERIFY(dynamic_cast<SUserData *>(baseClone.get()));
    }

    void userOfAnotherKindIsCopiedByItsValues()
    {
        const ForeignUser foreign;
        const SUserData user(&foreign);
        QVERIFY(user == SUserData(u"eve"_s, "abcdef"_ba, u"/Home"_s, u"Eve X"_s, u"Eve@X"_s, true));
    }

    void noUserGivesTheNullUser()
    {
        QVERIFY(SUserData(static_cast<const Interfaces::ISUser *>(nullptr)).isNull());
    }
};

QTEST_APPLESS_MAIN(tst_SUserData)
#include "tst_suserdata.moc"
