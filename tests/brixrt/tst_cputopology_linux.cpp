// SPDX-License-Identifier: MIT
#include <brixrt/cputopology_linux_p.h>

using namespace Talverine;
using namespace Qt::StringLiterals;

namespace {

void writeFile(const QString &fileName, const QByteArray &content)
{
    QVERIFY(QDir().mkpath(QFileInfo(fileName).path()));
    QFile file(fileName);
    QVERIFY(file.open(QIODevice::WriteOnly));
    QCOMPARE(file.write(content), content.size());
}

} // namespace

class tst_CpuTopologyLinux : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void countsNumbersOfList_data()
    {
        QTest::addColumn<QByteArray>("list");
        QTest::addColumn<int>("count");
        QTest::newRow("one") << "0"_ba << 1;
        QTest::newRow("range") << "0-3"_ba << 4;
        QTest::newRow("two apart") << "0,4"_ba << 2;
        QTest::newRow("range and number") << "0-1,8"_ba << 3;
        QTest::newRow("range of one") << "7-7"_ba << 1;
        QTest::newRow("empty") << QByteArray() << 0;
        QTest::newRow("word") << "all"_ba << 0;
        QTest::newRow("open range") << "0-"_ba << 0;
        QTest::newRow("three ends") << "0-1-2"_ba << 0;
        QTest::newRow("backwards") << "3-0"_ba << 0;
        QTest::newRow("negative") << "-1"_ba << 0;
        QTest::newRow("one part damaged") << "0-1,x"_ba << 0;
        QTest::newRow("number beyond reason") << "0-2147483647"_ba << 0;
    }
    void countsNumbersOfList()
    {
        QFETCH(QByteArray, list);
        QFETCH(int, count);
        QCOMPARE(CpuPlatform::countOfList(list), count);
    }

    void takesTheCoreWithMostThreads()
    {
        const QTemporaryDir root;
        writeFile(root.filePath(u"smt/active"_s), "1\n");
        writeFile(root.filePath(u"cpu0/topology/thread_siblings_list"_s), "0\n");
        writeFile(root.filePath(u"cpu1/topology/thread_siblings_list"_s), "1,3\n");
        QVERIFY(QDir(root.path()).mkdir(u"cpufreq"_s));
        QCOMPARE(CpuPlatform::threadsPerCore(root.path()), 2);
    }

    void oneThreadWhereItIsSwitchedOff()
    {
        const QTemporaryDir root;
        writeFile(root.filePath(u"smt/active"_s), "0\n");
        writeFile(root.filePath(u"cpu0/topology/thread_siblings_list"_s), "0-1\n");
        QCOMPARE(CpuPlatform::threadsPerCore(root.path()), 1);
    }

    void listCountsWhereTheSwitchIsMissing()
    {
        const QTemporaryDir root;
        writeFile(root.filePath(u"cpu0/topology/thread_siblings_list"_s), "0-1\n");
        QCOMPARE(CpuPlatform::threadsPerCore(root.path()), 2);
    }

    void oneThreadWhereNothingIsTold()
    {
        const QTemporaryDir root;
        QCOMPARE(CpuPlatform::threadsPerCore(root.path()), 1);
        QCOMPARE(CpuPlatform::threadsPerCore(root.filePath(u"missing"_s)), 1);
        writeFile(root.filePath(u"cpu0/topology/thread_siblings_list"_s), "damaged\n");
        QCOMPARE(CpuPlatform::threadsPerCore(root.path()), 1);
    }
};

QTEST_APPLESS_MAIN(tst_CpuTopologyLinux)
#include "tst_cputopology_linux.moc"
