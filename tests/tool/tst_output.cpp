// SPDX-License-Identifier: MIT
#include <cli/output.h>

using namespace Brix;
using namespace Qt::StringLiterals;

class tst_Output : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void countsAreShownInBinaryUnits()
    {
        QCOMPARE(Output::bytes(0), u"0 bytes"_s);
        QCOMPARE(Output::bytes(1023), u"1023 bytes"_s);
        QCOMPARE(Output::bytes(1536), u"1.5 KiB"_s);
        QCOMPARE(Output::bytes(512LL << 20), u"512.0 MiB"_s);
        QCOMPARE(Output::bytes(5LL << 30), u"5.0 GiB"_s);
    }
};

QTEST_APPLESS_MAIN(tst_Output)
#include "tst_output.moc"
