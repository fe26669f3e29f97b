// SPDX-License-Identifier: MIT
// brix cat and brix put with "-", as processes.
#include "toolserver.h"

#include <brixlib/fileservice/sserverftp.h>
#include <brixlib/protocol/commands/scommandauthentication.h>
#include <brixlib/protocol/commands/scommandcommandlist.h>
#include <brixlib/protocol/commands/scommandservername.h>
#include <brixlib/protocol/commands/scommandstreamversion.h>
#include <brixlib/protocol/commands/scommandwhoami.h>
#include <brixlib/protocol/scommandhelper.h>

#include <shared/faketerminal.h>
#include <shared/rawserver.h>
#include <shared/sessionhost.h>

#include <QtCore/QElapsedTimer>
#include <QtCore/QJsonDocument>
#include <QtCore/QJsonObject>

#include <csignal>

#include <sys/resource.h>

using namespace Talverine;
using namespace Qt::StringLiterals;

namespace {

constexpr int kPatienceMs = 30'000;

QByteArray pattern(qsizetype size)
{
    QByteArray bytes(size, Qt::Uninitialized);
    quint32 state = 1;
    for (char &byte : bytes)
        byte = char((state = state * 1664525 + 1013904223) >> 24);
    return bytes;
}

// Lets no file of the process grow beyond so many bytes, as a disk that is full.
void limitFileSize(QProcess *process, rlim_t bytes)
{
    process->setChildProcessModifier([bytes] {
        const rlimit limit{bytes, bytes};
        setrlimit(RLIMIT_FSIZE, &limit);
        std::signal(SIGXFSZ, SIG_IGN);
    });
}

bool waitForEnd(const QProcess &process)
{
    return QTest::qWaitFor([&] { return process.state() == QProcess::NotRunning; }, kPatienceMs) &&
           process.exitStatus() == QProcess::NormalExit;
}

// A server that knows no remote devices.
class ServerWithoutDevices final : public SServerFtp
{
public:
    explicit ServerWithoutDevices(qint64 descriptor)
        : SServerFtp(descriptor)
    {
        SCommandHelper::deregisterCommands(contextId());
        registerCommand(new SCommandAuthentication);
        registerCommand(new SCommandCommandList);
        registerCommand(new SCommandServerName);
        registerCommand(new SCommandStreamVersion(QDataStream::Qt_6_0));
        registerCommand(new SCommandWhoAmI);
    }
};

} // namespace

class tst_ToolStreamCommands : public QObject
{
    Q_OBJECT

private:
    std::unique_ptr<ToolServer> m_server;

    QString home(const QString &name) const { return m_server->homePath(name); }

    ToolResult cat(const QString &path, const QStringList &more = {}) const
    {
        return m_server->run(QStringList{u"cat"_s, m_server->url(path)} + more);
    }
    ToolResult put(const QByteArray &input, const QString &path, const QStringList &more = {}) const
    {
        auto tool = m_server->client();
        tool.input = input;
        return tool.run(QStringList{u"put"_s, u"-"_s, m_server->url(path)} + more);
    }

    // A client whose stdin and stdout stay in the hands of the test.
    void start(QProcess *process, const QStringList &arguments) const
    {
        m_server->client().prepare(process, arguments);
        process->start();
    }

    // Waits until so many bytes of an input have come to the server, under whatever name.
    bool waitForStored(qint64 bytes) const
    {
        return QTest::qWaitFor(
            [&] {
                for (const auto &name : namesIn(m_server->home())) {
                    if (name.startsWith(u".brix-"_s) && QFileInfo(home(name)).size() >= bytes)
                        return true;
                }
                return false;
            },
            kPatienceMs);
    }

private Q_SLOTS:
    void init() { m_server = std::make_unique<ToolServer>(); }
    void cleanup() { m_server.reset(); }

    // cat

    void catWritesWhatWasAskedFor_data()
    {
        QTest::addColumn<QStringList>("options");
        QTest::addColumn<qint64>("offset");
        QTest::addColumn<qint64>("count");
        const qint64 size = 5'000'003;
        const auto row = [](const char *name, const QStringList &options, qint64 offset,
                            qint64 count) { QTest::newRow(name) << options << offset << count; };
        row("whole", {}, 0, size);
        row("offset", {u"--offset"_s, u"4999990"_s}, 4'999'990, size);
        row("count", {u"--count"_s, u"12"_s}, 0, 12);
        row("count of several MiB", {u"--count"_s, u"3000000"_s}, 0, 3'000'000);
        row("both", {u"--offset"_s, u"1048575"_s, u"--count"_s, u"2"_s}, 1'048'575, 2);
        row("more than there is", {u"--offset"_s, u"5000000"_s, u"--count"_s, u"100"_s}, 5'000'000,
            3);
        row("at the end", {u"--offset"_s, u"5000003"_s}, size, 0);
        row("beyond the end", {u"--offset"_s, u"5000004"_s}, size, 0);
        row("far beyond the end", {u"--offset"_s, u"9223372036854775807"_s}, size, 0);
        row("beyond what any file has", {u"--offset"_s, u"99999999999999999999"_s}, size, 0);
        row("nothing", {u"--count"_s, u"0"_s}, 0, 0);
        row("nothing at zero", {u"--offset"_s, u"0"_s, u"--count"_s, u"0"_s}, 0, 0);
        row("largest count", {u"--count"_s, u"9223372036854775807"_s}, 0, size);
        row("quiet", {u"--quiet"_s}, 0, size);
        row("the bytes as they are also as JSON", {u"--json"_s}, 0, size);
    }

    void catWritesWhatWasAskedFor()
    {
        QFETCH(QStringList, options);
        QFETCH(qint64, offset);
        QFETCH(qint64, count);
        const QByteArray content = pattern(5'000'003);
        QVERIFY(m_server->start());
        QVERIFY(writeFile(home(u"a file"_s), content));
        const auto result = cat(u"a%20file"_s, options);
        QVERIFY2(result.exitCode == 0, result.err.constData());
        QVERIFY(result.err.isEmpty());
        QVERIFY(result.out == content.mid(offset, count));
    }

    void catOfAnEmptyFileWritesNothing()
    {
        QVERIFY(m_server->start());
        QVERIFY(writeFile(home(u"empty"_s), {}));
        const auto result = cat(u"empty"_s);
        QCOMPARE(result.exitCode, 0);
        QVERIFY(result.out.isEmpty());
    }

    void catRefuses_data()
    {
        QTest::addColumn<QString>("path");
        QTest::addColumn<QStringList>("options");
        QTest::addColumn<int>("exitCode");
        QTest::addColumn<QByteArray>("message");
        QTest::newRow("a missing file")
            << u"missing"_s << QStringList{} << 1 << "the server has no file missing"_ba;
        QTest::newRow("a directory")
            << u"folder"_s << QStringList{} << 1 << "brix: folder is a directory\n"_ba;
        QTest::newRow("a directory with a slash")
            << u"folder/"_s << QStringList{} << 1 << "brix: folder is a directory\n"_ba;
        QTest::newRow("a file in a missing folder")
            << u"no/such/file"_s << QStringList{} << 1 << "the server has no file no/such/file"_ba;
        QTest::newRow("a path outside the home folder")
            << u"../users.json"_s << QStringList{} << 1 << "the server has no file"_ba;
        QTest::newRow("no path") << QString() << QStringList{} << 2 << "names no path"_ba;
        QTest::newRow("a negative offset")
            << u"file"_s << QStringList{u"--offset=-1"_s} << 2 << "--offset"_ba;
        QTest::newRow("a negative count")
            << u"file"_s << QStringList{u"--count=-1"_s} << 2 << "--count"_ba;
        QTest::newRow("an offset that is no number")
            << u"file"_s << QStringList{u"--offset"_s, u"1k"_s} << 2 << "--offset"_ba;
    }

    void catRefuses()
    {
        QFETCH(QString, path);
        QFETCH(QStringList, options);
        QFETCH(QByteArray, message);
        QVERIFY(m_server->start());
        QVERIFY(QDir(m_server->home()).mkdir(u"folder"_s));
        QVERIFY(writeFile(home(u"file"_s), "content"));
        const auto result = cat(path, options);
        QTEST(result.exitCode, "exitCode");
        QVERIFY(result.out.isEmpty());
        QVERIFY2(result.err.contains(message), result.err.constData());
    }

    void getToADashWritesToStdout_data()
    {
        QTest::addColumn<QStringList>("options");
        QTest::newRow("plain") << QStringList{};
        QTest::newRow("quiet") << QStringList{u"--quiet"_s};
        QTest::newRow("the bytes as they are also as JSON") << QStringList{u"--json"_s};
    }

    void getToADashWritesToStdout()
    {
        QFETCH(QStringList, options);
        const QByteArray content = pattern(3'000'003);
        QVERIFY(m_server->start());
        QVERIFY(writeFile(home(u"file"_s), content));
        const QTemporaryDir here;
        auto tool = m_server->client();
        tool.workingDirectory = here.path();
        const auto result =
            tool.run(QStringList{u"get"_s, m_server->url(u"file"_s), u"-"_s} + options);
        QVERIFY2(result.exitCode == 0, result.err.constData());
        QVERIFY(result.err.isEmpty());
        QVERIFY(result.out == content);
        QVERIFY(namesIn(here.path()).isEmpty());
        QVERIFY(QFile::exists(home(u"file"_s)));
    }

    void getToADashRefuses_data()
    {
        QTest::addColumn<QStringList>("words");
        QTest::addColumn<int>("exitCode");
        QTest::addColumn<QByteArray>("message");
        QTest::newRow("a directory")
            << QStringList{u"folder"_s} << 1 << "brix: folder is a directory\n"_ba;
        QTest::newRow("a missing file")
            << QStringList{u"missing"_s} << 1 << "the server has no file missing"_ba;
        QTest::newRow("a tree") << QStringList{u"folder"_s, u"-r"_s} << 2
                                << "-r and --remove-source are not for stdout"_ba;
        QTest::newRow("to remove the source") << QStringList{u"file"_s, u"--remove-source"_s} << 2
                                              << "-r and --remove-source are not for stdout"_ba;
    }

    void getToADashRefuses()
    {
        QFETCH(QStringList, words);
        QFETCH(QByteArray, message);
        QVERIFY(m_server->start());
        QVERIFY(QDir(m_server->home()).mkdir(u"folder"_s));
        QVERIFY(writeFile(home(u"file"_s), "content"));
        const auto result =
            m_server->run(QStringList{u"get"_s, m_server->url(words.takeFirst()), u"-"_s} + words);
        QTEST(result.exitCode, "exitCode");
        QVERIFY(result.out.isEmpty());
        QVERIFY2(result.err.contains(message), result.err.constData());
        QCOMPARE(readFile(home(u"file"_s)), "content"_ba);
    }

    void fileNamedDashCanBeFetched()
    {
        QVERIFY(m_server->start());
        QVERIFY(writeFile(home(u"file"_s), "content"));
        const QTemporaryDir here;
        auto tool = m_server->client();
        tool.workingDirectory = here.path();
        QCOMPARE(tool.run({u"get"_s, m_server->url(u"file"_s), u"./-"_s}).exitCode, 0);
        QCOMPARE(readFile(here.filePath(u"-"_s)), "content"_ba);
    }

    void catMakesNoFile()
    {
        QVERIFY(m_server->start());
        QCOMPARE(cat(u"missing"_s).exitCode, 1);
        QVERIFY(namesIn(m_server->home()).isEmpty());
    }

    void catWithAWrongPasswordIsRefused()
    {
        QVERIFY(m_server->start());
        auto tool = m_server->client();
        tool.password = u"wrong"_s;
        const auto result = tool.run({u"cat"_s, m_server->url(u"file"_s)});
        QCOMPARE(result.exitCode, 1);
        QVERIFY2(result.err.contains("refuses the login of ann"), result.err.constData());
    }

    void catReadsThePasswordFromStdin()
    {
        QVERIFY(m_server->start());
        QVERIFY(writeFile(home(u"file"_s), "content"));
        ToolProcess tool;
        tool.input = "secret\n";
        const auto result = tool.run({u"cat"_s, u"--password-stdin"_s, m_server->url(u"file"_s)});
        QCOMPARE(result.exitCode, 0);
        QCOMPARE(result.out, "content"_ba);
    }

    void noServerIsAConnectionFailure_data()
    {
        QTest::addColumn<QStringList>("arguments");
        QTest::newRow("cat") << QStringList{u"cat"_s};
        QTest::newRow("put") << QStringList{u"put"_s, u"-"_s};
    }

    void noServerIsAConnectionFailure()
    {
        QFETCH(QStringList, arguments);
        QVERIFY(m_server->start());
        m_server->process().kill();
        QVERIFY(m_server->process().waitForFinished());
        const auto result = m_server->run(arguments + QStringList{m_server->url(u"file"_s)});
        QCOMPARE(result.exitCode, 3);
        QVERIFY2(result.err.contains("cannot connect to 127.0.0.1"), result.err.constData());
        const auto unknown =
            m_server->run(arguments + QStringList{u"brix://ann@no.such.host.invalid:7000/file"_s});
        QCOMPARE(unknown.exitCode, 3);
        QVERIFY2(unknown.err.contains("is unknown"), unknown.err.constData());
    }

    // As with "brix cat … | head".
    void aReaderThatGoesEndsCat()
    {
        QVERIFY(m_server->start());
        QVERIFY(writeFile(home(u"file"_s), pattern(8'000'000)));
        QProcess process;
        m_server->client().prepare(&process, {});
        process.setProgram(u"/bin/sh"_s);
        process.setArguments(
            {u"-c"_s, u"( \"$0\" cat \"$1\"; echo \"code $?\" >&2 ) | head -c 10 >/dev/null"_s,
             QStringLiteral(BRIX_TOOL), m_server->url(u"file"_s)});
        process.start();
        QVERIFY(waitForEnd(process));
        const QByteArray err = process.readAllStandardError();
        QVERIFY2(err.contains("cannot write to stdout"), err.constData());
        QVERIFY2(err.contains("code 4"), err.constData());
    }

    void aFullDiskEndsCat()
    {
        QVERIFY(m_server->start());
        QVERIFY(writeFile(home(u"file"_s), "content"));
        QProcess process;
        m_server->client().prepare(&process, {u"cat"_s, m_server->url(u"file"_s)});
        process.setStandardOutputFile(u"/dev/full"_s);
        process.start();
        QVERIFY(waitForEnd(process));
        QCOMPARE(process.exitCode(), 4);
        const QByteArray err = process.readAllStandardError();
        QVERIFY2(err.contains("cannot write to stdout"), err.constData());
    }

    void aServerThatDiesEndsCat()
    {
        QVERIFY(m_server->start());
        QVERIFY(writeFile(home(u"file"_s), pattern(64'000'000)));
        QProcess process;
        process.setReadChannel(QProcess::StandardOutput);
        // Holds the client up as soon as the pipe is full, long before the end of the file.
        m_server->client().prepare(&process, {});
        process.setProgram(u"/bin/sh"_s);
        process.setArguments(
            {u"-c"_s,
             u"( \"$0\" cat \"$1\"; echo \"code $?\" >&2 ) | ( head -c 1; read go <&3; cat >/dev/null ) 3<&0"_s,
             QStringLiteral(BRIX_TOOL), m_server->url(u"file"_s)});
        process.start();
        QVERIFY(QTest::qWaitFor([&] { return process.bytesAvailable() > 0; }, kPatienceMs));
        m_server->process().kill();
        QVERIFY(m_server->process().waitForFinished());
        process.write("go\n");
        process.closeWriteChannel();
        QVERIFY(waitForEnd(process));
        const QByteArray err = process.readAllStandardError();
        QVERIFY2(err.contains("ended the connection"), err.constData());
        QVERIFY2(err.contains("code 3"), err.constData());
    }

    void commandThatServerLacksIsToldByCat()
    {
        std::unique_ptr<SessionHost> host;
        host = std::make_unique<SessionHost>([&](qint64 descriptor) {
            auto *server = new ServerWithoutDevices(descriptor);
            server->setAuthenticationDb(&host->users);
            return server;
        });
        ToolProcess tool;
        tool.password = u"secret"_s;
        const auto result = tool.run(
            {u"cat"_s, u"brix://alice@127.0.0.1:%1/file"_s.arg(QString::number(host->port()))});
        QCOMPARE(result.exitCode, 1);
        QVERIFY2(result.err.contains("does not know this command"), result.err.constData());
        QVERIFY(result.out.isEmpty());
    }

    void aSilentServerEndsCat()
    {
        RawServer server([](RawConnection &peer) {
            peer.send(RawServer::uuid());
            peer.answer(RawBytes::u32(1));
            peer.readCommand();
            peer.send(RawBytes::ack());
            peer.readToEnd();
        });
        QElapsedTimer timer;
        timer.start();
        const auto result = m_server->run({u"cat"_s, u"--timeout"_s, u"1"_s,
                                           u"brix://ann@127.0.0.1:%1/file"_s.arg(server.port())});
        QCOMPARE(result.exitCode, 3);
        QVERIFY2(result.err.contains("ended the connection"), result.err.constData());
        QVERIFY(timer.elapsed() < 10'000);
    }

    void aServerThatGivesTooMuchEndsCat()
    {
        RawServer server([](RawConnection &peer) {
            peer.send(RawServer::uuid());
            peer.answer(RawBytes::u32(1));
            peer.readCommand();
            peer.send(RawBytes::ack());
            peer.read(8);
            peer.send(QByteArray(1, '\1'));
            peer.read(4);
            peer.send(RawBytes::i64(100));
            peer.read(12);
            peer.send(RawBytes::i64(std::numeric_limits<qint64>::max()) + "bytes");
            peer.readToEnd();
        });
        const auto result =
            m_server->run({u"cat"_s, u"brix://ann@127.0.0.1:%1/file"_s.arg(server.port())});
        QCOMPARE(result.exitCode, 3);
        QVERIFY(result.out.isEmpty());
    }

    // Without a size an offset would seem to lie beyond the end.
    void aServerThatTellsNoSizeEndsCat_data()
    {
        QTest::addColumn<QByteArray>("size");
        QTest::addColumn<int>("exitCode");
        QTest::addColumn<QByteArray>("message");
        QTest::newRow("refused") << RawBytes::i64(-1) << 1 << "does not tell the size of file"_ba;
        QTest::newRow("gone") << QByteArray() << 3 << "ended the connection"_ba;
    }

    void aServerThatTellsNoSizeEndsCat()
    {
        QFETCH(QByteArray, size);
        QFETCH(QByteArray, message);
        RawServer server([size](RawConnection &peer) {
            peer.send(RawServer::uuid());
            peer.answer(RawBytes::u32(1));
            peer.readCommand();
            peer.send(RawBytes::ack());
            peer.read(8);
            peer.send(QByteArray(1, '\1'));
            peer.read(4);
            peer.send(size);
        });
        const auto result = m_server->run({u"cat"_s, u"--offset"_s, u"10"_s,
                                           u"brix://ann@127.0.0.1:%1/file"_s.arg(server.port())});
        QTEST(result.exitCode, "exitCode");
        QVERIFY2(result.err.contains(message), result.err.constData());
    }

    void signalsEndCat_data()
    {
        QTest::addColumn<int>("signal");
        QTest::newRow("SIGINT") << SIGINT;
        QTest::newRow("SIGTERM") << SIGTERM;
    }

    void signalsEndCat()
    {
        QFETCH(int, signal);
        QVERIFY(m_server->start());
        QVERIFY(writeFile(home(u"file"_s), pattern(1'000)));
        QSemaphore isAsked;
        RawServer server([&](RawConnection &peer) {
            peer.send(RawServer::uuid());
            peer.answer(RawBytes::u32(1));
            peer.readCommand();
            peer.send(RawBytes::ack());
            peer.read(8);
            isAsked.release();
            peer.readToEnd();
        });
        QProcess process;
        start(&process, {u"cat"_s, u"--timeout"_s, u"60"_s,
                         u"brix://ann@127.0.0.1:%1/file"_s.arg(server.port())});
        QVERIFY(process.waitForStarted());
        QVERIFY(isAsked.tryAcquire(1, kPatienceMs));
        ::kill(pid_t(process.processId()), signal);
        QVERIFY(waitForEnd(process));
        QCOMPARE(process.exitCode(), 130);
    }

    // put -

    void putStoresTheInput_data()
    {
        QTest::addColumn<qint64>("size");
        QTest::newRow("nothing") << qint64(0);
        QTest::newRow("a byte") << qint64(1);
        QTest::newRow("a buffer") << qint64(2'097'152);
        QTest::newRow("a buffer and a byte") << qint64(2'097'153);
        QTest::newRow("many MiB") << qint64(40'000'001);
    }

    void putStoresTheInput()
    {
        QFETCH(qint64, size);
        QVERIFY(m_server->start());
        const QByteArray content = pattern(size);
        const auto result = put(content, u"new/folder/file"_s);
        QVERIFY2(result.exitCode == 0, result.err.constData());
        QVERIFY(result.err.isEmpty());
        QVERIFY2(result.out.startsWith("1 file, "), result.out.constData());
        QVERIFY(readFile(home(u"new/folder/file"_s)) == content);
        QCOMPARE(namesIn(home(u"new/folder"_s)), QStringList{u"file"_s});
    }

    void putTellsAsJson()
    {
        QVERIFY(m_server->start());
        const auto result = put("content", u"file"_s, {u"--json"_s});
        const auto object = QJsonDocument::fromJson(result.out).object();
        QCOMPARE(object.value("files"_L1).toInteger(), 1);
        QCOMPARE(object.value("bytes"_L1).toInteger(), 7);
        QVERIFY(put("content", u"file"_s, {u"--quiet"_s}).out.isEmpty());
    }

    void putReplacesAnOlderFile()
    {
        QVERIFY(m_server->start());
        QVERIFY(writeFile(home(u"file"_s), "the older and longer content"));
        QCOMPARE(put("new", u"file"_s).exitCode, 0);
        QCOMPARE(readFile(home(u"file"_s)), "new"_ba);
        QCOMPARE(namesIn(m_server->home()), QStringList{u"file"_s});
    }

    void putKeepsOddNames()
    {
        QVERIFY(m_server->start());
        QCOMPARE(put("content", u"what%3F%20%22%3C"_s).exitCode, 0);
        QCOMPARE(readFile(home(u"what? \"<"_s)), "content"_ba);
    }

    void putRefuses_data()
    {
        QTest::addColumn<QString>("path");
        QTest::addColumn<QStringList>("options");
        QTest::addColumn<int>("exitCode");
        QTest::addColumn<QByteArray>("message");
        QTest::newRow("no path") << QString() << QStringList{} << 2 << "has no name"_ba;
        QTest::newRow("a slash at the end") << u"a/"_s << QStringList{} << 2 << "has no name"_ba;
        QTest::newRow("a folder") << u"folder"_s << QStringList{} << 2 << "has no name"_ba;
        QTest::newRow("a tree") << u"file"_s << QStringList{u"-r"_s} << 2 << "not for stdin"_ba;
        QTest::newRow("a source to remove")
            << u"file"_s << QStringList{u"--remove-source"_s} << 2 << "not for stdin"_ba;
        QTest::newRow("the password on the same way")
            << u"file"_s << QStringList{u"--password-stdin"_s} << 2 << "both come from stdin"_ba;
        QTest::newRow("below a file")
            << u"older/file"_s << QStringList{} << 1 << "does not let older/file be written"_ba;
        QTest::newRow("outside the home folder")
            << u"../file"_s << QStringList{} << 1 << "does not let ../file be written"_ba;
    }

    void putRefuses()
    {
        QFETCH(QString, path);
        QFETCH(QStringList, options);
        QFETCH(QByteArray, message);
        QVERIFY(m_server->start());
        QVERIFY(QDir(m_server->home()).mkdir(u"folder"_s));
        QVERIFY(writeFile(home(u"older"_s), "kept"));
        const auto result = put("content", path, options);
        QTEST(result.exitCode, "exitCode");
        QVERIFY2(result.err.contains(message), result.err.constData());
        QCOMPARE(namesIn(m_server->home()), (QStringList{u"folder"_s, u"older"_s}));
        QCOMPARE(readFile(home(u"older"_s)), "kept"_ba);
    }

    void aFileNamedAsADashIsSent()
    {
        QVERIFY(m_server->start());
        QVERIFY(QDir().mkpath(m_server->path(u"here"_s)));
        QVERIFY(writeFile(m_server->path(u"here/-"_s), "a file"));
        auto tool = m_server->client();
        tool.workingDirectory = m_server->path(u"here"_s);
        tool.input = "stdin";
        QCOMPARE(tool.run({u"put"_s, u"./-"_s, m_server->url(u"a"_s)}).exitCode, 0);
        QCOMPARE(tool.run({u"put"_s, u"-"_s, m_server->url(u"b"_s)}).exitCode, 0);
        QCOMPARE(readFile(home(u"a"_s)), "a file"_ba);
        QCOMPARE(readFile(home(u"b"_s)), "stdin"_ba);
    }

    void anInputThatCannotBeReadEndsPut()
    {
        QVERIFY(m_server->start());
        QProcess process;
        m_server->client().prepare(&process, {u"put"_s, u"-"_s, m_server->url(u"file"_s)});
        process.setProgram(u"/bin/sh"_s);
        process.setArguments({u"-c"_s, u"exec \"$0\" put - \"$1\" < /"_s, QStringLiteral(BRIX_TOOL),
                              m_server->url(u"file"_s)});
        process.start();
        QVERIFY(waitForEnd(process));
        QCOMPARE(process.exitCode(), 4);
        const QByteArray err = process.readAllStandardError();
        QVERIFY2(err.contains("cannot read stdin"), err.constData());
        QVERIFY(namesIn(m_server->home()).isEmpty());
    }

    // A socket in the place of a stream would be read and written in its stead.
    void closedStandardStreamsAreNone_data()
    {
        QTest::addColumn<QString>("command");
        QTest::addColumn<QByteArray>("message");
        QTest::newRow("stdin") << u"exec \"$0\" put - \"$1\" <&-"_s << "cannot read stdin"_ba;
        QTest::newRow("stdout") << u"exec \"$0\" cat \"$1\" >&-"_s << "cannot write to stdout"_ba;
        QTest::newRow("both") << u"exec \"$0\" cat \"$1\" <&- >&-"_s << "cannot write to stdout"_ba;
    }

    void closedStandardStreamsAreNone()
    {
        QFETCH(QString, command);
        QFETCH(QByteArray, message);
        QVERIFY(m_server->start());
        QVERIFY(writeFile(home(u"file"_s), "content"));
        QProcess process;
        m_server->client().prepare(&process, {});
        process.setProgram(u"/bin/sh"_s);
        process.setArguments(
            {u"-c"_s, command, QStringLiteral(BRIX_TOOL), m_server->url(u"file"_s)});
        process.start();
        QVERIFY(waitForEnd(process));
        QCOMPARE(process.exitCode(), 4);
        const QByteArray err = process.readAllStandardError();
        QVERIFY2(err.contains(message + ": Bad file descriptor"), err.constData());
        QCOMPARE(readFile(home(u"file"_s)), "content"_ba);
        QCOMPARE(namesIn(m_server->home()), QStringList{u"file"_s});
    }

    // The server answers no write; what it has stored is looked at before the older file goes.
    void aServerWithoutRoomEndsPut()
    {
        QVERIFY(writeFile(home(u"file"_s), "kept"));
        limitFileSize(&m_server->process(), 100'000);
        QVERIFY(m_server->start());
        const auto result = put(pattern(3'000'000), u"file"_s);
        QCOMPARE(result.exitCode, 1);
        QVERIFY2(result.err.contains("stored only 100000 of 3000000"), result.err.constData());
        QCOMPARE(readFile(home(u"file"_s)), "kept"_ba);
        QCOMPARE(namesIn(m_server->home()), QStringList{u"file"_s});
    }

    void aServerThatDiesEndsPut()
    {
        QVERIFY(m_server->start());
        QVERIFY(writeFile(home(u"file"_s), "kept"));
        QProcess process;
        start(&process, {u"put"_s, u"-"_s, m_server->url(u"file"_s)});
        process.write(pattern(3'000'000));
        QVERIFY(waitForStored(2'000'000));
        m_server->process().kill();
        QVERIFY(m_server->process().waitForFinished());
        process.write(pattern(30'000'000));
        process.closeWriteChannel();
        QVERIFY(waitForEnd(process));
        QCOMPARE(process.exitCode(), 3);
        const QByteArray err = process.readAllStandardError();
        QVERIFY2(err.contains("ended the connection"), err.constData());
        QCOMPARE(readFile(home(u"file"_s)), "kept"_ba);
    }

    void signalsEndPut_data() { signalsEndCat_data(); }

    // While it waits for its input.
    void signalsEndPut()
    {
        QFETCH(int, signal);
        QVERIFY(m_server->start());
        QVERIFY(writeFile(home(u"file"_s), "kept"));
        QProcess process;
        start(&process, {u"put"_s, u"-"_s, m_server->url(u"file"_s)});
        process.write(pattern(3'000'000));
        QVERIFY(waitForStored(2'000'000));
        QElapsedTimer timer;
        timer.start();
        ::kill(pid_t(process.processId()), signal);
        QVERIFY(waitForEnd(process));
        QVERIFY(timer.elapsed() < 3000);
        QCOMPARE(process.exitCode(), 130);
        QCOMPARE(readFile(home(u"file"_s)), "kept"_ba);
        QCOMPARE(namesIn(m_server->home()), QStringList{u"file"_s});
    }

    // On a terminal

    void theProgressIsShown()
    {
        QVERIFY(m_server->start());
        FakeTerminal terminal;
        QProcess process;
        m_server->client().prepare(&process, {u"put"_s, u"-"_s, m_server->url(u"file"_s)});
        terminal.attach(&process, {2});
        process.start();
        process.write(pattern(3'000'000));
        QVERIFY(waitForStored(2'000'000));
        QVERIFY(terminal.screenShowing(" MiB").contains("/s"));
        process.closeWriteChannel();
        QVERIFY(waitForEnd(process));
        QCOMPARE(process.exitCode(), 0);
    }
};

QTEST_GUILESS_MAIN(tst_ToolStreamCommands)
#include "tst_toolstreamcommands.moc"
