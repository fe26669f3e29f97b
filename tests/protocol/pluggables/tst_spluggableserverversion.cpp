// SPDX-License-Identifier: MIT
#include <brixlib/protocol/pluggables/spluggableserverversion.h>

using namespace Talverine;
using namespace Qt::StringLiterals;

class tst_SPluggableServerVersion : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void valueIsTheApplicationsNameAndVersion()
    {
        QCoreApplication::setApplicationName(u"press"_s);
        QCoreApplication::setApplicationVersion(u"3.1"_s);
        QObject parent;
        SPluggableServerVersion pluggable(&parent);
        QCOMPARE(pluggable.parent(), &parent);
        QCOMPARE(pluggable.value(), u"press 3.1"_s);
        QByteArray output;
        QVERIFY(pluggable.execute({}, output, {}));
        QCOMPARE(output, "STRGpress 3.1"_ba);
    }

    void percentSignsInTheNameStay()
    {
        QCoreApplication::setApplicationName(u"100%2 press"_s);
        QCoreApplication::setApplicationVersion(u"3.1"_s);
        QCOMPARE(SPluggableServerVersion().value(), u"100%2 press 3.1"_s);
    }
};

QTEST_GUILESS_MAIN(tst_SPluggableServerVersion)
#include "tst_spluggableserverversion.moc"
