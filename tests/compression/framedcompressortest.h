// SPDX-License-Identifier: MIT
// What holds for every compressor of framed blocks that can work on several threads. The source of
// a test program that includes this ends with "moc_framedcompressortest.cpp" too.
#pragma once

#include "processors.h"
#include "streams.h"

#include <brixlib/compression/scompressordevice.h>

#include <shared/memorypeak.h>
#include <shared/recordingdevice.h>
#include <shared/seededrandom.h>

#include <QtCore/QRegularExpression>

#include <memory>

//! The slots of this class are tests of each class that is derived from it; where one has no data
//! here, the derived class has them.
class FramedCompressorTest : public QObject
{
    Q_OBJECT

protected:
    using ICompressor = Talverine::Compression::Interfaces::ICompressor;
    using SCompressorDevice = Talverine::Compression::SCompressorDevice;

    static constexpr qint64 kMiB = 1024 * 1024;

    //! One by the number of its mode; 0 is that of framed streams, 1 that of a block alone.
    virtual std::unique_ptr<ICompressor> compressor(int mode, int level) const = 0;
    virtual std::unique_ptr<SCompressorDevice> device(QIODevice *file, bool leaveOpen,
                                                      int level) const = 0;
    virtual QByteArray block(const QByteArray &data, int level) const = 0;
    //! A block that can't be decoded.
    virtual QByteArray damagedBlock() const = 0;
    virtual bool storesAtLevel0() const = 0;
    //! Whether Qt warns of data that can't be decoded.
    virtual bool warnsOfDamage() const = 0;

    std::unique_ptr<ICompressor> framedCompressor(int level = 1) const
    {
        return compressor(0, level);
    }
    //! The framed stream of \a data, each \a piece bytes a block of their own.
    QByteArray streamOf(const QByteArray &data, qsizetype piece, int level = 1) const
    {
        QByteArray stream;
        for (qsizetype at = 0; at < data.size(); at += piece)
            stream += Streams::framed(block(data.mid(at, piece), level));
        return stream;
    }
    //! To be called before a block that can't be decoded is read.
    void expectDamage() const
    {
        // The text is another one for each kind of damage.
        static const QRegularExpression warning(QStringLiteral("^qUncompress"));
        if (warnsOfDamage())
            QTest::ignoreMessage(QtWarningMsg, warning);
    }

private Q_SLOTS:
    void streamComesBack()
    {
        QFETCH(int, maxSize);
        const QByteArray data = Streams::text(20'500);
        const auto reader = framedCompressor();
        const Streams::Decoded decoded =
            Streams::decode(reader.get(), streamOf(data, 1000), maxSize);
        QCOMPARE(decoded.bytes, data);
        QCOMPARE(decoded.last, 0);
        QCOMPARE(reader->bytesAvailable(), 0);
    }

    void blockAloneComesBack_data()
    {
        QTest::addColumn<bool>("sized");
        QTest::addColumn<QByteArray>("rest");
        QTest::newRow("to the end") << false << QByteArray();
        QTest::newRow("of a known size") << true << QByteArray();
        QTest::newRow("of a known size with more behind") << true << QByteArray("more");
    }

    void blockAloneComesBack()
    {
        QFETCH(bool, sized);
        QFETCH(QByteArray, rest);
        const QByteArray data = Streams::text(300'000);
        const auto both = compressor(1, 1);
        const QByteArray stream = Streams::encode(both.get(), data);
        QBuffer source;
        source.setData(stream + rest);
        QVERIFY(source.open(QIODevice::ReadOnly));
        QByteArray decoded(data.size() + 1, Qt::Uninitialized);
        const qint64 size = sized ? stream.size() : 0;
        QCOMPARE(both->decompress(&source, decoded.data(), 1000, size), 1000);
        QCOMPARE(both->bytesAvailable(), 299'000);
        QCOMPARE(both->decompress(&source, decoded.data() + 1000, 300'000, size), 299'000);
        decoded.chop(1);
        QCOMPARE(decoded, data);
        QCOMPARE(source.readAll(), rest);
    }

    void lengthOf0EndsTheRead()
    {
        QBuffer source;
        source.setData(streamOf("one", 3) + RawBytes::u32(0) + streamOf("two", 3));
        QVERIFY(source.open(QIODevice::ReadOnly));
        const auto reader = framedCompressor();
        char data[10];
        QCOMPARE(reader->decompress(&source, data, 10, 0), 3);
        QCOMPARE(reader->decompress(&source, data, 10, 0), 0);
        QVERIFY(!source.atEnd());
        QCOMPARE(reader->decompress(&source, data, 10, 0), 3);
        QCOMPARE(QByteArray(data, 3), QByteArray("two"));
    }

    void compressedSizeTakesTheBlocks()
    {
        QFETCH(int, blocks);
        QFETCH(int, more);
        QFETCH(bool, whole);
        const QByteArray data("onetwosix");
        const QByteArray asked = data.first(3 * blocks);
        const qint64 size = streamOf(asked, 3).size() + more;
        QBuffer source;
        source.setData(streamOf(data, 3));
        QVERIFY(source.open(QIODevice::ReadOnly));
        const auto reader = framedCompressor();
        char decoded[20];
        const qint64 count = reader->decompress(&source, decoded, 20, size);
        QCOMPARE(count, whole ? asked.size() : -1);
        if (whole) {
            QCOMPARE(QByteArray(decoded, count), asked);
            QCOMPARE(source.pos(), size);
        } else {
            QCOMPARE(reader->bytesAvailable(), 0);
        }
    }

    void damagedBlockYieldsNothingAndTheNextComes()
    {
        QBuffer source;
        source.setData(streamOf("one", 3) + Streams::framed(damagedBlock()) + streamOf("two", 3));
        QVERIFY(source.open(QIODevice::ReadOnly));
        const auto reader = framedCompressor();
        char data[10];
        QCOMPARE(reader->decompress(&source, data, 10, 0), 3);
        expectDamage();
        QCOMPARE(reader->decompress(&source, data, 10, 0), 0);
        QCOMPARE(reader->decompress(&source, data, 10, 0), 3);
        QCOMPARE(QByteArray(data, 3), QByteArray("two"));
    }

    void truncatedStreamGivesFewerBytes()
    {
        QFETCH(int, level);
        const QByteArray data = Streams::text(700);
        const QByteArray stream = streamOf(data, 200, level);
        const Streams::Hush hush;
        for (qsizetype size = 0; size < stream.size(); ++size) {
            const auto reader = framedCompressor();
            const Streams::Decoded decoded = Streams::decode(reader.get(), stream.first(size));
            QCOMPARE(decoded.last, 0);
            QVERIFY(decoded.bytes.size() < data.size());
            QVERIFY(data.startsWith(decoded.bytes));
            QCOMPARE(decoded.bytes.size() % 200, 0);
        }
        QCOMPARE(hush.count() > 0, warnsOfDamage());
    }

    void falseLengthIsNotBelieved()
    {
        const QByteArray data("some bytes");
        const QByteArray packed = block(data, 1);
        const TestShared::MemoryPeak addresses;
        const TestShared::HeldMemoryPeak held;
        {
            const Streams::Hush hush;
            for (const QByteArray &length : Streams::falseWords()) {
                const auto reader = framedCompressor();
                const Streams::Decoded decoded = Streams::decode(reader.get(), length + packed);
                QCOMPARE(decoded.last, 0);
                QVERIFY(data.startsWith(decoded.bytes));
            }
        }
        QVERIFY(held.growth() < 2 * kMiB);
        QVERIFY(addresses.isValid());
        QVERIFY(addresses.growth() < 4 * kMiB);
    }

    void sourceMayGiveAByteAtATime()
    {
        const QByteArray data = Streams::text(3000);
        RecordingDevice source(streamOf(data, 1000));
        source.pieceBytes = 1;
        source.sequential = true;
        QVERIFY(source.open(QIODevice::ReadOnly));
        QCOMPARE(Streams::decode(framedCompressor().get(), &source).bytes, data);
    }

    // Failing targets

    void failedWriteIsAFailure()
    {
        const Processors machine(8);
        QFETCH(int, mode);
        QFETCH(int, concurrence);
        QFETCH(int, room);
        const QByteArray data = SeededRandom().bytes(65'536);
        RecordingDevice target;
        target.room = room;
        QVERIFY(target.open(QIODevice::WriteOnly));
        const auto writer = compressor(mode, 1);
        writer->setConcurrence(concurrence);
        QCOMPARE(writer->compress(data.constData(), data.size(), &target), -1);
        QCOMPARE(target.bytes.size(), room);
    }

    void failedLengthWordGoesUnnoticed_data()
    {
        QTest::addColumn<int>("concurrence");
        QTest::newRow("one thread") << 1;
        QTest::newRow("four threads") << 4;
    }

    void failedLengthWordGoesUnnoticed()
    {
        //! Takes no piece of four bytes.
        class NoWords : public RecordingDevice
        {
        protected:
            qint64 writeData(const char *data, qint64 size) override
            {
                return size == 4 ? -1 : RecordingDevice::writeData(data, size);
            }
        } target;
        QVERIFY(target.open(QIODevice::WriteOnly));
        const Processors machine(8);
        QFETCH(int, concurrence);
        const auto writer = framedCompressor();
        writer->setConcurrence(concurrence);
        QCOMPARE(writer->compress("x", 1, &target), 1);
        QCOMPARE(target.bytes, block("x", 1));
    }

    // Threads

    void twoThreadsWriteWhatOneDoesOfTheSamePieces()
    {
        const Processors machine(2);
        const QByteArray data = Streams::text(1'000'000);
        const auto two = framedCompressor(9);
        two->setConcurrence(2);
        const auto one = framedCompressor(9);
        const QByteArray halves = Streams::encode(one.get(), data.first(500'000)) +
                                  Streams::encode(one.get(), data.sliced(500'000));
        QCOMPARE(Streams::encode(two.get(), data), halves);
    }

    // The device

    void deviceIsFramed_data()
    {
        QTest::addColumn<int>("level");
        for (const int level : {0, 1, 9})
            QTest::addRow("level %d", level) << level;
    }

    void deviceIsFramed()
    {
        QFETCH(int, level);
        const QByteArray data = Streams::text(5000);
        QBuffer file;
        const auto writer = device(&file, false, level);
        QVERIFY(writer->open(QIODevice::WriteOnly));
        QCOMPARE(writer->write(data), data.size());
        writer->close();
        QVERIFY(!file.isOpen());
        QCOMPARE(file.data(), streamOf(data, 5000, level));
        QCOMPARE(file.data().contains(data), level == 0 && storesAtLevel0());

        const auto reader = device(&file, true, level);
        QVERIFY(reader->open(QIODevice::ReadOnly));
        QCOMPARE(reader->readAll(), data);
        reader->close();
        QVERIFY(file.isOpen());
    }

    void deviceReadsFewerBytesOfADamagedBlock()
    {
        QBuffer file;
        file.setData(streamOf("one", 3) + Streams::framed(damagedBlock()));
        const auto reader = device(&file, false, 1);
        QVERIFY(reader->open(QIODevice::ReadOnly));
        expectDamage();
        QCOMPARE(reader->read(6), QByteArray("one"));
        QCOMPARE(reader->readAll(), QByteArray());
        QVERIFY(reader->atEnd());
    }
};
