// SPDX-License-Identifier: MIT
#include <cli/command.h>
#include <cli/output.h>

#include <QtCore/QDir>
#include <QtTest/QtTest>

using namespace Brix;
using namespace Qt::StringLiterals;

namespace {

struct Options
{
    QString file;
    int count = 3;
};

void declare(Command *command, Options *options)
{
    command->addPath("FILE", &options->file, "The file").setRequired();
    command->addNumber("-n,--count", &options->count, "Lines");
}

ExitCode work(const Output &, const Options &options)
{
    return options.count == 7 ? ExitCode::Refused : ExitCode::Done;
}

} // namespace

class tst_Command : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void newCommandHasOnlyNameAndDescription()
    {
        const Command command("list", "List the records");
        QCOMPARE(command.name(), std::string("list"));
        QCOMPARE(command.description(), std::string("List the records"));
        QVERIFY(command.footer().empty());
        QVERIFY(command.commands().empty());
        QVERIFY(command.arguments().empty());
        QVERIFY(!command.work());
    }

    void addCommandDeclaresArgumentsAndRunsWorkWithTheirValues()
    {
        Command root("brix", "");
        Command &list = addCommand<Options>(&root, "list", "Lists", "brix list f", declare, work);
        QCOMPARE(root.commands().size(), size_t(1));
        QCOMPARE(root.commands().front().get(), &list);
        QCOMPARE(list.footer(), std::string("Example:\n  brix list f"));
        QCOMPARE(list.arguments().size(), size_t(2));
        QCOMPARE(list.work()(Output()), ExitCode::Done);
        list.argument("--count").store({"7"});
        QCOMPARE(list.work()(Output()), ExitCode::Refused);
    }

    void argumentIsFoundByEachOfItsNames()
    {
        Command command("c", "");
        bool flag = false;
        const Argument &added = command.addFlag("-r,--recursive", &flag, "");
        QCOMPARE(&command.argument("-r"), &added);
        QCOMPARE(&command.argument("--recursive"), &added);
        QVERIFY(!added.isNamed("--recursiv"));
        QVERIFY(!added.isPositional());
    }

    void flagStoresTrue()
    {
        Command command("c", "");
        bool flag = false;
        command.addFlag("-f", &flag, "").store({});
        QVERIFY(flag);
    }

    void textIsDecodedFromTheEncodingOfTheLocale()
    {
        Command command("c", "");
        QString text;
        command.addText("TEXT", &text, "").store({u"grün"_s.toLocal8Bit().toStdString()});
        QCOMPARE(text, u"grün"_s);
    }

    void listAppendsEachValue()
    {
        Command command("c", "");
        QStringList texts{u"a"_s};
        command.addList("TEXTS", &texts, "").store({"b", "c"});
        QCOMPARE(texts, QStringList({u"a"_s, u"b"_s, u"c"_s}));
    }

    void pathIsStoredAbsoluteAndNeverEmpty()
    {
        Command command("c", "");
        QString path;
        Argument &argument = command.addPath("FILE", &path, "");
        argument.store({"inks.db"});
        QCOMPARE(path, QDir::current().absoluteFilePath(u"inks.db"_s));
        argument.store({"/srv/inks.db"});
        QCOMPARE(path, u"/srv/inks.db"_s);
        QCOMPARE(argument.problemOf(""), std::string("the path is empty"));
        QCOMPARE(argument.problemOf("a"), std::string());
    }

    void choiceShowsItsDefaultAndRefusesOthers()
    {
        Command command("c", "");
        QString choice = u"lz4"_s;
        Argument &argument = command.addChoice("--algorithm", &choice, {"lz4", "zip"}, "");
        QCOMPARE(argument.defaultText(), std::string("lz4"));
        QCOMPARE(argument.valueName(), std::string("{lz4,zip}"));
        QCOMPARE(argument.problemOf("Zip"), std::string("Zip is not one of lz4, zip"));
        QCOMPARE(argument.problemOf("zip"), std::string());
        argument.store({"zip"});
        QCOMPARE(choice, u"zip"_s);
    }

    void numberIsCheckedAgainstItsRange_data()
    {
        QTest::addColumn<std::string>("text");
        QTest::addColumn<std::string>("problem");
        QTest::newRow("below the lowest")
            << std::string("9") << std::string("9 is smaller than 10");
        QTest::newRow("lowest") << std::string("10") << std::string();
        QTest::newRow("highest") << std::string("20") << std::string();
        QTest::newRow("above the highest")
            << std::string("21") << std::string("21 is larger than 20");
        QTest::newRow("empty") << std::string() << std::string(" is not a whole number");
        QTest::newRow("letters") << std::string("1k") << std::string("1k is not a whole number");
        QTest::newRow("sign") << std::string("+11") << std::string("+11 is not a whole number");
        QTest::newRow("blank") << std::string(" 11") << std::string(" 11 is not a whole number");
        QTest::newRow("fraction") << std::string("1.5") << std::string("1.5 is not a whole number");
        QTest::newRow("beyond 64 bits") << std::string("99999999999999999999")
                                        << std::string("99999999999999999999 is larger than 20");
        QTest::newRow("below 64 bits") << std::string("-99999999999999999999")
                                       << std::string("-99999999999999999999 is smaller than 10");
    }

    void numberIsCheckedAgainstItsRange()
    {
        QFETCH(std::string, text);
        QFETCH(std::string, problem);
        Command command("c", "");
        int number = 12;
        const Argument &argument = command.addNumber("-n", &number, "", 10, 20);
        QCOMPARE(argument.problemOf(text), problem);
    }

    void numberBeyond64BitsIsTheLargest()
    {
        Command command("c", "");
        qint64 number = 0;
        Argument &argument = command.addSize("-n", &number, "");
        QCOMPARE(argument.problemOf("99999999999999999999"), std::string());
        argument.store({"99999999999999999999"});
        QCOMPARE(number, std::numeric_limits<qint64>::max());
    }

    void rangeOfANumberIsTheRangeOfItsType()
    {
        Command command("c", "");
        quint16 port = 0;
        const Argument &argument = command.addNumber("--port", &port, "");
        QCOMPARE(argument.problemOf("65535"), std::string());
        QCOMPARE(argument.problemOf("65536"), std::string("65536 is larger than 65535"));
        QCOMPARE(argument.problemOf("-1"), std::string("-1 is smaller than 0"));
    }

    void helpShowsRangeAndDefaultOfANumber()
    {
        Command command("c", "");
        quint16 port = 7000;
        int count = 0;
        int most = 100;
        std::optional<qint64> last;
        QCOMPARE(command.addNumber("-p", &port, "").valueName(), std::string("NUMBER{0..65535}"));
        QCOMPARE(command.argument("-p").defaultText(), std::string("7000"));
        QCOMPARE(command.addNumber("-c", &count, "").valueName(), std::string("NUMBER"));
        QCOMPARE(command.addNumber("-m", &most, "", 10).valueName(), std::string("NUMBER{10..}"));
        QCOMPARE(command.addSize("-s", &count, "").valueName(), std::string("BYTES"));
        QVERIFY(command.addNumber("-n", &last, "").defaultText().empty());
    }

    void optionalNumberIsSetWhenStored()
    {
        Command command("c", "");
        std::optional<qint64> last;
        command.addNumber("-n", &last, "").store({"0"});
        QCOMPARE(last, std::optional<qint64>(0));
    }

    void furtherStoresRunAfterTheFirst()
    {
        Command command("c", "");
        QString text;
        QString seen;
        command.addText("TEXT", &text, "")
            .addStore([&](const auto &) { seen = text; })
            .store({"a"});
        QCOMPARE(seen, u"a"_s);
    }
};

QTEST_GUILESS_MAIN(tst_Command)
#include "tst_command.moc"
