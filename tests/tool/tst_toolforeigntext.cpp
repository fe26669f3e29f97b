// SPDX-License-Identifier: MIT
// Text of the server on its way to a terminal, to a pipe and into JSON.
#include <brixlib/fileservice/sserverftp.h>
#include <brixlib/protocol/pluggables/spluggablejson.h>
#include <brixlib/protocol/pluggables/spluggablestring.h>
#include <brixlib/protocol/pluggables/spluggablestringlist.h>

#include <shared/faketerminal.h>
#include <shared/sessionhost.h>
#include <shared/toolprocess.h>

#include <QtCore/QJsonDocument>
#include <QtCore/QJsonObject>

using namespace Talverine;
using namespace Qt::StringLiterals;

namespace {

const QString kNasty = u"a\x1b[2J\x7f\u009b31m\nbrix: done\u202eb"_s;
const QByteArray kEscaped = "a\\u{1B}[2J\\u{7F}\\u{9B}31m\\nbrix: done\\u{202E}b";

//! A pluggable whose reply is bytes without a tag.
class Bytes final : public SPluggable
{
public:
    explicit Bytes(const QByteArray &bytes)
        : m_bytes(bytes)
    {
    }
    bool execute(const QByteArray &, QByteArray &output, const SPluggableEnvironment &) override
    {
        output = m_bytes;
        return true;
    }

private:
    const QByteArray m_bytes;
};

const QByteArray kBytes = "raw \x1b]0;title\a \x9b \xFF\n";

SServerBase *makeServer(qint64 descriptor, SAuthenticationDb *users)
{
    auto *server = new SServerFtp(descriptor);
    server->setAuthenticationDb(users);
    server->setServerName(kNasty);
    server->addPluggable(u"text"_s, new SPluggableString(kNasty, nullptr));
    server->addPluggable(u"list"_s, new SPluggableStringList({u"one"_s, kNasty}, nullptr));
    const QJsonDocument document(QJsonObject{{u"key"_s, kNasty}});
    server->addPluggable(u"json"_s, new SPluggableJson(document, nullptr));
    server->addPluggable(u"bytes"_s, new Bytes(kBytes));
    return server;
}

} // namespace

class tst_ToolForeignText : public QObject
{
    Q_OBJECT

private:
    SessionHost m_host{[this](qint64 descriptor) { return makeServer(descriptor, &m_host.users); }};

    QString url(const QString &path = {}) const
    {
        return u"brix://alice@127.0.0.1:%1/%2"_s.arg(QString::number(m_host.port()), path);
    }
    static ToolProcess tool()
    {
        ToolProcess process;
        process.password = u"secret"_s;
        return process;
    }
    ToolResult piped(const QStringList &arguments) const { return tool().run(arguments); }
    //! What the terminal was sent on stdout, with its own line ends.
    QByteArray onTerminal(const QStringList &arguments) const
    {
        FakeTerminal terminal;
        QProcess process;
        tool().prepare(&process, arguments);
        terminal.attach(&process, {1});
        process.start();
        const auto hasEnded = [&] { return process.state() == QProcess::NotRunning; };
        return QTest::qWaitFor(hasEnded, 60'000) ? terminal.screen() : "still running"_ba;
    }

private Q_SLOTS:
    void initTestCase()
    {
        QFile file(m_host.homeOf(u"alice"_s) + u'/' + kNasty);
        QVERIFY(file.open(QIODevice::WriteOnly));
    }

    void terminalIsSentEscapes_data()
    {
        QTest::addColumn<QStringList>("arguments");
        QTest::addColumn<QByteArray>("shown");
        const QByteArray line = kEscaped + "\r\n";
        QTest::newRow("name") << QStringList{u"name"_s, url()} << line;
        QTest::newRow("ls") << QStringList{u"ls"_s, url()} << line;
        QTest::newRow("text") << QStringList{u"call"_s, url(), u"text"_s} << line;
        QTest::newRow("list") << QStringList{u"call"_s, url(), u"list"_s} << "one\r\n" + line;
        QTest::newRow("bytes") << QStringList{u"call"_s, url(), u"bytes"_s}
                               << "raw \\u{1B}]0;title\\u{7} \\x9B \\xFF\\n\r\n"_ba;
    }

    void terminalIsSentEscapes()
    {
        QFETCH(QStringList, arguments);
        QFETCH(QByteArray, shown);
        QCOMPARE(onTerminal(arguments), shown);
    }

    // The layout stays, and so do the escapes of JSON itself.
    void terminalIsSentJsonInLines()
    {
        const QByteArray shown = onTerminal({u"call"_s, url(), u"json"_s});
        QCOMPARE(shown.count("\r\n"), 3);
        for (const char control : {'\x1b', '\x7f', '\x9b'})
            QVERIFY(!shown.contains(control));
        QVERIFY(!shown.contains("\u202e"));
        QVERIFY(shown.contains("u{202E}"));
    }

    void longListIsAlignedByWhatIsShown()
    {
        const QByteArray shown = onTerminal({u"ls"_s, u"-l"_s, url()});
        QVERIFY2(shown.endsWith("  " + kEscaped + "\r\n"), shown.constData());
        QCOMPARE(shown.count('\n'), 1);
    }

    void rawLetsAllThrough_data()
    {
        QTest::addColumn<QStringList>("arguments");
        QTest::addColumn<QByteArray>("shown");
        const QByteArray text = kNasty.toUtf8().replace('\n', "\r\n");
        QTest::newRow("name") << QStringList{u"name"_s, url()} << text + "\r\n";
        QTest::newRow("ls") << QStringList{u"ls"_s, url()} << text + "\r\n";
        QTest::newRow("bytes") << QStringList{u"call"_s, url(), u"bytes"_s}
                               << kBytes.chopped(1) + "\r\n";
    }

    void rawLetsAllThrough()
    {
        QFETCH(QStringList, arguments);
        QFETCH(QByteArray, shown);
        QCOMPARE(onTerminal(arguments + QStringList{u"--raw"_s}), shown);
    }

    void pipeIsSentTheTextItself()
    {
        QCOMPARE(piped({u"name"_s, url()}).out, kNasty.toUtf8() + '\n');
        QCOMPARE(piped({u"ls"_s, url()}).out, kNasty.toUtf8() + '\n');
        QCOMPARE(piped({u"call"_s, url(), u"text"_s}).out, kNasty.toUtf8() + '\n');
        QCOMPARE(piped({u"call"_s, url(), u"bytes"_s}).out, kBytes);
    }

    void jsonHasOnlyPrintableBytes_data()
    {
        QTest::addColumn<QStringList>("arguments");
        QTest::addColumn<QString>("key");
        QTest::newRow("name") << QStringList{u"name"_s, url()} << u"name"_s;
        QTest::newRow("ls") << QStringList{u"ls"_s, url()} << u"name"_s;
        QTest::newRow("text") << QStringList{u"call"_s, url(), u"text"_s} << u"value"_s;
    }

    void jsonHasOnlyPrintableBytes()
    {
        QFETCH(QStringList, arguments);
        QFETCH(QString, key);
        const ToolResult result = piped(arguments + QStringList{u"--json"_s});
        QCOMPARE(result.lines().size(), 1);
        const QByteArray line = result.lines().constFirst();
        const auto isPlain = [](char byte) { return byte >= ' ' && byte <= '~'; };
        QVERIFY2(std::all_of(line.begin(), line.end(), isPlain), line.constData());
        QCOMPARE(QJsonDocument::fromJson(line).object().value(key).toString(), kNasty);
    }

    void errorsAreEscapedInAPipeToo()
    {
        const ToolResult result = piped({u"call"_s, url(), kNasty});
        QCOMPARE(result.exitCode, 1);
        QCOMPARE(result.err.count('\n'), 1);
        QVERIFY2(result.err.contains(kEscaped), result.err.constData());
    }
};

QTEST_GUILESS_MAIN(tst_ToolForeignText)
#include "tst_toolforeigntext.moc"
