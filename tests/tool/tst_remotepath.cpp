// SPDX-License-Identifier: MIT
#include <remote/remotepath.h>

using namespace Brix;
using namespace Qt::StringLiterals;

class tst_RemotePath : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void namesAreJoinedWithOneSlash()
    {
        QCOMPARE(RemotePath::join(QString(), u"a"_s), u"a"_s);
        QCOMPARE(RemotePath::join(u"a"_s, u"b"_s), u"a/b"_s);
        QCOMPARE(RemotePath::join(u"a/"_s, u"b"_s), u"a/b"_s);
        QCOMPARE(RemotePath::join(u"/"_s, u"b"_s), u"/b"_s);
    }

    void partsAreTakenApart_data()
    {
        QTest::addColumn<QString>("path");
        QTest::addColumn<QString>("parent");
        QTest::addColumn<QString>("name");
        QTest::newRow("bare name") << u"a"_s << QString() << u"a"_s;
        QTest::newRow("relative") << u"a/b/c"_s << u"a/b"_s << u"c"_s;
        QTest::newRow("absolute") << u"/a/b"_s << u"/a"_s << u"b"_s;
        QTest::newRow("at the root") << u"/a"_s << u"/"_s << u"a"_s;
        QTest::newRow("slash at the end") << u"a/b/"_s << u"a"_s << QString();
        QTest::newRow("dots at the end") << u"a/.."_s << u"a"_s << QString();
        QTest::newRow("nothing") << QString() << QString() << QString();
    }

    void partsAreTakenApart()
    {
        QFETCH(QString, path);
        QFETCH(QString, parent);
        QFETCH(QString, name);
        QCOMPARE(RemotePath::parent(path), parent);
        QCOMPARE(RemotePath::name(path), name);
    }

    void slashesAtTheEndAreCut()
    {
        QCOMPARE(RemotePath::withoutSlash(u"a//"_s), u"a"_s);
        QCOMPARE(RemotePath::withoutSlash(u"a"_s), u"a"_s);
        QCOMPARE(RemotePath::withoutSlash(u"/"_s), u"/"_s);
        QCOMPARE(RemotePath::withoutSlash(u"//"_s), u"/"_s);
        QCOMPARE(RemotePath::withoutSlash(QString()), QString());
    }

    void namesThatLeadElsewhereAreNotSafe()
    {
        for (const auto &name :
             {u""_s, u"."_s, u".."_s, u"a/b"_s, u"/a"_s, u"../a"_s, QString(u"a\0b"_s)})
            QVERIFY2(!RemotePath::isSafeName(name), qPrintable(name));
        for (const auto &name : {u"a"_s, u"..."_s, u".hidden"_s, u"..a"_s, u"größe"_s, u" "_s})
            QVERIFY2(RemotePath::isSafeName(name), qPrintable(name));
    }

    void pathsThatChangeOnArrivalAreKnown()
    {
        for (const QChar c : u"?<>*|\""_s)
            QVERIFY(RemotePath::isChangedOnArrival(u"a/"_s + c + u"/b"_s));
        QVERIFY(!RemotePath::isChangedOnArrival(u"C:/a b/c'd;e&f%g\\h"_s));
    }
};

QTEST_APPLESS_MAIN(tst_RemotePath)
#include "tst_remotepath.moc"
