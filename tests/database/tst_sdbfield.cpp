// SPDX-License-Identifier: MIT
#include <brixlib/database/sdbfield.h>

using namespace Talverine;
using namespace Qt::StringLiterals;

class tst_SDBField : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void linesAreReadBack()
    {
        const SDBField field(u"tags"_s, QStringList{u"a"_s, u"b"_s});
        QCOMPARE(field.toString(), u"tags.0 = a\r\ntags.1 = b"_s);
        const SDBField read = SDBField::fromString(field.toString());
        QCOMPARE(read.key(), u"tags"_s);
        QCOMPARE(read.value(), QVariant(QVariantList{u"a"_s, u"b"_s}));
    }
};

QTEST_APPLESS_MAIN(tst_SDBField)
#include "tst_sdbfield.moc"
