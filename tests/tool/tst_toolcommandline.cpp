// SPDX-License-Identifier: MIT
// What holds for every sub-command: help, version, wrong usage, unwritable stdout.
#include <shared/toolprocess.h>

using namespace Qt::StringLiterals;

namespace {

ToolResult run(const QStringList &arguments)
{
    return ToolProcess().run(arguments);
}

// The names under "Subcommands:" of a help text.
QStringList subcommands(const QByteArray &help)
{
    QStringList names;
    bool inside = false;
    for (const auto &line : help.split('\n')) {
        if (line.startsWith("Subcommands:"))
            inside = true;
        else if (inside && line.startsWith("  "))
            names.append(QString::fromUtf8(line.mid(2, line.indexOf(' ', 2) - 2)));
        else
            inside = false;
    }
    return names;
}

// Every chain of sub-commands that leads to one without further ones.
QList<QStringList> leaves(const QStringList &prefix)
{
    const auto names = subcommands(run(prefix + QStringList{u"--help"_s}).out);
    if (names.isEmpty())
        return {prefix};
    QList<QStringList> all;
    for (const auto &name : names)
        all += leaves(prefix + QStringList{name});
    return all;
}

} // namespace

class tst_ToolCommandLine : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void versionIsPrinted()
    {
        const auto result = run({u"--version"_s});
        QCOMPARE(result.exitCode, 0);
        QCOMPARE(result.out, "brix 2.0.12\n"_ba);
        QVERIFY(result.err.isEmpty());
    }

    void helpNamesTheSubcommandsAndTheExitCodes()
    {
        const auto result = run({u"--help"_s});
        QCOMPARE(result.exitCode, 0);
        QVERIFY(result.err.isEmpty());
        QVERIFY(subcommands(result.out).contains(u"user"_s));
        QVERIFY(result.out.contains("Exit codes: 0 done"));
    }

    void everySubcommandHasHelpWithAnExample()
    {
        const auto all = leaves({});
        QVERIFY(all.size() >= 3);
        for (const auto &command : all) {
            const auto result = run(command + QStringList{u"--help"_s});
            const QString name = command.join(u' ');
            QVERIFY2(result.exitCode == 0, qPrintable(name));
            QVERIFY2(result.out.contains("Example:\n  brix " + name.toUtf8() + ' '),
                     qPrintable(name));
        }
    }

    void wrongUsageIsTold_data()
    {
        QTest::addColumn<QStringList>("arguments");
        QTest::addColumn<QByteArray>("message");
        QTest::newRow("nothing") << QStringList{} << "A subcommand is required"_ba;
        QTest::newRow("unknown command") << QStringList{u"fly"_s} << "unknown argument: fly"_ba;
        QTest::newRow("unknown option")
            << QStringList{u"user"_s, u"list"_s, u"f"_s, u"--fast"_s} << "--fast"_ba;
        QTest::newRow("family without a command")
            << QStringList{u"user"_s} << "A subcommand is required"_ba;
        QTest::newRow("missing argument")
            << QStringList{u"user"_s, u"list"_s} << "FILE is required"_ba;
        QTest::newRow("missing option")
            << QStringList{u"user"_s, u"add"_s, u"f"_s, u"ann"_s} << "--home is required"_ba;
        QTest::newRow("empty path")
            << QStringList{u"put"_s, u"-r"_s, QString(), u"brix://ann@press:7000/a"_s}
            << "LOCAL: the path is empty"_ba;
        QTest::newRow("empty home")
            << QStringList{u"user"_s, u"add"_s, u"f"_s, u"ann"_s, u"--home"_s, QString()}
            << "--home: the path is empty"_ba;
        QTest::newRow("negative limit")
            << QStringList{u"serve"_s, u"--users"_s, u"f"_s, u"--limit-in"_s, u"-1"_s}
            << "--limit-in: -1 is smaller than 0\n"_ba;
        QTest::newRow("limit with a unit")
            << QStringList{u"serve"_s, u"--users"_s, u"f"_s, u"--limit-out"_s, u"10M"_s}
            << "--limit-out: 10M is not a whole number\n"_ba;
        const QString url = u"brix://ann@press:7000/a"_s;
        QTest::newRow("negative offset") << QStringList{u"cat"_s, url, u"--offset"_s, u"-1"_s}
                                         << "--offset: -1 is smaller than 0\n"_ba;
        QTest::newRow("offset with a sign") << QStringList{u"cat"_s, url, u"--offset"_s, u"+1"_s}
                                            << "--offset: +1 is not a whole number\n"_ba;
        QTest::newRow("count with a unit") << QStringList{u"cat"_s, url, u"--count"_s, u"1k"_s}
                                           << "--count: 1k is not a whole number\n"_ba;
        QTest::newRow("negative threads")
            << QStringList{u"compress"_s, u"f"_s, u"--threads"_s, u"-1"_s}
            << "--threads: -1 is smaller than 0\n"_ba;
        QTest::newRow("too many threads")
            << QStringList{u"compress"_s, u"f"_s, u"--threads"_s, u"2147483648"_s}
            << "--threads: 2147483648 is larger than 2147483647\n"_ba;
        QTest::newRow("negative number of last entries")
            << QStringList{u"log"_s, u"show"_s, u"f"_s, u"--last"_s, u"-1"_s}
            << "--last: -1 is smaller than 0\n"_ba;
        QTest::newRow("entries to keep with a unit")
            << QStringList{u"log"_s,    u"append"_s, u"f"_s,           u"id"_s,
                           u"--user"_s, u"ann"_s,    u"--keep-logs"_s, u"1k"_s}
            << "--keep-logs: 1k is not a whole number\n"_ba;
        QTest::newRow("too many entries to keep")
            << QStringList{u"log"_s, u"rotate"_s, u"f"_s, u"--keep-logs"_s, u"2147483648"_s}
            << "--keep-logs: 2147483648 is larger than 2147483647\n"_ba;
        QTest::newRow("port too large")
            << QStringList{u"serve"_s, u"--users"_s, u"f"_s, u"--port"_s, u"65536"_s}
            << "--port: 65536 is larger than 65535"_ba;
        QTest::newRow("too many arguments")
            << QStringList{u"user"_s, u"list"_s, u"f"_s, u"g"_s} << "g"_ba;
    }

    void wrongUsageIsTold()
    {
        QFETCH(QStringList, arguments);
        QFETCH(QByteArray, message);
        const auto result = run(arguments);
        QCOMPARE(result.exitCode, 2);
        QVERIFY(result.out.isEmpty());
        QVERIFY2(result.err.startsWith("brix: "), result.err.constData());
        QVERIFY2(result.err.contains(message), result.err.constData());
        QVERIFY2(result.err.contains(" --help"), result.err.constData());
    }

#ifdef Q_OS_LINUX
    void resultThatCannotBeWrittenIsAFailure()
    {
        QProcess process;
        ToolProcess().prepare(&process, {u"--version"_s});
        process.setStandardOutputFile(u"/dev/full"_s);
        process.start();
        QVERIFY(process.waitForFinished());
        QCOMPARE(process.exitCode(), 4);
        QVERIFY(process.readAllStandardError().contains("cannot write to stdout"));
    }
#endif
};

QTEST_GUILESS_MAIN(tst_ToolCommandLine)
#include "tst_toolcommandline.moc"
