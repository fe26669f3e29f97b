// SPDX-License-Identifier: MIT
#include <brixlib/foundation/sconfig.h>

using namespace Talverine;
using namespace Qt::StringLiterals;

namespace {

SConfig parsed(const QByteArray &text)
{
    QByteArray bytes = text;
    QBuffer buffer(&bytes);
    return SConfig(&buffer);
}

//! Gives one line a read, and counts how many were taken.
class LineDevice final : public QIODevice
{
public:
    explicit LineDevice(QList<QByteArray> lines)
        : m_lines(std::move(lines))
    {
    }

    int taken = 0;

protected:
    qint64 readData(char *data, qint64 maxSize) override
    {
        if (taken == m_lines.size())
            return -1;
        const QByteArray &line = m_lines.at(taken);
        if (line.size() > maxSize)
            return -1;
        std::copy(line.begin(), line.end(), data);
        ++taken;
        return line.size();
    }
    qint64 writeData(const char *, qint64) override { return -1; }

private:
    QList<QByteArray> m_lines;
};

//! Refuses to open.
class ClosedDevice final : public QIODevice
{
public:
    bool open(OpenMode) override { return false; }

protected:
    qint64 readData(char *, qint64) override { return -1; }
    qint64 writeData(const char *, qint64) override { return -1; }
};

} // namespace

class tst_SConfig : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void defaultConfigurationIsEmpty()
    {
        const SConfig config;
        QCOMPARE(config.version(), 0xFFFFFFFFu);
        QVERIFY(config.variables().isEmpty());
        QCOMPARE(config.variable(u"NAME"_s), QString());
    }

    void readsVersionAndVariables()
    {
        const SConfig config = parsed("# made by hand\n"
                                      "\n"
                                      "$VERSION 3\n"
                                      "%NAME% = value\n"
                                      "%OTHER%=a second value\n");
        QCOMPARE(config.version(), 3u);
        QCOMPARE(config.variable(u"NAME"_s), u"value"_s);
        QCOMPARE(config.variable(u"OTHER"_s), u"a second value"_s);
        QList<QString> names = config.variables();
        names.sort();
        QCOMPARE(names, QList<QString>({u"NAME"_s, u"OTHER"_s}));
        QCOMPARE(config.variable(u"name"_s), QString());
    }

    void exampleOfTheFormatPage()
    {
        const SConfig config = parsed("# Press 4, left side\n"
                                      "$VERSION 3\n"
                                      "%NAME% = Press 4\n"
                                      "%PATH% = /srv/jobs=left\n");
        QCOMPARE(config.version(), 3u);
        QCOMPARE(config.variable(u"NAME"_s), u"Press 4"_s);
        QCOMPARE(config.variable(u"PATH"_s), u"/srv/jobs=left"_s);
    }

    void withoutAVersionLineTheVersionIsAllBits()
    {
        QCOMPARE(parsed("%NAME% = value\n").version(), 0xFFFFFFFFu);
        QCOMPARE(parsed("").version(), 0xFFFFFFFFu);
    }

    void versionLine_data()
    {
        QTest::addColumn<QByteArray>("line");
        QTest::addColumn<quint32>("version");
        QTest::newRow("plain") << QByteArray("$VERSION 3") << 3u;
        QTest::newRow("any first word") << QByteArray("$ 4") << 4u;
        QTest::newRow("blanks around") << QByteArray("   $VERSION    5   ") << 5u;
        QTest::newRow("third part ignored") << QByteArray("$VERSION 6 7") << 6u;
        QTest::newRow("largest") << QByteArray("$VERSION 4294967294") << 4294967294u;
        QTest::newRow("too large") << QByteArray("$VERSION 4294967296") << 0u;
        QTest::newRow("negative") << QByteArray("$VERSION -1") << 0u;
        QTest::newRow("hexadecimal is no number") << QByteArray("$VERSION 0x10") << 0u;
        QTest::newRow("no number") << QByteArray("$VERSION new") << 0u;
        QTest::newRow("one part only") << QByteArray("$VERSION") << 0xFFFFFFFFu;
        QTest::newRow("number glued on") << QByteArray("$VERSION=3") << 0xFFFFFFFFu;
        QTest::newRow("tabulator is no blank") << QByteArray("$VERSION\t3") << 0xFFFFFFFFu;
        QTest::newRow("comment") << QByteArray("# $VERSION 3") << 0xFFFFFFFFu;
        QTest::newRow("not at the start") << QByteArray("x $VERSION 3") << 0xFFFFFFFFu;
        QTest::newRow("marked line")
            << QByteArray("$VERSION 3 %BackwardCompatibility%") << 0xFFFFFFFFu;
    }

    void versionLine()
    {
        QFETCH(QByteArray, line);
        QFETCH(quint32, version);
        QCOMPARE(parsed(line + "\n").version(), version);
        QBuffer buffer(&line);
        QCOMPARE(SConfig::version(&buffer), version);
    }

    void lastVersionLineCountsInAFullRead()
    {
        QCOMPARE(parsed("$VERSION 1\n$VERSION 2\n").version(), 2u);
    }

    void variableLine_data()
    {
        QTest::addColumn<QByteArray>("line");
        QTest::addColumn<QString>("name");
        QTest::addColumn<QString>("value");
        QTest::newRow("plain") << QByteArray("%NAME% = value") << u"NAME"_s << u"value"_s;
        QTest::newRow("no blanks") << QByteArray("%NAME%=value") << u"NAME"_s << u"value"_s;
        QTest::newRow("one mark") << QByteArray("%NAME=value") << u"NAME"_s << u"value"_s;
        QTest::newRow("blanks inside the marks")
            << QByteArray("% NAME % = value") << u"NAME"_s << u"value"_s;
        QTest::newRow("marks within the name") << QByteArray("%A%B%=v") << u"AB"_s << u"v"_s;
        QTest::newRow("value with marks") << QByteArray("%N%=%v%") << u"N"_s << u"%v%"_s;
        QTest::newRow("value with =") << QByteArray("%N%=a=b=c") << u"N"_s << u"a=b=c"_s;
        QTest::newRow("empty value") << QByteArray("%N%=") << u"N"_s << u""_s;
        QTest::newRow("no name") << QByteArray("%%=v") << u""_s << u"v"_s;
        QTest::newRow("indented") << QByteArray("\t %N% = v \t") << u"N"_s << u"v"_s;
        QTest::newRow("beyond ASCII")
            << QByteArray("%GR\xC3\x96SSE% = \xE4\xB8\xAD") << u"GRÖSSE"_s << u"中"_s;
    }

    void variableLine()
    {
        QFETCH(QByteArray, line);
        QFETCH(QString, name);
        QFETCH(QString, value);
        const SConfig config = parsed(line + "\n");
        QCOMPARE(config.variables(), QList<QString>({name}));
        QCOMPARE(config.variable(name), value);
        QBuffer buffer(&line);
        QCOMPARE(SConfig::variable(&buffer, name), value);
    }

    void otherLinesAreIgnored_data()
    {
        QTest::addColumn<QByteArray>("line");
        QTest::newRow("empty") << QByteArray("");
        QTest::newRow("blanks") << QByteArray("   \t ");
        QTest::newRow("comment") << QByteArray("#%NAME% = value");
        QTest::newRow("indented comment") << QByteArray("  # %NAME% = value");
        QTest::newRow("no mark") << QByteArray("NAME = value");
        QTest::newRow("no =") << QByteArray("%NAME% value");
        QTest::newRow("version-like") << QByteArray("$NAME=value");
        QTest::newRow("marked line") << QByteArray("%NAME% = %BackwardCompatibility%");
        QTest::newRow("the mark alone") << QByteArray("%BackwardCompatibility% = 1");
    }

    void otherLinesAreIgnored()
    {
        QFETCH(QByteArray, line);
        const SConfig config = parsed(line + "\n");
        QVERIFY(config.variables().isEmpty());
        QCOMPARE(config.version(), 0xFFFFFFFFu);
    }

    void linesBehindTheMarkAreReadAsBefore()
    {
        const SConfig config = parsed("%BackwardCompatibility%\n# %A% = 1\n$V 2\n%B% = 3\n");
        QCOMPARE(config.variables(), QList<QString>({u"B"_s}));
        QCOMPARE(config.version(), 2u);
    }

    void lastValueOfANameCounts()
    {
        QCOMPARE(parsed("%A% = 1\n%A% = 2\n").variable(u"A"_s), u"2"_s);
    }

    void lineEndings_data()
    {
        QTest::addColumn<QByteArray>("text");
        QTest::newRow("LF") << QByteArray("$V 3\n%A% = 1\n%B% = 2\n");
        QTest::newRow("CR LF") << QByteArray("$V 3\r\n%A% = 1\r\n%B% = 2\r\n");
        QTest::newRow("none at the end") << QByteArray("$V 3\n%A% = 1\n%B% = 2");
        QTest::newRow("byte order mark") << QByteArray("\xEF\xBB\xBF$V 3\n%A% = 1\n%B% = 2");
    }

    void lineEndings()
    {
        QFETCH(QByteArray, text);
        const SConfig config = parsed(text);
        QCOMPARE(config.version(), 3u);
        QCOMPARE(config.variable(u"A"_s), u"1"_s);
        QCOMPARE(config.variable(u"B"_s), u"2"_s);
    }

    void versionStopsAtTheFirstVersionLine()
    {
        LineDevice device({"%A% = 1\n", "$V\n", "$V 3\n", "$V 4\n", "%B% = 2\n"});
        QVERIFY(device.open(QIODevice::ReadOnly | QIODevice::Unbuffered));
        QCOMPARE(SConfig::version(&device), 3u);
        QCOMPARE(device.taken, 3);
    }

    void variableReadsBehindTheVersionLine()
    {
        QByteArray text("$V 3\n%A% = 1\n");
        QBuffer buffer(&text);
        QCOMPARE(SConfig::variable(&buffer, u"A"_s), u"1"_s);
        QCOMPARE(SConfig::variable(&buffer, u"B"_s), QString());
    }

    void deviceIsLeftAsItWas()
    {
        QByteArray text("$V 3\n%A% = 1\n");
        QBuffer closed(&text);
        QCOMPARE(SConfig::version(&closed), 3u);
        QVERIFY(!closed.isOpen());
        QCOMPARE(SConfig(&closed).version(), 3u);
        QVERIFY(!closed.isOpen());

        QBuffer open(&text);
        QVERIFY(open.open(QIODevice::ReadOnly));
        QCOMPARE(SConfig::version(&open), 3u);
        QVERIFY(open.isOpen());
        open.seek(0);
        QCOMPARE(SConfig(&open).variable(u"A"_s), u"1"_s);
        QVERIFY(open.isOpen());
    }

    void deviceThatDoesNotOpenGivesAnEmptyConfiguration()
    {
        ClosedDevice device;
        const SConfig config(&device);
        QCOMPARE(config.version(), 0xFFFFFFFFu);
        QVERIFY(config.variables().isEmpty());
        QCOMPARE(SConfig::version(&device), 0xFFFFFFFFu);
        QCOMPARE(SConfig::variable(&device, u"A"_s), QString());
    }

    void noDeviceGivesAnEmptyConfiguration()
    {
        QIODevice *none = nullptr;
        QCOMPARE(SConfig(none).version(), 0xFFFFFFFFu);
        QCOMPARE(SConfig::version(none), 0xFFFFFFFFu);
        QCOMPARE(SConfig::variable(none, u"A"_s), QString());
    }

    void fileIsReadByName()
    {
        const QTemporaryDir dir;
        QFile file(dir.filePath(u"x.cfg"_s));
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write("$VERSION 7\n%A% = 1\n");
        file.close();
        const SConfig config(file.fileName());
        QCOMPARE(config.version(), 7u);
        QCOMPARE(config.variable(u"A"_s), u"1"_s);
    }

    void missingFileGivesAnEmptyConfiguration()
    {
        const QTemporaryDir dir;
        const SConfig config(dir.filePath(u"missing.cfg"_s));
        QCOMPARE(config.version(), 0xFFFFFFFFu);
        QVERIFY(config.variables().isEmpty());
    }

    void folderGivesAnEmptyConfiguration()
    {
        const QTemporaryDir dir;
        QCOMPARE(SConfig(dir.path()).version(), 0xFFFFFFFFu);
    }

    void everyTruncationIsReadWithoutHarm()
    {
        const QByteArray text("# \xC3\xA4\r\n$VERSION 3\r\n%N\xC3\x84ME% = \xE4\xB8\xAD\r\n");
        for (qsizetype size = 0; size <= text.size(); ++size) {
            const SConfig config = parsed(text.first(size));
            QVERIFY(config.version() == 3 || config.version() == 0xFFFFFFFF);
            QVERIFY(config.variables().size() <= 1);
        }
    }

    void foreignBytesAreReadWithoutHarm()
    {
        QByteArray bytes;
        for (int i = 0; i < 4096; ++i)
            bytes.append(char(i * 31 % 256));
        const SConfig config = parsed(bytes + "\n$V 3\n%A% = 1\n");
        QCOMPARE(config.version(), 3u);
        QCOMPARE(config.variable(u"A"_s), u"1"_s);
    }

    void copyAndMoveKeepTheContent()
    {
        SConfig config = parsed("$V 3\n%A% = 1\n");
        const SConfig copy = config;
        const SConfig moved = std::move(config);
        QCOMPARE(copy.variable(u"A"_s), u"1"_s);
        QCOMPARE(moved.variable(u"A"_s), u"1"_s);
        QCOMPARE(moved.version(), 3u);
    }
};

QTEST_APPLESS_MAIN(tst_SConfig)
#include "tst_sconfig.moc"
