// SPDX-License-Identifier: MIT
#include <brixlib/protocol/pluggables/spluggableenvironment.h>
#include <brixlib/protocol/users/suserdata.h>

using namespace Talverine;
using namespace Qt::StringLiterals;

class tst_SPluggableEnvironment : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void freshEnvironmentIsEmpty()
    {
        const SPluggableEnvironment environment;
        QVERIFY(environment.isEmpty());
        QVERIFY(environment.keys().isEmpty());
        QVERIFY(!environment.value(u"serverName"_s).isValid());
        QVERIFY(!environment.user());
        QVERIFY(!environment.documentRootEnabled());
    }

    void valuesAreFoundByName()
    {
        SPluggableEnvironment environment;
        environment.setValue(u"serverName"_s, u"press 7"_s);
        environment.setValue(u"number"_s, 1);
        environment.setValue(u"number"_s, 2);
        QVERIFY(!environment.isEmpty());
        QCOMPARE(environment.value(u"serverName"_s), QVariant(u"press 7"_s));
        QCOMPARE(environment.value(u"number"_s), QVariant(2));
        QList<QString> keys = environment.keys();
        std::sort(keys.begin(), keys.end());
        QCOMPARE(keys, (QList<QString>{u"number"_s, u"serverName"_s}));
    }

    void userIsHeldWithoutBeingOwned()
    {
        const SUserData user(u"ann"_s, u"p"_s, u"/srv"_s);
        {
            SPluggableEnvironment environment;
            environment.setUser(&user);
            QCOMPARE(environment.user(), &user);
            QVERIFY(environment.value(u"user"_s).isValid());
            const SPluggableEnvironment copy = environment;
            QCOMPARE(copy.user(), &user);
        }
        QCOMPARE(user.username(), u"ann"_s);
    }

    void noUserCanBeSet()
    {
        SPluggableEnvironment environment;
        environment.setUser(nullptr);
        QVERIFY(!environment.user());
        QCOMPARE(environment.keys(), QList<QString>{u"user"_s});
    }

    void valueOfAnotherTypeIsNoUser()
    {
        SPluggableEnvironment environment;
        environment.setValue(u"user"_s, u"ann"_s);
        QVERIFY(!environment.user());
    }

    void documentRootStandsUnderItsKey()
    {
        SPluggableEnvironment environment;
        environment.setDocumentRootEnabled(true);
        QVERIFY(environment.documentRootEnabled());
        QCOMPARE(environment.value(u"documentRootEnabled"_s), QVariant(true));
        environment.setDocumentRootEnabled(false);
        QVERIFY(!environment.documentRootEnabled());
        QCOMPARE(environment.value(u"documentRootEnabled"_s), QVariant(false));
    }

    void copyIsIndependent()
    {
        SPluggableEnvironment environment;
        environment.setValue(u"a"_s, 1);
        SPluggableEnvironment copy = environment;
        copy.setValue(u"a"_s, 2);
        QCOMPARE(environment.value(u"a"_s), QVariant(1));
    }

    void comparisonLooksAtNamesAndValues()
    {
        const SUserData ann(u"ann"_s, u"p"_s, u"/srv"_s);
        const SUserData bob(u"bob"_s, u"p"_s, u"/srv"_s);
        const auto make = [](const SUserData &user) {
            SPluggableEnvironment environment;
            environment.setUser(&user);
            environment.setDocumentRootEnabled(true);
            return environment;
        };
        QVERIFY(make(ann) == make(ann));
        QVERIFY(!(make(ann) != make(ann)));
        QVERIFY(make(ann) != make(bob));
        QVERIFY(make(ann) != SPluggableEnvironment());
        QVERIFY(SPluggableEnvironment() == SPluggableEnvironment());
    }
};

QTEST_APPLESS_MAIN(tst_SPluggableEnvironment)
#include "tst_spluggableenvironment.moc"
