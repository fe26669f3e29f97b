// SPDX-License-Identifier: MIT
#include <brixlib/foundation/sbrixlibinfo.h>

#include <brixrt/s3rdparty.h>

using namespace Talverine;
using namespace Qt::StringLiterals;

class tst_ThirdParty : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    // The library registers them at load; a call into it keeps the linker from dropping it.
    void initTestCase() { QCOMPARE(SBrixlibInfo::build(), 1); }

    void modulesStandInTheirOrder()
    {
        QList<QString> names;
        for (const S3rdParty::Module &module : S3rdParty::modules())
            names.append(module.name);
        QCOMPARE(names, QList<QString>({u"Vorne"_s, u"LZ4"_s, u"KDSoapClient"_s}));
    }

    void versions()
    {
        const QList<S3rdParty::Module> modules = S3rdParty::modules();
        QCOMPARE(modules.at(1).version, SVersion(0x010903));
        QCOMPARE(modules.at(2).version, SVersion(0x020000));
    }

    void ownProtocolHasNoNotice() { QVERIFY(S3rdParty::modules().at(0).notice.isEmpty()); }

    void noticesAreResourcesThatTellOfTheirModule()
    {
        for (const S3rdParty::Module &module : S3rdParty::modules().sliced(1)) {
            QFile file(module.notice);
            QVERIFY2(file.open(QIODevice::ReadOnly), qPrintable(module.notice));
            const QString text = QString::fromUtf8(file.readAll());
            QVERIFY(module.notice.startsWith(u":/"));
            QVERIFY(text.startsWith(module.name));
            QVERIFY(text.contains(module.address));
        }
    }
};

QTEST_APPLESS_MAIN(tst_ThirdParty)
#include "tst_thirdparty.moc"
