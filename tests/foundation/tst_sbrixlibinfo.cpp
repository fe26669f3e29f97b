// SPDX-License-Identifier: MIT
#include <brixlib/brixlib_version.h>
#include <brixlib/foundation/sbrixlibinfo.h>

using namespace Talverine;
using namespace Qt::StringLiterals;

class tst_SBrixlibInfo : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void names()
    {
        QCOMPARE(SBrixlibInfo::title(), u"brixlib"_s);
        QCOMPARE(SBrixlibInfo::moduleName(), u"brixlib"_s);
    }

    void versionIs2_0_12()
    {
        QCOMPARE(SBrixlibInfo::version().value(), 0x0002000Cu);
        QCOMPARE(SBrixlibInfo::version().toString(), u"2.0.12"_s);
        QCOMPARE(BRIXLIB_VERSION, 0x0002000C);
        QCOMPARE(BRIXLIB_VERSION_STRING, "2.0.12");
    }

    void build() { QCOMPARE(SBrixlibInfo::build(), 1); }

    void textsAreThere()
    {
        QVERIFY(!SBrixlibInfo::company().isEmpty());
        QVERIFY(SBrixlibInfo::copyright().contains(SBrixlibInfo::company()));
        QVERIFY(!SBrixlibInfo::description().isEmpty());
    }
};

QTEST_APPLESS_MAIN(tst_SBrixlibInfo)
#include "tst_sbrixlibinfo.moc"
