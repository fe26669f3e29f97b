// SPDX-License-Identifier: MIT
// Compressed files between this library and a few lines of another language with other libraries.
#include "streams.h"

#include <brixlib/compression.h>

#include <shared/seededrandom.h>

#include <QtCore/QProcess>

using namespace Talverine::Compression;
using namespace Qt::StringLiterals;
using Interfaces::ICompressor;

namespace {

QByteArray runPeer(const QStringList &arguments)
{
    QProcess peer;
    peer.start(QStringLiteral(BRIX_PYTHON),
               QStringList{QStringLiteral(BRIX_CONTAINERS)} + arguments);
    if (!peer.waitForFinished(60'000) || peer.exitCode() != 0)
        return "the other program failed: " + peer.readAllStandardError();
    return peer.readAllStandardOutput();
}

std::unique_ptr<ICompressor> compressorOf(const QString &name)
{
    if (name == u"lz4")
        return std::make_unique<SLz4>();
    if (name == u"zip")
        return std::make_unique<SZip>();
    if (name == u"packbits")
        return std::make_unique<SPackBits>(PackBitsMode::PackBitsFramed);
    return std::make_unique<SNullCompressor>();
}

//! Of blocks without frames.
std::unique_ptr<ICompressor> blockCompressorOf(const QString &name, int level)
{
    if (name == u"lz4")
        return std::make_unique<SLz4>(level, Lz4Mode::Lz4Raw);
    return std::make_unique<SZip>(level,
                                  name == u"zip" ? ZipMode::ZipQtBlock : ZipMode::ZipRawStream);
}

} // namespace

class tst_Containers : public QObject
{
    Q_OBJECT

private:
    QTemporaryDir m_dir;

    QString store(const QByteArray &content) const
    {
        QFile file(m_dir.filePath(u"file"_s));
        return file.open(QIODevice::WriteOnly) && file.write(content) == content.size()
                   ? file.fileName()
                   : QString();
    }

    void addRows()
    {
        QTest::addColumn<QString>("name");
        QTest::addColumn<QByteArray>("data");
        SeededRandom random;
        const QByteArray disorder = random.bytes(400'000);
        for (const QString &name : {u"lz4"_s, u"zip"_s, u"packbits"_s, u"uncompressed"_s}) {
            QTest::addRow("%s, nothing", qPrintable(name)) << name << QByteArray();
            QTest::addRow("%s, a byte", qPrintable(name)) << name << "x"_ba;
            QTest::addRow("%s, one block", qPrintable(name)) << name << Streams::text(131'072);
            QTest::addRow("%s, one block and a byte", qPrintable(name))
                << name << Streams::text(131'073);
            QTest::addRow("%s, a long run", qPrintable(name)) << name << QByteArray(1'000'000, 'x');
            QTest::addRow("%s, text", qPrintable(name)) << name << Streams::text(1'000'000);
            QTest::addRow("%s, disorder", qPrintable(name)) << name << disorder;
        }
    }

private Q_SLOTS:
    void peerReadsOurs_data() { addRows(); }

    void peerReadsOurs()
    {
        QFETCH(QString, name);
        QFETCH(QByteArray, data);
        for (const int concurrence : {1, 2}) {
            QBuffer source;
            source.setData(data);
            QBuffer target;
            std::unique_ptr<ICompressor> compressor = compressorOf(name);
            compressor->setConcurrence(concurrence);
            QVERIFY(SCompressorDevice::compress(&source, &target, compressor.release()));
            QVERIFY(runPeer({u"read"_s, store(target.data())}) == data);
        }
    }

    void weReadThePeers_data() { addRows(); }

    void weReadThePeers()
    {
        QFETCH(QString, name);
        QFETCH(QByteArray, data);
        QBuffer source;
        source.setData(runPeer({u"write"_s, name, store(data)}));
        QBuffer target;
        QVERIFY2(SCompressorDevice::decompress(&source, &target, compressorOf(name).release()),
                 source.data().first(qMin<qsizetype>(source.data().size(), 200)).constData());
        QVERIFY(target.data() == data);
    }

    void blocksWithoutFramesAreReadBothWays_data()
    {
        QTest::addColumn<QString>("name");
        QTest::addColumn<QByteArray>("data");
        const QByteArray disorder = SeededRandom().bytes(200'000);
        for (const QString &name : {u"lz4"_s, u"zip"_s, u"stream"_s}) {
            QTest::addRow("%s, a byte", qPrintable(name)) << name << "x"_ba;
            QTest::addRow("%s, text", qPrintable(name)) << name << Streams::text(300'000);
            QTest::addRow("%s, disorder", qPrintable(name)) << name << disorder;
        }
    }

    void blocksWithoutFramesAreReadBothWays()
    {
        QFETCH(QString, name);
        QFETCH(QByteArray, data);
        for (const int level : {0, 1, 9}) {
            const QByteArray block = Streams::encode(blockCompressorOf(name, level).get(), data);
            QVERIFY(!block.isEmpty());
            QVERIFY(runPeer({u"decode"_s, name, store(block)}) == data);
        }
        const QByteArray block = runPeer({u"encode"_s, name, store(data)});
        QVERIFY(Streams::decode(blockCompressorOf(name, 1).get(), block, data.size()).bytes ==
                data);
    }

    void peerNoticesDamage()
    {
        // Or else it would agree with anything.
        QBuffer source;
        source.setData("some bytes"_ba);
        QBuffer target;
        QVERIFY(SCompressorDevice::compress(&source, &target, new SLz4));
        QByteArray container = target.data();
        container[23] = static_cast<char>(container.at(23) ^ 1);
        const QByteArray answer = runPeer({u"read"_s, store(container)});
        QVERIFY(answer.contains("the checksum is wrong"));
    }
};

QTEST_GUILESS_MAIN(tst_Containers)
#include "tst_containers.moc"
