// SPDX-License-Identifier: MIT
#include <brixlib/compression/framedblocks_p.h>

#include <QtCore/QIODevice>
#include <QtTest/QTest>

#include <limits>

using namespace Talverine::Compression;

namespace {

//! Counts what it is given, and looks at none of it.
class Counter final : public QIODevice
{
public:
    Counter() { QIODevice::open(WriteOnly | Unbuffered); }

    qint64 count() const { return m_count; }

protected:
    qint64 readData(char *, qint64) override { return -1; }
    qint64 writeData(const char *, qint64 size) override
    {
        m_count += size;
        return size;
    }

private:
    qint64 m_count = 0;
};

constexpr qint64 kLongestBlock = std::numeric_limits<quint32>::max();

//! A block of no memory but its first byte's.
QByteArray blockOf(qint64 size)
{
    return QByteArray::fromRawData("x", static_cast<qsizetype>(size));
}

} // namespace

class tst_FramedBlocks : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void writesTheLongestBlock();
    void refusesABlockThatNoWordTells();
};

void tst_FramedBlocks::writesTheLongestBlock()
{
    Counter target;
    QVERIFY(writeFramedBlock(&target, blockOf(kLongestBlock)));
    QCOMPARE(target.count(), 4 + kLongestBlock);
}

// A reader would take what lies behind the cut length for the next blocks.
void tst_FramedBlocks::refusesABlockThatNoWordTells()
{
    for (const qint64 size : {kLongestBlock + 1, kLongestBlock + 5}) {
        Counter target;
        QVERIFY(!writeFramedBlock(&target, blockOf(size)));
        QCOMPARE(target.count(), 0);
    }
}

QTEST_APPLESS_MAIN(tst_FramedBlocks)
#include "tst_framedblocks.moc"
