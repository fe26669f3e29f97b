// SPDX-License-Identifier: MIT
#include <brixrt/sarray.h>

#include <shared/refusedallocation.h>

#include <limits>

using namespace Talverine;

namespace {

SArray<int> counting(quint64 size)
{
    SArray<int> array(size);
    for (quint64 i = 0; i < size; ++i)
        array[i] = static_cast<int>(i);
    return array;
}

template<typename T>
bool allZero(const SArray<T> &array, quint64 from = 0)
{
    return std::all_of(array.data() + from, array.data() + array.size(),
                       [](const T &value) { return value == T(); });
}

} // namespace

class tst_SArray : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void freshArrayIsNull()
    {
        const SArray<char> array;
        QVERIFY(array.isNull());
        QCOMPARE(array.size(), 0u);
        QCOMPARE(array.byteSize(), 0u);
        QVERIFY(!array.data());
        QVERIFY(SArray<char>(0).isNull());
    }

    void sizesAreInElementsAndInBytes()
    {
        const SArray<qint64> array(3);
        QVERIFY(!array.isNull());
        QCOMPARE(array.size(), 3u);
        QCOMPARE(array.byteSize(), 24u);
    }

    void newElementsAreZero()
    {
        // Blocks that were in use before are what shows a missing initialisation.
        for (int i = 0; i < 100; ++i) {
            SArray<quint32> array(1000);
            QVERIFY(allZero(array));
            array.fill(0xFFFFFFFF);
        }
    }

    void elementsNeedNotBeInitialised()
    {
        SArray<quint32> array(1000, false);
        QCOMPARE(array.size(), 1000u);
        array.fill(7);
        QCOMPARE(array[999], 7u);
    }

    void fillSetsEachElement()
    {
        SArray<quint16> array(3);
        array.fill(0x1234);
        for (quint64 i = 0; i < 3; ++i)
            QCOMPARE(array[i], quint16(0x1234));
        SArray<quint16> none;
        none.fill(1);
        QVERIFY(none.isNull());
    }

    void copyIsDeep()
    {
        SArray<int> array = counting(10);
        const SArray<int> copy(array);
        SArray<int> assigned(3);
        assigned = array;
        array.fill(-1);
        for (quint64 i = 0; i < 10; ++i) {
            QCOMPARE(copy[i], static_cast<int>(i));
            QCOMPARE(assigned[i], static_cast<int>(i));
        }
        QCOMPARE(copy.size(), 10u);
        QCOMPARE(assigned.size(), 10u);
    }

    void copyOfANullArrayIsNull()
    {
        const SArray<int> null;
        SArray<int> array = counting(3);
        array = null;
        QVERIFY(array.isNull());
        QVERIFY(SArray<int>(null).isNull());
    }

    void assignmentToItselfChangesNothing()
    {
        SArray<int> array = counting(3);
        const SArray<int> &same = array;
        array = same;
        QCOMPARE(array.size(), 3u);
        QCOMPARE(array[2], 2);
    }

    void moveTakesTheStorage()
    {
        SArray<int> array = counting(3);
        const int *storage = array.data();
        SArray<int> moved(std::move(array));
        QCOMPARE(moved.data(), storage);
        QCOMPARE(moved.size(), 3u);
        QVERIFY(array.isNull());
        QVERIFY(!array.data());
        array = std::move(moved);
        QCOMPARE(array.data(), storage);
        QCOMPARE(array.size(), 3u);
        QVERIFY(moved.isNull());
    }

    void growingKeepsTheElementsAndClearsTheNewOnes()
    {
        SArray<int> array = counting(10);
        QVERIFY(array.resize(100000));
        QCOMPARE(array.size(), 100000u);
        for (quint64 i = 0; i < 10; ++i)
            QCOMPARE(array[i], static_cast<int>(i));
        QVERIFY(allZero(array, 10));
    }

    void shrinkingKeepsWhatFits()
    {
        SArray<int> array = counting(10);
        QVERIFY(array.resize(4, false));
        QCOMPARE(array.size(), 4u);
        QCOMPARE(array[3], 3);
        QVERIFY(array.resize(0));
        QVERIFY(array.isNull());
        QVERIFY(!array.data());
    }

    void sameSizeKeepsTheStorage()
    {
        SArray<int> array = counting(10);
        const int *storage = array.data();
        QVERIFY(array.resize(10));
        QCOMPARE(array.data(), storage);
        QCOMPARE(array[9], 9);
    }

    void sizeThatCannotBeHadChangesNothing_data()
    {
        constexpr quint64 largest = std::numeric_limits<std::ptrdiff_t>::max();
        QTest::addColumn<quint64>("size");
        QTest::newRow("more than any machine has") << kBytesNobodyHas / sizeof(quint64);
        QTest::newRow("more than a pointer difference") << largest / sizeof(quint64) + 1;
        QTest::newRow("bytes that come to 0 in 64 bits") << (quint64(1) << 61);
        QTest::newRow("bytes that come to 8 in 64 bits") << (quint64(1) << 61) + 1;
        QTest::newRow("largest count") << std::numeric_limits<quint64>::max();
    }

    void sizeThatCannotBeHadChangesNothing()
    {
        QFETCH(quint64, size);
        QVERIFY(SArray<quint64>(size).isNull());
        QVERIFY(SArray<quint64>(size, false).isNull());

        SArray<quint64> array(2);
        array.fill(42);
        const quint64 *storage = array.data();
        QVERIFY(!array.resize(size));
        QVERIFY(!array.resize(size, false));
        QCOMPARE(array.size(), 2u);
        QCOMPARE(array.data(), storage);
        QCOMPARE(array[1], 42u);
    }
};

QTEST_APPLESS_MAIN(tst_SArray)
#include "tst_sarray.moc"
