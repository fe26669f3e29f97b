// SPDX-License-Identifier: MIT
#include <brixlib/workers/simpleworkererror.h>
#include <brixlib/workers/ssimpleworker.h>

#include <brixrt/svariantconvert.h>

using namespace Talverine;
using namespace Qt::StringLiterals;

class tst_SimpleWorkerError : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void valuesAndNamesAreFixed_data()
    {
        QTest::addColumn<SimpleWorkerError>("value");
        QTest::addColumn<int>("number");
        QTest::addColumn<QString>("name");
        QTest::newRow("NoError") << SimpleWorkerError::NoError << 0 << u"NoError"_s;
        QTest::newRow("InitError") << SimpleWorkerError::InitError << 1 << u"InitError"_s;
        QTest::newRow("WorkError") << SimpleWorkerError::WorkError << 2 << u"WorkError"_s;
        QTest::newRow("InterruptRequested")
            << SimpleWorkerError::InterruptRequested << 3 << u"InterruptRequested"_s;
    }

    void valuesAndNamesAreFixed()
    {
        QFETCH(SimpleWorkerError, value);
        QFETCH(int, number);
        QFETCH(QString, name);
        QCOMPARE(static_cast<int>(value), number);
        QCOMPARE(SimpleWorkerError_T::instance().toString(value), name);
        QCOMPARE(SimpleWorkerError_T::instance().fromString(name, SimpleWorkerError::NoError),
                 value);
    }

    void signalIsDeclaredWithTheShortSpelling()
    {
        QVERIFY(SSimpleWorker::staticMetaObject.indexOfSignal("finished(SimpleWorkerError)") >= 0);
    }

    void isAMetaTypeUnderBothSpellings()
    {
        const QMetaType type = QMetaType::fromType<SimpleWorkerError>();
        QVERIFY(type.isValid());
        QCOMPARE(QMetaType::fromName("Talverine::SimpleWorkerError"), type);
        QCOMPARE(QMetaType::fromName("SimpleWorkerError"), type);
    }

    void variantTurnsToItsName()
    {
        const QVariant variant = QVariant::fromValue(SimpleWorkerError::WorkError);
        QString text;
        QVERIFY(SVariantConvert::toString(variant, QLocale::c(), &text));
        QCOMPARE(text, u"WorkError"_s);
    }
};

QTEST_APPLESS_MAIN(tst_SimpleWorkerError)
#include "tst_simpleworkererror.moc"
