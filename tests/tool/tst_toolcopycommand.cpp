// SPDX-License-Identifier: MIT
// brix cp against servers that say that they have copied what they have not.
#include "toolserver.h"

#include <brixlib/fileservice/sserverftp.h>
#include <brixlib/protocol/scommand.h>
#include <brixlib/protocol/socket/stcpsocket.h>
#include <brixlib/protocol/wire.h>

#include <shared/descriptorshortage.h>
#include <shared/sessionhost.h>

#include <functional>

using namespace Talverine;
using namespace Qt::StringLiterals;

namespace {

// A server that does something of its own when it is to copy.
class CopyServer final : public SServerFtp
{
public:
    //! Called for each command to copy; \a answer sends the result byte for "done", \a work copies.
    using Script =
        std::function<bool(const std::function<bool()> &answer, const std::function<bool()> &work)>;

    CopyServer(qint64 descriptor, Script script)
        : SServerFtp(descriptor)
        , m_script(std::move(script))
    {
    }

protected:
    bool executeCommand(SCommand *command) override
    {
        const auto work = [this, command] { return SServerFtp::executeCommand(command); };
        if (command->id() != CommandIds::kCopyFile && command->id() != CommandIds::kCopyDir)
            return work();
        return m_script([this] { return writeAll(socket(), "\1"_ba) == 1; }, work);
    }

private:
    Script m_script;
};

} // namespace

class tst_ToolCopyCommand : public QObject
{
    Q_OBJECT

private:
    CopyServer::Script m_script;
    std::unique_ptr<SessionHost> m_host;

    QString home(const QString &name) const { return m_host->homeOf(u"alice"_s) + u'/' + name; }
    ToolResult copy(const QString &from, const QString &to, const QStringList &more = {}) const
    {
        ToolProcess tool;
        tool.password = u"secret"_s;
        const QString url =
            u"brix://alice@127.0.0.1:%1/%2"_s.arg(QString::number(m_host->port()), from);
        return tool.run(QStringList{u"cp"_s, u"--timeout"_s, u"5"_s, url, to} + more);
    }

private Q_SLOTS:
    void init()
    {
        m_script = {};
        m_host = std::make_unique<SessionHost>([this](qint64 descriptor) {
            auto *server = new CopyServer(descriptor, [this](const auto &answer, const auto &work) {
                return m_script ? m_script(answer, work) : work();
            });
            server->setAuthenticationDb(&m_host->users);
            return server;
        });
        QVERIFY(writeFile(home(u"a.txt"_s), "content"));
        QVERIFY(writeFile(home(u"tree/b.txt"_s), "bee"));
        QVERIFY(writeFile(home(u"tree/sub/c.txt"_s), "see"));
        QVERIFY(writeFile(home(u"tree/sub/empty"_s), {}));
    }
    void cleanup() { m_host.reset(); }

    void whatIsCopiedIsThere()
    {
        auto result = copy(u"a.txt"_s, u"b.txt"_s);
        QVERIFY2(result.exitCode == 0, result.err.constData());
        QCOMPARE(readFile(home(u"b.txt"_s)), "content"_ba);
        result = copy(u"tree"_s, u"tree/within/itself"_s, {u"-r"_s});
        QVERIFY2(result.exitCode == 0, result.err.constData());
        QCOMPARE(readFile(home(u"tree/within/itself/sub/c.txt"_s)), "see"_ba);
    }

    void linksPipesAndEmptyDirectoriesAreNoMistakes()
    {
        QVERIFY(QFile::link(home(u"a.txt"_s), home(u"tree/link"_s)));
        QVERIFY(QFile::link(home(u"missing"_s), home(u"tree/dangling"_s)));
        QVERIFY(QFile::link(home(u"tree/sub"_s), home(u"tree/directory"_s)));
        QVERIFY(QDir(home(u"tree"_s)).mkdir(u"nothing"_s));
        const auto result = copy(u"tree"_s, u"copy"_s, {u"-r"_s});
        QVERIFY2(result.exitCode == 0, result.err.constData());
        QCOMPARE(readFile(home(u"copy/link"_s)), "content"_ba);
        QVERIFY(!QFile::exists(home(u"copy/nothing"_s)));
    }

    void fileThatGrowsMeanwhileIsNoMistake()
    {
        m_script = [this](const auto &, const auto &work) {
            return work() && writeFile(home(u"a.txt"_s), "content and more");
        };
        const auto result = copy(u"a.txt"_s, u"b.txt"_s);
        QVERIFY2(result.exitCode == 0, result.err.constData());
    }

    void copyThatIsNotThereIsTold_data()
    {
        QTest::addColumn<QString>("from");
        QTest::addColumn<QStringList>("words");
        QTest::addColumn<QString>("made"); // by the server, with too few bytes
        QTest::addColumn<QByteArray>("message");
        const QStringList tree{u"-r"_s};
        QTest::newRow("a file") << u"a.txt"_s << QStringList{} << QString()
                                << "has copied a.txt, but its copy is not there"_ba;
        QTest::newRow("a file, in part") << u"a.txt"_s << QStringList{} << u"copy"_s
                                         << "has copied a.txt, but its copy has 2 of 7 bytes"_ba;
        QTest::newRow("a tree") << u"tree"_s << tree << QString()
                                << "has copied tree, but there is no directory copy"_ba;
        QTest::newRow("a tree, one file in part")
            << u"tree"_s << tree << u"copy/b.txt"_s
            << "has copied tree/b.txt, but its copy has 2 of 3 bytes"_ba;
        QTest::newRow("a tree, one file missing")
            << u"tree"_s << tree << u"copy/other"_s
            << "has copied tree/b.txt, but its copy is not"_ba;
    }

    void copyThatIsNotThereIsTold()
    {
        QFETCH(const QString, from);
        QFETCH(const QStringList, words);
        QFETCH(const QString, made);
        QFETCH(const QByteArray, message);
        m_script = [this, made](const auto &answer, const auto &) {
            return (made.isEmpty() || writeFile(home(made), "xx")) && answer();
        };
        const auto result = copy(from, u"copy"_s, words);
        QCOMPARE(result.exitCode, 1);
        QVERIFY2(result.err.contains(message), result.err.constData());
    }

    void serverWithoutDescriptorsHasNotCopied_data()
    {
        QTest::addColumn<QString>("from");
        QTest::addColumn<QStringList>("words");
        QTest::newRow("a file") << u"a.txt"_s << QStringList{};
        QTest::newRow("a tree") << u"tree"_s << QStringList{u"-r"_s};
    }

    void serverWithoutDescriptorsHasNotCopied()
    {
        QFETCH(const QString, from);
        QFETCH(const QStringList, words);
        m_script = [](const auto &, const auto &work) {
            const DescriptorShortage shortage;
            return work();
        };
        const auto result = copy(from, u"copy"_s, words);
        QCOMPARE(result.exitCode, 1);
        QVERIFY2(result.err.contains("cop"), result.err.constData());
        QVERIFY(!QFile::exists(home(u"copy/b.txt"_s)));
        QCOMPARE(readFile(home(u"a.txt"_s)), "content"_ba);
    }
};

QTEST_GUILESS_MAIN(tst_ToolCopyCommand)
#include "tst_toolcopycommand.moc"
