// SPDX-License-Identifier: MIT
#include <brixlib/database/records/fieldline_p.h>
#include <brixlib/database/records/sdbfield.h>

#include <shared/seededrandom.h>

using namespace Talverine;
using namespace Qt::StringLiterals;

namespace {

//! Of pieces that are taken for something else at one place or another, or at none.
QByteArray randomLine(SeededRandom *random)
{
    static const QList<QByteArray> pieces{"k",
                                          "ke",
                                          "key",
                                          "\xC3\xA9",
                                          "=",
                                          "=",
                                          " = ",
                                          ".",
                                          "#",
                                          "$",
                                          " ",
                                          "\t",
                                          "\r",
                                          "\v",
                                          "1",
                                          "\xC2\xA0",
                                          "\xEF\xBB\xBF",
                                          "\xFF",
                                          "\xE2",
                                          "\xC2\x85",
                                          "\xE2\x80\xA8",
                                          "\\",
                                          "\xED\xA0\x80",
                                          "\x7F",
                                          "\x1C",
                                          "K",
                                          "\x01",
                                          QByteArray(1, '\0')};
    QByteArray line;
    for (qint64 count = random->between(0, 8); count > 0; --count)
        line += pieces.at(random->between(0, pieces.size() - 1));
    return line;
}

//! One that may well name a field so; bytes that are no UTF-8 are read as U+FFFD.
QByteArray randomLineOf(const QString &name, SeededRandom *random)
{
    QByteArray bytes = name.toUtf8();
    if (random->chance(50))
        bytes.replace("\xEF\xBF\xBD", "\xFF");
    const QByteArray before = random->chance(30) ? randomLine(random) : QByteArray();
    const QByteArray after = random->chance(30) ? QByteArray(" = ") : QByteArray();
    return before + bytes + after + randomLine(random);
}

//! The field as SDBField reads it; comments and what has no name stand for nothing.
SDBField expectedOf(const QByteArray &line)
{
    const QString text = QString::fromUtf8(line).trimmed();
    const SDBField field = text.startsWith(u'#') ? SDBField() : SDBField::fromString(text);
    return field.key().isEmpty() ? SDBField() : field;
}

} // namespace

class tst_FieldLine : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void linesAreTakenApart_data()
    {
        QTest::addColumn<QByteArray>("line");
        QTest::addColumn<QString>("name");
        QTest::addColumn<QString>("value");
        const auto row = [](const char *name, const QByteArray &line, const QString &field,
                            const QString &value) {
            QTest::newRow(name) << line << field << value;
        };
        row("a line", "key = value", u"key"_s, u"value"_s);
        row("with its end", "key = value\r\n", u"key"_s, u"value"_s);
        row("indented", " \t key = value", u"key"_s, u"value"_s);
        row("an element of an array", "key.12 = value", u"key"_s, u"value"_s);
        row("an empty value", "key =", u"key"_s, u""_s);
        row("a second equals", "key = a = b", u"key"_s, u"a = b"_s);
        row("a dot in the value", "key = a.b", u"key"_s, u"a.b"_s);
        row("beyond ASCII", "k\xC3\xA9y.0 = \xE2\x82\xAC", u"kéy"_s, u"€"_s);
        row("spaces beyond ASCII", "\xC2\xA0key\xC2\xA0=\xC2\xA0v\xC2\xA0", u"key"_s, u"v"_s);
        row("a byte order mark", "\xEF\xBB\xBFkey = v", u"key"_s, u"v"_s);
        row("no UTF-8", "key = \xFF", u"key"_s, u"\uFFFD"_s);
        row("zero byte", QByteArray("key = a\0b", 9), u"key"_s, QString(QLatin1String("a\0b", 3)));
    }

    void linesAreTakenApart()
    {
        QFETCH(QByteArray, line);
        const std::optional<FieldLine> field = parseFieldLine(line);
        QVERIFY(field);
        QTEST(field->name.toString(), "name");
        QTEST(field->value.toString(), "value");
    }

    void otherLinesAreNoFields_data()
    {
        QTest::addColumn<QByteArray>("line");
        QTest::newRow("empty") << QByteArray();
        QTest::newRow("blanks") << QByteArray(" \t\r\n");
        QTest::newRow("blanks beyond ASCII") << QByteArray("\xC2\xA0\xE2\x80\xA8");
        QTest::newRow("comment") << QByteArray("# key = value");
        QTest::newRow("indented comment") << QByteArray("\t\xC2\xA0# key = value");
        QTest::newRow("no equals") << QByteArray("key value");
        QTest::newRow("no name") << QByteArray(" = value");
        QTest::newRow("no name before the dot") << QByteArray(".0 = value");
        QTest::newRow("equals alone") << QByteArray("=");
    }

    void otherLinesAreNoFields()
    {
        QFETCH(QByteArray, line);
        QVERIFY(!parseFieldLine(line));
    }

    void keysThatBeginWithADollarAreDeleted()
    {
        QVERIFY(parseFieldLine("key =$ab")->isDeletedKey());
        QVERIFY(parseFieldLine("key = \xC2\xA0$\xC3\xA9")->isDeletedKey());
        QVERIFY(!parseFieldLine("key = a$")->isDeletedKey());
        QVERIFY(!parseFieldLine("key = ")->isDeletedKey());
    }

    void viewsHoldInACopy()
    {
        std::optional<FieldLine> field = parseFieldLine("k\xC3\xA9y = v\xC3\xA4lue");
        const FieldLine copy = *field;
        const FieldLine moved = std::move(*field);
        field.reset();
        QCOMPARE(copy.name.toString(), u"kéy"_s);
        QCOMPARE(moved.value.toString(), u"välue"_s);
    }

    // Twice the same rules: for whole files at speed, and for the text of a field.
    void anyLineIsReadAsAFieldIs()
    {
        SeededRandom random;
        int found = 0;
        for (int i = 0; i < 100'000; ++i) {
            const QByteArray line = randomLine(&random);
            const std::optional<FieldLine> field = parseFieldLine(line);
            const SDBField expected = expectedOf(line);
            QVERIFY2(field.has_value() != expected.isNull(), line.toHex().constData());
            if (!field)
                continue;
            ++found;
            QVERIFY2(field->name == expected.key(), line.toHex().constData());
            QVERIFY2(field->value == expected.value().toString(), line.toHex().constData());
        }
        QVERIFY(found > 1000);
    }

    void filterPassesNoFieldOfItsNameOver_data()
    {
        QTest::addColumn<QString>("name");
        QTest::newRow("a name") << u"key"_s;
        QTest::newRow("a letter") << u"k"_s;
        QTest::newRow("beyond ASCII") << u"é"_s;
        QTest::newRow("beyond ASCII later on") << u"ké"_s;
        QTest::newRow("what damaged bytes are read as") << u"\uFFFD"_s;
        QTest::newRow("damaged later on") << u"k\uFFFD"_s;
        QTest::newRow("control character") << u"\u0001"_s;
        QTest::newRow("zero byte") << QString(QLatin1String("\0", 1));
        QTest::newRow("byte order mark") << u"\uFEFFk"_s;
    }

    void filterPassesNoFieldOfItsNameOver()
    {
        QFETCH(QString, name);
        const FieldLineFilter filter(name);
        SeededRandom random;
        int found = 0;
        for (int i = 0; i < 30'000; ++i) {
            const QByteArray line = randomLineOf(name, &random);
            const std::optional<FieldLine> field = parseFieldLine(line);
            if (!field || field->name != name)
                continue;
            ++found;
            QVERIFY2(filter.mayMatch(line), line.toHex().constData());
            for (qsizetype size = 0; size <= line.size(); ++size)
                QVERIFY2(filter.mayMatchBeginning(line.first(size)), line.toHex().constData());
        }
        QVERIFY(found > 10);
    }

    void filterTellsOtherLines()
    {
        const FieldLineFilter filter(u"key"_s);
        for (const auto line : {"", " \t", "ke = 1", "other = key", "# key = 1", " Key = 1"})
            QVERIFY2(!filter.mayMatch(line), line);
        QVERIFY(!filter.mayMatchBeginning("  oth"));
        QVERIFY(filter.mayMatchBeginning("  ot"));
    }
};

QTEST_APPLESS_MAIN(tst_FieldLine)
#include "tst_fieldline.moc"
