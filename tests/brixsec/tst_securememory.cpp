// SPDX-License-Identifier: MIT
#include <brixsec/securememory_p.h>

using namespace Talverine::Security;
using namespace Qt::StringLiterals;

namespace {

// What came back from the blocks, as it stood at that moment.
QList<QByteArray> released;
int alive = 0;

} // namespace

namespace Talverine::Security {

void *allocateSecure(std::size_t bytes)
{
    ++alive;
    return ::operator new(bytes);
}

void releaseSecure(void *memory, std::size_t bytes)
{
    --alive;
    released.append(QByteArray(static_cast<const char *>(memory), static_cast<qsizetype>(bytes)));
    ::operator delete(memory);
}

} // namespace Talverine::Security

class tst_SecureMemory : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init() { released.clear(); }
    void cleanup() { QCOMPARE(alive, 0); }

    void blockHoldsACopyAndIsWipedWhenItDies_data()
    {
        QTest::addColumn<QByteArray>("bytes");
        QTest::newRow("one") << "s"_ba;
        QTest::newRow("word") << "secret"_ba;
        QTest::newRow("with a zero") << "sec\0ret"_ba;
        QTest::newRow("several pages") << QByteArray(100000, 's');
    }
    void blockHoldsACopyAndIsWipedWhenItDies()
    {
        QFETCH(QByteArray, bytes);
        {
            const SecureBlock block(bytes.constData(), static_cast<std::size_t>(bytes.size()));
            QVERIFY(block.data() != bytes.constData());
            QCOMPARE(QByteArray(block.data(), static_cast<qsizetype>(block.size())), bytes);
        }
        QCOMPARE(released, QList<QByteArray>{QByteArray(bytes.size(), '\0')});
    }

    void emptyBlockHasAnAddress()
    {
        const SecureBlock block(nullptr, 0);
        QCOMPARE(block.size(), std::size_t(0));
        QVERIFY(block.data());
    }

    void wipeOverwritesEachByte()
    {
        QByteArray bytes = "secret"_ba;
        wipe(bytes.data(), 5);
        QCOMPARE(bytes, "\0\0\0\0\0t"_ba);
        wipe(nullptr, 0);
    }

    void comparesBytes_data()
    {
        QTest::addColumn<QByteArray>("a");
        QTest::addColumn<QByteArray>("b");
        QTest::addColumn<bool>("equal");
        QTest::newRow("equal") << "secret"_ba
                               << "secret"_ba << true;
        QTest::newRow("first differs") << "secret"_ba
                                       << "tecret"_ba << false;
        QTest::newRow("last differs") << "secret"_ba
                                      << "secreu"_ba << false;
        QTest::newRow("prefix") << "secret"_ba
                                << "secre"_ba << false;
        QTest::newRow("behind a zero") << "a\0b"_ba
                                       << "a\0c"_ba << false;
        QTest::newRow("empty") << QByteArray() << ""_ba << true;
    }
    void comparesBytes()
    {
        QFETCH(QByteArray, a);
        QFETCH(QByteArray, b);
        QFETCH(bool, equal);
        QCOMPARE(equalInConstantTime(a.constData(), static_cast<std::size_t>(a.size()),
                                     b.constData(), static_cast<std::size_t>(b.size())),
                 equal);
    }
};

QTEST_APPLESS_MAIN(tst_SecureMemory)
#include "tst_securememory.moc"
