// SPDX-License-Identifier: MIT
#include <brixsec/ssecurecredential.h>

#include <shared/signallog.h>

using namespace Talverine::Security;
using namespace Qt::StringLiterals;

namespace Talverine {

// Takes credentials by calls that name the argument's type.
class Receiver : public QObject
{
    Q_OBJECT

public:
    Q_INVOKABLE void take(const Security::SSecureCredential &credential)
    {
        m_users.append(credential.username() + u':' + credential.password().toInsecureString());
        Q_EMIT taken();
    }
    QStringList users() const { return m_users; }

Q_SIGNALS:
    void taken();

private:
    QStringList m_users;
};

} // namespace Talverine

class tst_SSecureCredential : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void freshCredentialIsNull()
    {
        const SSecureCredential credential;
        QVERIFY(credential.isNull());
        QCOMPARE(credential.username(), QString());
        QVERIFY(credential.password().isNull());
        QVERIFY(credential.aes().isNull());
    }

    void isNullOnlyWithoutBothParts_data()
    {
        QTest::addColumn<SSecureCredential>("credential");
        QTest::addColumn<bool>("null");
        const auto row = [](const char *name, const QString &user, const SSecureString &password,
                            bool null) {
            QTest::newRow(name) << SSecureCredential(user, password) << null;
        };
        row("both null", QString(), SSecureString(), true);
        row("both empty", u""_s, SSecureString(u""_s), true);
        row("user alone", u"bob"_s, SSecureString(), false);
        row("password alone", QString(), SSecureString(u"secret"_s), false);
        row("both", u"bob"_s, SSecureString(u"secret"_s), false);
    }
    void isNullOnlyWithoutBothParts()
    {
        QFETCH(SSecureCredential, credential);
        QFETCH(bool, null);
        QCOMPARE(credential.isNull(), null);
    }

    void givesBackItsParts()
    {
        const SSecureCredential credential(u"Bob Ä"_s, SSecureString(u"s(e,c)ret%20"_s));
        QCOMPARE(credential.username(), u"Bob Ä"_s);
        QCOMPARE(credential.password().toInsecureString(), u"s(e,c)ret%20"_s);
    }

    void aesHoldsThePassword()
    {
        const SSecureCredential credential(u"bob"_s, SSecureString(u"secret"_s));
        const SAesString aes = credential.aes();
        QCOMPARE(SAesString::fromString(aes.toString()).toSecureString(), credential.password());
        QVERIFY(credential.aes() != aes);
    }

    void comparesBothParts()
    {
        const SSecureCredential credential(u"bob"_s, SSecureString(u"secret"_s));
        QVERIFY(credential == SSecureCredential(u"bob"_s, SSecureString(u"secret"_s)));
        QVERIFY(credential != SSecureCredential(u"Bob"_s, SSecureString(u"secret"_s)));
        QVERIFY(credential != SSecureCredential(u"bob"_s, SSecureString(u"other"_s)));
        QVERIFY(credential != SSecureCredential());
    }

    void copiesAreIndependent()
    {
        SSecureCredential first(u"bob"_s, SSecureString(u"secret"_s));
        const SSecureCredential second(first);
        first = SSecureCredential();
        QCOMPARE(second.password().toInsecureString(), u"secret"_s);
        QVERIFY(first.isNull());
    }

    void bothSpellingsAreRegistered()
    {
        const QMetaType type = QMetaType::fromType<SSecureCredential>();
        QCOMPARE(QMetaType::fromName("Security::SSecureCredential"), type);
        QCOMPARE(QMetaType::fromName("Talverine::Security::SSecureCredential"), type);
    }

    void travelsToAnotherThreadByName()
    {
        QThread thread;
        auto *receiver = new Talverine::Receiver;
        receiver->moveToThread(&thread);
        connect(&thread, &QThread::finished, receiver, &QObject::deleteLater);
        SignalLog taken(receiver, &Talverine::Receiver::taken);
        thread.start();
        {
            const SSecureCredential credential(u"bob"_s, SSecureString(u"secret"_s));
            QVERIFY(QMetaObject::invokeMethod(
                receiver, "take", Qt::QueuedConnection,
                QArgument<SSecureCredential>("Security::SSecureCredential", credential)));
        }
        QVERIFY(taken.waitForCount(1));
        QStringList users;
        QMetaObject::invokeMethod(
            receiver, [&] { users = receiver->users(); }, Qt::BlockingQueuedConnection);
        QCOMPARE(users, QStringList(u"bob:secret"_s));
        thread.quit();
        QVERIFY(thread.wait());
    }
};

QTEST_GUILESS_MAIN(tst_SSecureCredential)
#include "tst_ssecurecredential.moc"
