// SPDX-License-Identifier: MIT
// brix compress and brix decompress, as processes.
#include <brixlib/compression.h>

#include <shared/faketerminal.h>
#include <shared/toolprocess.h>

#include <QtCore/QJsonDocument>
#include <QtCore/QJsonObject>

#include <csignal>

#include <sys/resource.h>
#include <sys/stat.h>

using namespace Talverine::Compression;
using namespace Qt::StringLiterals;

namespace {

constexpr int kPatienceMs = 30'000;

QByteArray text(qsizetype size)
{
    QByteArray bytes;
    for (int i = 0; bytes.size() < size; ++i)
        bytes += "line " + QByteArray::number(i * 7919 % 1000) + " of a log\n";
    bytes.truncate(size);
    return bytes;
}

QByteArray disorder(qsizetype size)
{
    QByteArray bytes(size, Qt::Uninitialized);
    quint32 state = 1;
    for (char &byte : bytes)
        byte = char((state = state * 1664525 + 1013904223) >> 24);
    return bytes;
}

QByteArray container(const QByteArray &data, Interfaces::ICompressor *compressor)
{
    QBuffer source;
    source.setData(data);
    QBuffer target;
    return SCompressorDevice::compress(&source, &target, compressor) ? target.data()
                                                                     : "not compressed"_ba;
}

QByteArray lz4(const QByteArray &data)
{
    return container(data, new SLz4);
}

QJsonObject object(const QByteArray &line)
{
    return QJsonDocument::fromJson(line).object();
}

bool waitForEnd(const QProcess &process)
{
    return QTest::qWaitFor([&] { return process.state() == QProcess::NotRunning; }, kPatienceMs) &&
           process.exitStatus() == QProcess::NormalExit;
}

} // namespace

class tst_ToolCompressCommands : public QObject
{
    Q_OBJECT

private:
    std::unique_ptr<QTemporaryDir> m_dir;
    ToolProcess m_tool;

    QString path(const QString &name) const { return m_dir->filePath(name); }
    QByteArray read(const QString &name) const
    {
        QFile file(path(name));
        return file.open(QIODevice::ReadOnly) ? file.readAll() : "unreadable"_ba;
    }
    void write(const QString &name, const QByteArray &content) const
    {
        QFile file(path(name));
        QVERIFY(file.open(QIODevice::WriteOnly));
        QCOMPARE(file.write(content), content.size());
    }
    QStringList files() const
    {
        return QDir(m_dir->path())
            .entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot);
    }
    ToolResult compress(const QStringList &arguments) const
    {
        return m_tool.run(QStringList{u"compress"_s} + arguments);
    }
    ToolResult decompress(const QStringList &arguments) const
    {
        return m_tool.run(QStringList{u"decompress"_s} + arguments);
    }

private Q_SLOTS:
    void init()
    {
        m_dir = std::make_unique<QTemporaryDir>();
        m_tool = {};
        m_tool.workingDirectory = m_dir->path();
    }

    // There and back

    void contentComesBack_data()
    {
        QTest::addColumn<QString>("algorithm");
        QTest::addColumn<QByteArray>("content");
        for (const QString &algorithm : {u"lz4"_s, u"zip"_s, u"packbits"_s, u"lzw"_s, u"none"_s}) {
            QTest::addRow("%s, nothing", qPrintable(algorithm)) << algorithm << QByteArray();
            QTest::addRow("%s, a byte", qPrintable(algorithm)) << algorithm << "x"_ba;
            QTest::addRow("%s, a piece", qPrintable(algorithm)) << algorithm << text(131'072);
            QTest::addRow("%s, many pieces", qPrintable(algorithm)) << algorithm << text(1'500'000);
            QTest::addRow("%s, disorder", qPrintable(algorithm)) << algorithm << disorder(700'000);
        }
    }

    void contentComesBack()
    {
        QFETCH(QString, algorithm);
        QFETCH(QByteArray, content);
        write(u"file"_s, content);
        auto result = compress({u"--algorithm"_s, algorithm, u"file"_s});
        QVERIFY2(result.exitCode == 0, result.err.constData());
        QVERIFY(result.err.isEmpty());
        QVERIFY(result.out.startsWith(path(u"file.brixz: "_s).toLocal8Bit()));
        QCOMPARE(files(), (QStringList{u"file"_s, u"file.brixz"_s}));
        QVERIFY(QFile::remove(path(u"file"_s)));

        result = decompress({u"file.brixz"_s});
        QVERIFY2(result.exitCode == 0, result.err.constData());
        QVERIFY(result.err.isEmpty());
        QVERIFY(result.out.startsWith(path(u"file: "_s).toLocal8Bit()));
        QCOMPARE(files(), (QStringList{u"file"_s, u"file.brixz"_s}));
        QVERIFY(read(u"file"_s) == content);
    }

    void fileIsTheLibrarysContainer()
    {
        const QByteArray content = text(500'000);
        write(u"file"_s, content);
        QCOMPARE(compress({u"file"_s, u"default"_s}).exitCode, 0);
        QVERIFY(read(u"default"_s) == lz4(content));
        QCOMPARE(compress({u"--algorithm"_s, u"zip"_s, u"--level"_s, u"9"_s, u"file"_s, u"zip"_s})
                     .exitCode,
                 0);
        QVERIFY(read(u"zip"_s) == container(content, new SZip(9)));
        QCOMPARE(compress({u"--level"_s, u"0"_s, u"file"_s, u"fast"_s}).exitCode, 0);
        QVERIFY(read(u"fast"_s) == container(content, new SLz4(0)));
        QCOMPARE(compress({u"--algorithm"_s, u"packbits"_s, u"file"_s, u"packbits"_s}).exitCode, 0);
        QVERIFY(read(u"packbits"_s) ==
                container(content, new SPackBits(PackBitsMode::PackBitsFramed)));
        QCOMPARE(compress({u"--algorithm"_s, u"lzw"_s, u"file"_s, u"lzw"_s}).exitCode, 0);
        QVERIFY(read(u"lzw"_s) == container(content, new STiffLZW));
    }

    void severalThreadsCompress_data()
    {
        QTest::addColumn<QString>("algorithm");
        QTest::addColumn<QString>("threads");
        QTest::newRow("half of all") << u"lz4"_s << u"0"_s;
        QTest::newRow("two") << u"lz4"_s << u"2"_s;
        QTest::newRow("more than there are") << u"lz4"_s << u"1000"_s;
        QTest::newRow("two, packbits") << u"packbits"_s << u"2"_s;
        QTest::newRow("two where one has to do") << u"lzw"_s << u"2"_s;
    }

    void severalThreadsCompress()
    {
        QFETCH(QString, algorithm);
        QFETCH(QString, threads);
        const QByteArray content = text(1'500'000);
        write(u"file"_s, content);
        QCOMPARE(
            compress({u"--algorithm"_s, algorithm, u"--threads"_s, threads, u"file"_s}).exitCode,
            0);
        QCOMPARE(decompress({u"file.brixz"_s, u"back"_s}).exitCode, 0);
        QVERIFY(read(u"back"_s) == content);
    }

    void standardStreams_data()
    {
        QTest::addColumn<QStringList>("places");
        QTest::newRow("no OUT") << QStringList{u"-"_s};
        QTest::newRow("OUT is stdout") << QStringList{u"-"_s, u"-"_s};
    }

    void standardStreams()
    {
        QFETCH(QStringList, places);
        const QByteArray content = text(400'000);
        m_tool.input = content;
        auto result = compress(places);
        QCOMPARE(result.exitCode, 0);
        QVERIFY(result.err.isEmpty());
        QVERIFY(result.out == lz4(content));
        m_tool.input = result.out;
        result = decompress(places);
        QCOMPARE(result.exitCode, 0);
        QVERIFY(result.err.isEmpty());
        QVERIFY(result.out == content);
        QVERIFY(files().isEmpty());
    }

    void streamToFileAndFileToStream()
    {
        const QByteArray content = text(400'000);
        m_tool.input = content;
        QCOMPARE(compress({u"-"_s, u"packed"_s}).exitCode, 0);
        QVERIFY(read(u"packed"_s) == lz4(content));
        QVERIFY(decompress({u"packed"_s, u"-"_s}).out == content);
        write(u"file"_s, content);
        QVERIFY(compress({u"file"_s, u"-"_s}).out == lz4(content));
        m_tool.input = lz4(content);
        QCOMPARE(decompress({u"-"_s, u"back"_s}).exitCode, 0);
        QVERIFY(read(u"back"_s) == content);
    }

    void rawIsTheStreamAlone()
    {
        const QByteArray content = text(400'000);
        write(u"file"_s, content);
        QCOMPARE(compress({u"--raw"_s, u"file"_s, u"raw"_s}).exitCode, 0);
        QVERIFY(read(u"raw"_s) == lz4(content).sliced(24));
        const auto result = compress({u"--raw"_s, u"--algorithm"_s, u"zip"_s, u"file"_s, u"-"_s});
        QVERIFY(result.out == container(content, new SZip).sliced(24));
        QVERIFY(compress({u"--raw"_s, u"--algorithm"_s, u"lzw"_s, u"file"_s, u"-"_s}).out ==
                container(content, new STiffLZW).sliced(24));
        m_tool.input = content;
        QVERIFY(compress({u"--raw"_s, u"-"_s}).out == lz4(content).sliced(24));
        QCOMPARE(
            compress({u"--raw"_s, u"--algorithm"_s, u"none"_s, u"file"_s, u"plain"_s}).exitCode, 0);
        QVERIFY(read(u"plain"_s) == content);
    }

    void oddNames_data()
    {
        QTest::addColumn<QString>("name");
        QTest::newRow("a blank") << u"a file"_s;
        QTest::newRow("a marker") << u"50%2 off"_s;
        QTest::newRow("other letters") << u"größe 漢字"_s;
        QTest::newRow("a line end") << u"a\nb"_s;
        QTest::newRow("a dot first") << u".hidden"_s;
    }

    void oddNames()
    {
        QFETCH(QString, name);
        write(name, "content");
        QCOMPARE(compress({name}).exitCode, 0);
        QVERIFY(QFile::remove(path(name)));
        QCOMPARE(decompress({name + u".brixz"_s}).exitCode, 0);
        QCOMPARE(read(name), "content"_ba);
    }

    // What is told

    void resultAsJson()
    {
        write(u"file"_s, "123456789");
        auto result = object(compress({u"--json"_s, u"file"_s}).out);
        const QJsonObject expected{{u"file"_s, path(u"file.brixz"_s)},
                                   {u"algorithm"_s, u"lz4"_s},
                                   {u"plain"_s, 9},
                                   {u"compressed"_s, 42}};
        QCOMPARE(result, expected);
        result = object(decompress({u"--json"_s, u"file.brixz"_s, u"back"_s}).out);
        QCOMPARE(result.value("file"_L1).toString(), path(u"back"_s));
        QCOMPARE(result.value("plain"_L1).toInteger(), 9);
        QCOMPARE(result.value("compressed"_L1).toInteger(), 42);
    }

    void quietTellsNothing()
    {
        write(u"file"_s, "123456789");
        QVERIFY(compress({u"--quiet"_s, u"file"_s}).out.isEmpty());
        QVERIFY(decompress({u"--quiet"_s, u"file.brixz"_s, u"back"_s}).out.isEmpty());
        QCOMPARE(read(u"back"_s), "123456789"_ba);
    }

    void contentOnStdoutStaysAlone()
    {
        write(u"file"_s, "123456789");
        QCOMPARE(compress({u"--json"_s, u"file"_s, u"-"_s}).out, lz4("123456789"));
        write(u"packed"_s, lz4("123456789"));
        QCOMPARE(decompress({u"--json"_s, u"packed"_s, u"-"_s}).out, "123456789"_ba);
    }

    void listTells_data()
    {
        QTest::addColumn<QByteArray>("packed");
        QTest::addColumn<QByteArray>("told");
        QTest::addColumn<QByteArray>("json");
        QTest::newRow("lz4") << lz4("123456789")
                             << "algorithm   lz4\n"
                                "crc         cbf43926\n"
                                "plain       9\n"
                                "compressed  42\n"
                                "blocks      1\n"_ba
                             << R"({"algorithm":"lz4","blocks":1,"compressed":42,"crc":"cbf43926",)"
                                R"("plain":9,"whole":true})"_ba;
        QTest::newRow("nothing") << lz4(QByteArray())
                                 << "algorithm   lz4\n"
                                    "crc         00000000\n"
                                    "plain       0\n"
                                    "compressed  24\n"
                                    "blocks      0\n"_ba
                                 << R"({"algorithm":"lz4","blocks":0,"compressed":24,)"
                                    R"("crc":"00000000","plain":0,"whole":true})"_ba;
        QTest::newRow("packbits")
            << container("123456789", new SPackBits(PackBitsMode::PackBitsFramed))
            << "algorithm   packbits\n"
               "crc         cbf43926\n"
               "plain       9\n"
               "compressed  38\n"
               "blocks      1\n"_ba
            << R"({"algorithm":"packbits","blocks":1,"compressed":38,"crc":"cbf43926",)"
               R"("plain":9,"whole":true})"_ba;
        QTest::newRow("lzw") << container("123456789", new STiffLZW)
                             << "algorithm   lzw\n"
                                "crc         cbf43926\n"
                                "plain       9\n"
                                "compressed  37\n"_ba
                             << R"({"algorithm":"lzw","compressed":37,"crc":"cbf43926",)"
                                R"("plain":9,"whole":true})"_ba;
        QTest::newRow("none") << container("123456789", new SNullCompressor)
                              << "algorithm   none\n"
                                 "crc         cbf43926\n"
                                 "plain       9\n"
                                 "compressed  33\n"_ba
                              << R"({"algorithm":"none","compressed":33,"crc":"cbf43926",)"
                                 R"("plain":9,"whole":true})"_ba;
    }

    void listTells()
    {
        QFETCH(QByteArray, packed);
        QFETCH(QByteArray, json);
        write(u"packed"_s, packed);
        const auto result = compress({u"--list"_s, u"packed"_s});
        QVERIFY2(result.exitCode == 0, result.err.constData());
        QVERIFY(result.err.isEmpty());
        QTEST(result.out, "told");
        QCOMPARE(compress({u"--list"_s, u"--json"_s, u"packed"_s}).out, json + '\n');
        QCOMPARE(files(), QStringList{u"packed"_s});
    }

    void listReportsAMissingChecksum()
    {
        write(u"packed"_s, lz4(QByteArray()).first(22));
        const auto result = compress({u"--list"_s, u"--json"_s, u"packed"_s});
        QCOMPARE(result.exitCode, 1);
        QVERIFY2(result.err.contains("is damaged"), result.err.constData());
        QCOMPARE(result.out, R"({"algorithm":"lz4","blocks":0,"compressed":22,)"
                             R"("crc":"00000000","plain":0,"whole":false})"
                             "\n"_ba);
    }

    void listCountsBlocks()
    {
        const QByteArray content = text(1'500'000);
        write(u"packed"_s, container(content, new SZip));
        const auto listed = object(compress({u"--list"_s, u"--json"_s, u"packed"_s}).out);
        QCOMPARE(listed.value("algorithm"_L1).toString(), u"zip"_s);
        QCOMPARE(listed.value("blocks"_L1).toInteger(), 12);
        QCOMPARE(listed.value("plain"_L1).toInteger(), 1'500'000);
        QCOMPARE(listed.value("compressed"_L1).toInteger(), read(u"packed"_s).size());
    }

    void listOfStdin()
    {
        m_tool.input = lz4("123456789");
        const auto result = compress({u"--list"_s, u"-"_s});
        QCOMPARE(result.exitCode, 0);
        QVERIFY(result.out.contains("cbf43926"));
    }

    void listOfADamagedFile()
    {
        const QByteArray content = text(400'000);
        QByteArray packed = lz4(content);
        packed[100] = static_cast<char>(packed.at(100) ^ 0x55);
        write(u"packed"_s, packed);
        const auto result = compress({u"--list"_s, u"--json"_s, u"packed"_s});
        QCOMPARE(result.exitCode, 1);
        QVERIFY2(result.err.contains("is damaged"), result.err.constData());
        const auto listed = object(result.out);
        QCOMPARE(listed.value("whole"_L1), QJsonValue(false));
        QCOMPARE(listed.value("blocks"_L1).toInteger(), 4);
        QCOMPARE(listed.value("compressed"_L1).toInteger(), packed.size());
    }

    void progressShowsOnATerminal()
    {
        FakeTerminal terminal;
        QProcess process;
        m_tool.prepare(&process, {u"compress"_s, u"-"_s, u"packed"_s});
        terminal.attach(&process, {STDERR_FILENO});
        process.start();
        QVERIFY(process.waitForStarted());
        process.write(text(3'000'000));
        QTRY_COMPARE_WITH_TIMEOUT(process.bytesToWrite(), 0, kPatienceMs);
        QVERIFY(terminal.screenShowing("iB/s").contains("iB/s"));
        process.closeWriteChannel();
        QVERIFY(waitForEnd(process));
        QCOMPARE(process.exitCode(), 0);
    }

    // Wrong usage

    void wrongUsage_data()
    {
        QTest::addColumn<QStringList>("arguments");
        QTest::addColumn<QByteArray>("message");
        const auto row = [](const char *name, const QStringList &arguments,
                            const QByteArray &message) {
            QTest::newRow(name) << arguments << message;
        };
        row("no FILE", {u"compress"_s}, "FILE is required");
        row("no FILE to decompress", {u"decompress"_s}, "FILE is required");
        row("an unknown algorithm", {u"compress"_s, u"--algorithm"_s, u"rar"_s, u"file"_s}, "rar");
        row("a level too high for lz4", {u"compress"_s, u"--level"_s, u"13"_s, u"file"_s},
            "the level of lz4 is 0 to 12");
        row("a negative level", {u"compress"_s, u"--level=-1"_s, u"file"_s},
            "the level of lz4 is 0 to 12");
        row("a level too high for zip",
            {u"compress"_s, u"--algorithm"_s, u"zip"_s, u"--level"_s, u"10"_s, u"file"_s},
            "the level of zip is 0 to 9");
        row("a level where there is none",
            {u"compress"_s, u"--algorithm"_s, u"none"_s, u"--level"_s, u"1"_s, u"file"_s},
            "none has no levels");
        row("a level of packbits",
            {u"compress"_s, u"--algorithm"_s, u"packbits"_s, u"--level"_s, u"1"_s, u"file"_s},
            "packbits has no levels");
        row("a level of lzw",
            {u"compress"_s, u"--algorithm"_s, u"lzw"_s, u"--level"_s, u"1"_s, u"file"_s},
            "lzw has no levels");
        row("negative threads", {u"compress"_s, u"--threads=-1"_s, u"file"_s}, "threads");
        row("a raw stream without a place", {u"compress"_s, u"--raw"_s, u"file"_s},
            "say where the stream goes");
        row("list with a place", {u"compress"_s, u"--list"_s, u"file"_s, u"out"_s}, "--list");
        row("list with a level", {u"compress"_s, u"--list"_s, u"--level"_s, u"1"_s, u"file"_s},
            "--list");
        row("list with an algorithm",
            {u"compress"_s, u"--list"_s, u"--algorithm"_s, u"lz4"_s, u"file"_s}, "--list");
        row("list with threads", {u"compress"_s, u"--list"_s, u"--threads"_s, u"2"_s, u"file"_s},
            "--list");
        row("raw list", {u"compress"_s, u"--list"_s, u"--raw"_s, u"file"_s}, "--list");
        row("a name without the ending", {u"decompress"_s, u"file"_s}, "does not end in .brixz");
        row("an empty FILE", {u"compress"_s, u""_s}, "empty");
        row("an empty OUT", {u"compress"_s, u"file"_s, u""_s}, "empty");
    }

    void wrongUsage()
    {
        QFETCH(QStringList, arguments);
        QFETCH(QByteArray, message);
        write(u"file"_s, "content");
        const auto result = m_tool.run(arguments);
        QCOMPARE(result.exitCode, 2);
        QVERIFY2(result.err.contains(message), result.err.constData());
        QCOMPARE(files(), QStringList{u"file"_s});
    }

    void aNameThatIsOnlyTheEndingIsNone()
    {
        write(u".brixz"_s, lz4("content"));
        QCOMPARE(decompress({u".brixz"_s}).exitCode, 2);
        QCOMPARE(files(), QStringList{u".brixz"_s});
    }

    // Files that are there already

    void aGivenNameIsReplaced()
    {
        write(u"file"_s, "content");
        write(u"out"_s, "older and longer content");
        QCOMPARE(compress({u"file"_s, u"out"_s}).exitCode, 0);
        QCOMPARE(read(u"out"_s), lz4("content"));
        QCOMPARE(decompress({u"out"_s, u"file"_s}).exitCode, 0);
        QCOMPARE(compress({u"file"_s, u"file"_s}).exitCode, 0);
        QCOMPARE(read(u"file"_s), lz4("content"));
    }

    void aDefaultNameReplacesNothing()
    {
        write(u"file"_s, "content");
        write(u"file.brixz"_s, "older content");
        auto result = compress({u"file"_s});
        QCOMPARE(result.exitCode, 1);
        QVERIFY2(result.err.contains("is there already"), result.err.constData());
        QCOMPARE(read(u"file.brixz"_s), "older content"_ba);
        write(u"file.brixz"_s, lz4("other content"));
        result = decompress({u"file.brixz"_s});
        QCOMPARE(result.exitCode, 1);
        QCOMPARE(read(u"file"_s), "content"_ba);
    }

    // Damage

    void damageIsTold_data()
    {
        QTest::addColumn<QByteArray>("packed");
        QTest::addColumn<QByteArray>("message");
        const QByteArray whole = lz4(text(400'000));
        QByteArray wrongCrc = whole;
        wrongCrc[20] = static_cast<char>(wrongCrc.at(20) ^ 1);
        QByteArray wrongByte = whole;
        wrongByte[wrongByte.size() / 2] = static_cast<char>(wrongByte.at(wrongByte.size() / 2) ^ 1);
        QTest::newRow("wrong CRC") << wrongCrc << "is damaged"_ba;
        QTest::newRow("wrong byte") << wrongByte << "is damaged"_ba;
        QTest::newRow("a byte missing") << whole.chopped(1) << "is damaged"_ba;
        QTest::newRow("half") << whole.first(whole.size() / 2) << "is damaged"_ba;
        QTest::newRow("a block missing")
            << lz4(text(400'000)).first(whole.size() / 4) << "is damaged"_ba;
        QTest::newRow("a stream missing") << whole.first(24) << "is damaged"_ba;
        QTest::newRow("a length of 4 GiB") << whole.first(24) + QByteArray(4, '\xFF') + "content"
                                           << "is damaged"_ba;
        const QByteArray empty = lz4(QByteArray());
        for (const int size : {20, 21, 22, 23})
            QTest::addRow("%d bytes", size) << empty.first(size) << "is damaged"_ba;
        QTest::newRow("half of the head") << whole.first(10) << "is not a compressed file"_ba;
        QTest::newRow("nothing") << QByteArray() << "is not a compressed file"_ba;
        QTest::newRow("a plain text") << text(1000) << "is not a compressed file"_ba;
    }

    void damageIsTold()
    {
        QFETCH(QByteArray, packed);
        QFETCH(QByteArray, message);
        write(u"packed"_s, packed);
        auto result = decompress({u"packed"_s, u"out"_s});
        QCOMPARE(result.exitCode, 1);
        QVERIFY2(result.err.contains(message), result.err.constData());
        QCOMPARE(result.err.count('\n'), 1);
        QVERIFY(result.out.isEmpty());
        QCOMPARE(files(), QStringList{u"packed"_s});

        write(u"out"_s, "older content");
        QCOMPARE(decompress({u"packed"_s, u"out"_s}).exitCode, 1);
        QCOMPARE(read(u"out"_s), "older content"_ba);
        m_tool.input = packed;
        result = decompress({u"-"_s});
        QCOMPARE(result.exitCode, 1);
        QVERIFY2(result.err.contains(message), result.err.constData());
        QCOMPARE(compress({u"--list"_s, u"packed"_s}).exitCode, 1);
        QCOMPARE(files(), (QStringList{u"out"_s, u"packed"_s}));
    }

    void otherDamageIsToldInOneLine_data()
    {
        QTest::addColumn<QByteArray>("packed");
        const auto row = [](const char *name, Interfaces::ICompressor *compressor) {
            const QByteArray whole = container(text(400'000), compressor);
            QByteArray wrongByte = whole;
            wrongByte[1000] = static_cast<char>(wrongByte.at(1000) ^ 0x55);
            QTest::addRow("%s, wrong byte", name) << wrongByte;
            QTest::addRow("%s, half", name) << whole.first(whole.size() / 2);
            QTest::addRow("%s, a stream missing", name) << whole.first(24);
        };
        row("zip", new SZip);
        row("packbits", new SPackBits(PackBitsMode::PackBitsFramed));
        row("lzw", new STiffLZW);
        // Codes without one that clears the table fill it up.
        QTest::newRow("lzw, a full table")
            << container("content", new STiffLZW).first(24) + QByteArray(10'000, 'x');
    }

    void otherDamageIsToldInOneLine()
    {
        QFETCH(QByteArray, packed);
        write(u"packed"_s, packed);
        const auto result = decompress({u"packed"_s, u"out"_s});
        QCOMPARE(result.exitCode, 1);
        QVERIFY2(result.err.count('\n') == 1, result.err.constData());
        QCOMPARE(files(), QStringList{u"packed"_s});
    }

    // Places that fail

    void placesThatFail_data()
    {
        QTest::addColumn<QStringList>("arguments");
        QTest::addColumn<QByteArray>("message");
        const auto row = [](const char *name, const QStringList &arguments,
                            const QByteArray &message) {
            QTest::newRow(name) << arguments << message;
        };
        row("no such file", {u"compress"_s, u"missing"_s}, "cannot read");
        row("no such file to decompress", {u"decompress"_s, u"missing.brixz"_s}, "cannot read");
        row("no such file to list", {u"compress"_s, u"--list"_s, u"missing"_s}, "cannot read");
        row("a folder", {u"compress"_s, u"folder"_s, u"out"_s}, "cannot read");
        row("a folder as OUT", {u"compress"_s, u"file"_s, u"folder"_s}, "it is a folder");
        row("a folder to decompress to", {u"decompress"_s, u"packed"_s, u"folder"_s},
            "it is a folder");
        row("OUT in no folder", {u"compress"_s, u"file"_s, u"none/out"_s}, "cannot write");
        row("OUT below a file", {u"decompress"_s, u"packed"_s, u"file/out"_s}, "cannot write");
    }

    void placesThatFail()
    {
        QFETCH(QStringList, arguments);
        QFETCH(QByteArray, message);
        write(u"file"_s, "content");
        write(u"packed"_s, lz4("content"));
        QVERIFY(QDir(m_dir->path()).mkdir(u"folder"_s));
        const auto result = m_tool.run(arguments);
        QCOMPARE(result.exitCode, 4);
        QVERIFY2(result.err.contains(message), result.err.constData());
        QCOMPARE(files(), (QStringList{u"file"_s, u"folder"_s, u"packed"_s}));
    }

    void aPipeAsOutIsLeftAlone()
    {
        write(u"file"_s, "content");
        write(u"packed"_s, lz4("content"));
        const QString pipe = m_dir->filePath(u"pipe"_s);
        QCOMPARE(mkfifo(qPrintable(pipe), 0600), 0);
        for (const auto &words :
             {QStringList{u"compress"_s, u"file"_s}, QStringList{u"decompress"_s, u"packed"_s}}) {
            const auto result = m_tool.run(words + QStringList{u"pipe"_s});
            QCOMPARE(result.exitCode, 4);
            QVERIFY2(result.err.contains("it is no ordinary file"), result.err.constData());
            QVERIFY(QFileInfo::exists(pipe) && !QFileInfo(pipe).isFile());
        }
    }

    void fullStdoutIsTold_data()
    {
        QTest::addColumn<QStringList>("arguments");
        QTest::newRow("compress") << QStringList{u"compress"_s, u"file"_s, u"-"_s};
        QTest::newRow("raw") << QStringList{u"compress"_s, u"--raw"_s, u"file"_s, u"-"_s};
        QTest::newRow("decompress") << QStringList{u"decompress"_s, u"packed"_s, u"-"_s};
    }

    void fullStdoutIsTold()
    {
        QFETCH(QStringList, arguments);
        write(u"file"_s, text(300'000));
        write(u"packed"_s, lz4(text(300'000)));
        QProcess process;
        m_tool.prepare(&process, arguments);
        process.setStandardOutputFile(u"/dev/full"_s);
        process.start();
        QVERIFY(waitForEnd(process));
        QCOMPARE(process.exitCode(), 4);
        QVERIFY(process.readAllStandardError().contains("cannot write to stdout"));
    }

    void fullDiskLeavesNothing_data()
    {
        QTest::addColumn<QStringList>("arguments");
        QTest::addColumn<int>("room");
        // Qt writes the first and the last bytes from a buffer, and the others at once.
        for (const int room : {10, 1000, 131'100, 500'000}) {
            const auto row = [room](const char *name, const QStringList &arguments) {
                QTest::addRow("%s, room for %d bytes", name, room) << arguments << room;
            };
            row("compress", {u"compress"_s, u"file"_s, u"out"_s});
            row("compress by lzw",
                {u"compress"_s, u"--algorithm"_s, u"lzw"_s, u"file"_s, u"out"_s});
            if (room < 2000)
                row("compress a small file", {u"compress"_s, u"small"_s, u"out"_s});
            row("compress, a temporary file", {u"compress"_s, u"file"_s, u"-"_s});
            row("raw", {u"compress"_s, u"--raw"_s, u"file"_s, u"out"_s});
            row("decompress", {u"decompress"_s, u"packed"_s, u"out"_s});
        }
    }

    void fullDiskLeavesNothing()
    {
        QFETCH(QStringList, arguments);
        QFETCH(int, room);
        const QByteArray content = disorder(600'000);
        write(u"file"_s, content);
        write(u"small"_s, disorder(2000));
        write(u"packed"_s, lz4(content));
        QProcess process;
        m_tool.prepare(&process, arguments);
        // No file of the process may grow beyond that, as on a disk that is full.
        process.setChildProcessModifier([room] {
            const rlimit limit{rlim_t(room), rlim_t(room)};
            setrlimit(RLIMIT_FSIZE, &limit);
            std::signal(SIGXFSZ, SIG_IGN);
        });
        process.start();
        QVERIFY(waitForEnd(process));
        QCOMPARE(process.exitCode(), 4);
        const QByteArray message = process.readAllStandardError();
        QVERIFY2(message.contains("cannot write"), message.constData());
        QVERIFY2(message.endsWith(": File too large\n"), message.constData());
        QCOMPARE(files(), (QStringList{u"file"_s, u"packed"_s, u"small"_s}));
    }

    void falseLengthsNeedNoMemory()
    {
        write(u"packed"_s, lz4(text(1000)).first(24) + QByteArray(4, '\xFF') + text(100'000));
        QProcess process;
        m_tool.prepare(&process, {u"decompress"_s, u"packed"_s, u"out"_s});
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
        process.setChildProcessModifier([] {
            const rlim_t bytes = rlim_t(1) << 30;
            const rlimit limit{bytes, bytes};
            setrlimit(RLIMIT_AS, &limit);
        });
#endif
        process.start();
        QVERIFY(waitForEnd(process));
        QCOMPARE(process.exitCode(), 1);
    }

    void signalsEndItAndLeaveNothing_data()
    {
        QTest::addColumn<int>("signal");
        QTest::addColumn<QString>("command");
        QTest::newRow("SIGINT, compress") << SIGINT << u"compress"_s;
        QTest::newRow("SIGTERM, compress") << SIGTERM << u"compress"_s;
        QTest::newRow("SIGINT, decompress") << SIGINT << u"decompress"_s;
        QTest::newRow("SIGTERM, decompress") << SIGTERM << u"decompress"_s;
    }

    void signalsEndItAndLeaveNothing()
    {
        QFETCH(int, signal);
        QFETCH(QString, command);
        QProcess process;
        m_tool.prepare(&process, {command, u"-"_s, u"out"_s});
        process.start();
        QVERIFY(process.waitForStarted());
        process.write(lz4(disorder(300'000)).chopped(1));
        // More than a pipe holds: it waits for the rest of its input once this is gone.
        QTRY_COMPARE_WITH_TIMEOUT(process.bytesToWrite(), 0, kPatienceMs);
        ::kill(pid_t(process.processId()), signal);
        QVERIFY(waitForEnd(process));
        QCOMPARE(process.exitCode(), 130);
        QVERIFY(process.readAllStandardError().contains("interrupted"));
        QCOMPARE(files(), QStringList());
    }

    void helpHasAnExample_data()
    {
        QTest::addColumn<QString>("command");
        QTest::newRow("compress") << u"compress"_s;
        QTest::newRow("decompress") << u"decompress"_s;
    }

    void helpHasAnExample()
    {
        QFETCH(QString, command);
        const auto result = m_tool.run({command, u"--help"_s});
        QCOMPARE(result.exitCode, 0);
        QVERIFY(result.out.contains("Example:\n  brix " + command.toLatin1()));
    }
};

QTEST_GUILESS_MAIN(tst_ToolCompressCommands)
#include "tst_toolcompresscommands.moc"
