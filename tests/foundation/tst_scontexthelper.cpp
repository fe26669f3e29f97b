// SPDX-License-Identifier: MIT
#include <brixlib/foundation/scontexthelper.h>

#include <QtCore/QSet>

#include <thread>
#include <vector>

using namespace Talverine;

class tst_SContextHelper : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    // Stands first: later tests have taken ids.
    void idsCountFromOne()
    {
        QCOMPARE(SContextHelper::newContextId(), 1u);
        QCOMPARE(SContextHelper::newContextId(), 2u);
        QCOMPARE(SContextHelper::newContextId(), 3u);
    }

    void noIdIsGivenTwiceToThreadsThatRace()
    {
        constexpr size_t threadCount = 4;
        constexpr size_t idsPerThread = 5000;
        const quint32 before = SContextHelper::newContextId();
        std::vector<std::vector<quint32>> ids(threadCount);
        std::vector<std::thread> threads;
        for (auto &mine : ids) {
            threads.emplace_back([&mine] {
                for (size_t i = 0; i < idsPerThread; ++i)
                    mine.push_back(SContextHelper::newContextId());
            });
        }
        for (std::thread &thread : threads)
            thread.join();

        QSet<quint32> all;
        for (const auto &mine : ids) {
            QVERIFY(std::is_sorted(mine.begin(), mine.end()));
            for (const quint32 id : mine)
                all.insert(id);
        }
        QCOMPARE(all.size(), qsizetype(threadCount * idsPerThread));
        QCOMPARE(SContextHelper::newContextId(), before + quint32(all.size()) + 1);
    }
};

QTEST_APPLESS_MAIN(tst_SContextHelper)
#include "tst_scontexthelper.moc"
