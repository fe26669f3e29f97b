// SPDX-License-Identifier: MIT
#include <cli/command.h>
#include <cli/commandline.h>

#include <QtTest/QtTest>

using namespace Brix;
using namespace Qt::StringLiterals;

Q_DECLARE_METATYPE(std::string)

namespace {

// A program with two commands, one of which belongs to a family.
struct Program
{
    Program()
    {
        root.addFlag("--json", &json, "JSON");
        Command &get = root.addCommand("get", "Fetch");
        get.addText("URL", &url, "The URL").setRequired();
        Argument &recursive = get.addFlag("-r,--recursive", &isRecursive, "The whole tree");
        get.addNumber("--depth", &depth, "Levels", 1, 200).setNeeded(recursive);
        get.addFlag("--list", &isList, "List only").setExcluded(recursive);
        Command &family = root.addCommand("db", "Databases");
        Command &set = family.addCommand("set", "Set fields");
        set.addList("FIELDS", &fields, "FIELD=VALUE");
    }

    CommandLine::Result parse(const QList<QByteArray> &words)
    {
        QList<const char *> argv{"brix"};
        for (const QByteArray &word : words)
            argv.append(word.constData());
        return CommandLine(root, "brix 1.0").parse(int(argv.size()), argv.constData());
    }

    Command root{"brix", "Test"};
    bool json = false;
    bool isRecursive = false;
    bool isList = false;
    int depth = 5;
    QString url;
    QStringList fields;
};

} // namespace

class tst_CommandLine : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void choosesCommandAndStoresItsValues()
    {
        Program program;
        const auto result = program.parse({"get", "-r", "--depth", "7", "brix://a@b:1/c"});
        QCOMPARE(result.outcome, CommandLine::Outcome::Chosen);
        QCOMPARE(result.command->name(), std::string("get"));
        QVERIFY(program.isRecursive);
        QCOMPARE(program.depth, 7);
        QCOMPARE(program.url, u"brix://a@b:1/c"_s);
        QVERIFY(!program.json);
    }

    void choosesCommandOfAFamily()
    {
        Program program;
        const auto result = program.parse({"db", "set", "a=1", "b=2"});
        QCOMPARE(result.outcome, CommandLine::Outcome::Chosen);
        QCOMPARE(result.command->name(), std::string("set"));
        QCOMPARE(program.fields, QStringList({u"a=1"_s, u"b=2"_s}));
    }

    void acceptsOptionsOfTheRootAnywhere_data()
    {
        QTest::addColumn<QList<QByteArray>>("words");
        QTest::newRow("before the command") << QList<QByteArray>{"--json", "db", "set", "a=1"};
        QTest::newRow("after the family") << QList<QByteArray>{"db", "--json", "set", "a=1"};
        QTest::newRow("after the arguments") << QList<QByteArray>{"db", "set", "a=1", "--json"};
    }

    void acceptsOptionsOfTheRootAnywhere()
    {
        QFETCH(QList<QByteArray>, words);
        Program program;
        QCOMPARE(program.parse(words).outcome, CommandLine::Outcome::Chosen);
        QVERIFY(program.json);
        QCOMPARE(program.fields, QStringList(u"a=1"_s));
    }

    void takesWordsAfterTwoDashesAsValues()
    {
        Program program;
        QCOMPARE(program.parse({"get", "--", "-r"}).outcome, CommandLine::Outcome::Chosen);
        QCOMPARE(program.url, u"-r"_s);
        QVERIFY(!program.isRecursive);
    }

    void reportsWhatIsWrong_data()
    {
        QTest::addColumn<QList<QByteArray>>("words");
        QTest::addColumn<std::string>("problem");
        QTest::addColumn<std::string>("command");
        const auto row = [](const char *name, const QList<QByteArray> &words, std::string problem,
                            std::string command) {
            QTest::newRow(name) << words << std::move(problem) << std::move(command);
        };
        row("nothing", {}, "A subcommand is required", "brix");
        row("unknown command", {"fly"}, "unknown argument: fly", "brix");
        row("family alone", {"db"}, "A subcommand is required", "brix db");
        row("unknown command of a family", {"db", "fly"}, "unknown argument: fly", "brix db");
        row("missing argument", {"get"}, "URL is required", "brix get");
        row("unknown option", {"get", "u", "--fast"}, "unknown argument: --fast", "brix get");
        row("invalid value", {"get", "u", "-r", "--depth", "0"}, "--depth: 0 is smaller than 1",
            "brix get");
        row("missing needed option", {"get", "u", "--depth", "3"}, "--depth requires --recursive",
            "brix get");
        row("excluded option", {"get", "u", "--list", "-r"}, "--recursive excludes --list",
            "brix get");
        row("value of a flag's place", {"get", "u", "v"}, "unknown argument: v", "brix get");
    }

    void reportsWhatIsWrong()
    {
        QFETCH(QList<QByteArray>, words);
        QFETCH(std::string, problem);
        QFETCH(std::string, command);
        Program program;
        const auto result = program.parse(words);
        QCOMPARE(result.outcome, CommandLine::Outcome::Wrong);
        QCOMPARE(result.problem, problem);
        QCOMPARE(result.words, command);
        QVERIFY(!result.command);
    }
};

QTEST_GUILESS_MAIN(tst_CommandLine)
#include "tst_commandline.moc"
