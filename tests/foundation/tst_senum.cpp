// SPDX-License-Identifier: MIT
#include <brixlib/foundation/senum.h>

#include <atomic>
#include <vector>

using namespace Talverine;
using namespace Qt::StringLiterals;

namespace Sample {

// clang-format off
S_ENUM(Fruit, Apple, Pear = 5, Plum, Peach = -3)

S_ENUM(Colour,
    Red = 1,
    Crimson = 1, // an alias: Red stands first
    Green = 2,
    Scarlet = 1
)

S_ENUM_T(Wide,
(
    Small = 1,
    Huge = 0x100000000
), qint64)

S_ENUM_T(Answer,
(
    No = false,
    Yes = true
), bool)

S_ENUM_FLAGS(Access,
    Read = 1,
    Write = 2,
    ReadWrite = 3,
    Run = 4
)

S_ENUM_FLAGS(Mark,
    None = 0,
    High = 8,
    Low = 1,
    Deep = 8
)

S_ENUM_FLAGS_T(Word,
(
    Top = 0x80000000,
    Bottom = 1
), quint32)

S_ENUM_FLAGS_T(Long,
(
    First = 1,
    Last = 0x8000000000000000
), quint64)

S_ENUM(Extended,
    One = 1
)

S_ENUM(Many,
    K00, K01, K02, K03, K04, K05, K06, K07, K08, K09, K0A, K0B, K0C, K0D, K0E, K0F,
    K10, K11, K12, K13, K14, K15, K16, K17, K18, K19, K1A, K1B, K1C, K1D, K1E, K1F,
    K20, K21, K22, K23, K24, K25, K26, K27, K28, K29, K2A, K2B, K2C, K2D, K2E, K2F,
    K30, K31, K32, K33, K34, K35, K36, K37, K38, K39, K3A, K3B, K3C, K3D, K3E, K3F,
    K40, K41, K42, K43, K44, K45, K46, K47, K48, K49, K4A, K4B, K4C, K4D, K4E, K4F,
    K50, K51, K52, K53, K54, K55, K56, K57, K58, K59, K5A, K5B, K5C, K5D, K5E, K5F,
    K60, K61, K62, K63, K64, K65, K66, K67, K68, K69, K6A, K6B, K6C, K6D, K6E, K6F,
    K70, K71, K72, K73, K74, K75, K76, K77, K78, K79, K7A, K7B, K7C, K7D, K7E, K7F,
    K80, K81, K82, K83, K84, K85, K86, K87, K88, K89, K8A, K8B, K8C, K8D, K8E, K8F,
    K90, K91, K92, K93, K94, K95, K96, K97, K98, K99, K9A, K9B, K9C, K9D, K9E, K9F,
    KA0, KA1, KA2, KA3, KA4, KA5, KA6, KA7, KA8, KA9, KAA, KAB, KAC, KAD, KAE, KAF,
    KB0, KB1, KB2, KB3, KB4, KB5, KB6, KB7, KB8, KB9, KBA, KBB, KBC, KBD, KBE, KBF,
    KC0, KC1, KC2, KC3, KC4, KC5, KC6, KC7, KC8, KC9, KCA, KCB, KCC, KCD, KCE, KCF,
    KD0, KD1, KD2, KD3, KD4, KD5, KD6, KD7, KD8, KD9, KDA, KDB, KDC, KDD, KDE, KDF,
    KE0, KE1, KE2, KE3, KE4, KE5, KE6, KE7, KE8, KE9, KEA, KEB, KEC, KED, KEE, KEF,
    KF0, KF1, KF2, KF3, KF4, KF5, KF6, KF7, KF8, KF9, KFA, KFB, KFC, KFD, KFE, KFF
)

S_ENUM(Late,
    One = 1
)

S_ENUM_TRANSLATION(Late)
// clang-format on

} // namespace Sample

using namespace Sample;

namespace {

//! Adds one pair, and counts the tables it was handed.
class Loader final : public ISEnumRuntimeLoader
{
public:
    bool translate(const QString &, QString *, QString *) override { return false; }
    void load(ISEnum *table) override
    {
        ++tables;
        table->insert(2, u"Two"_s);
    }

    int tables = 0;
};

} // namespace

class tst_SEnum : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void valuesAreThoseOfAPlainEnumeration()
    {
        QCOMPARE(int(Fruit::Apple), 0);
        QCOMPARE(int(Fruit::Pear), 5);
        QCOMPARE(int(Fruit::Plum), 6);
        QCOMPARE(int(Fruit::Peach), -3);
        QCOMPARE(Fruit_T::instance().values(), QList<int>({0, 5, 6, -3}));
    }

    void enumerationIsAsWideAsItsType()
    {
        QCOMPARE(sizeof(Fruit), sizeof(int));
        QCOMPARE(sizeof(Answer), sizeof(bool));
        QCOMPARE(sizeof(Wide), sizeof(qint64));
        QCOMPARE(sizeof(Word), sizeof(quint32));
        QCOMPARE(sizeof(Long), sizeof(quint64));
    }

    void tableKnowsItsName()
    {
        const ISEnum &table = Fruit_T::instance();
        QCOMPARE(table.name(), u"Fruit"_s);
    }

    void onlyFlagTypesAreFlags()
    {
        QVERIFY(!static_cast<const ISEnum &>(Fruit_T::instance()).isFlags());
        QVERIFY(static_cast<const ISEnum &>(Access_T::instance()).isFlags());
    }

    void valueGivesItsName()
    {
        const auto &table = Fruit_T::instance();
        QCOMPARE(table.toString(Fruit::Apple), u"Apple"_s);
        QCOMPARE(table.toString(Fruit::Plum), u"Plum"_s);
        QCOMPARE(table.toString(-3), u"Peach"_s);
    }

    void unknownValueIsTheNumberAsTheLocaleWritesIt()
    {
        const QLocale german(QLocale::German, QLocale::Germany);
        QCOMPARE(Fruit_T::instance().toString(9, QLocale::c()), u"9"_s);
        QCOMPARE(Fruit_T::instance().toString(1234567, german), u"1.234.567"_s);
        QCOMPARE(Fruit_T::instance().toString(-9, QLocale::c()), u"-9"_s);
        QCOMPARE(Wide_T::instance().toString(0x200000000, QLocale(QLocale::C)), u"8589934592"_s);
    }

    void valueThatTheTypeCannotHoldIsTheNumber_data()
    {
        QTest::addColumn<const ISEnum *>("table");
        QTest::addColumn<qint64>("value");
        QTest::addColumn<QString>("text");
        const ISEnum *plain = &Fruit_T::instance();
        const ISEnum *flags = &Access_T::instance();
        const ISEnum *words = &Word_T::instance();
        const ISEnum *truth = &Answer_T::instance();
        QTest::newRow("declared in its low half")
            << plain << qint64(0x100000005) << u"4294967301"_s;
        QTest::newRow("below the type") << plain << qint64(-0x100000003) << u"-4294967299"_s;
        QTest::newRow("flags in its low half") << flags << qint64(0x100000005) << u"4294967301"_s;
        QTest::newRow("negative for an unsigned type")
            << words << qint64(-0x7fffffff) << u"-2147483647"_s;
        QTest::newRow("neither true nor false") << truth << qint64(2) << u"2"_s;
    }

    void valueThatTheTypeCannotHoldIsTheNumber()
    {
        QFETCH(const ISEnum *, table);
        QFETCH(qint64, value);
        QFETCH(QString, text);
        QCOMPARE(table->toString(value, QLocale::c()), text);
    }

    void valueThatTheTypeCannotHoldIsNotInserted()
    {
        Fruit_T table;
        table.insert(0x100000005, u"Melon"_s);
        QCOMPARE(table.values(), QList<int>({0, 5, 6, -3}));
        bool ok = true;
        table.fromString(u"Melon"_s, Fruit::Apple, Qt::CaseInsensitive, &ok);
        QVERIFY(!ok);
    }

    void firstNameIsCanonical()
    {
        const auto &table = Colour_T::instance();
        QCOMPARE(table.toString(Colour::Scarlet), u"Red"_s);
        QCOMPARE(table.names(Colour::Red), QList<QString>({u"Scarlet"_s, u"Crimson"_s, u"Red"_s}));
        QCOMPARE(table.values(), QList<int>({1, 1, 2, 1}));
    }

    void everyNameOfAValueIsRead()
    {
        const auto &table = Colour_T::instance();
        for (const QString &name : {u"Red"_s, u"Crimson"_s, u"Scarlet"_s})
            QCOMPARE(table.fromString(name, Colour::Green), Colour::Red);
    }

    void textIsTrimmedAndComparedAsAsked()
    {
        const auto &table = Fruit_T::instance();
        bool ok = false;
        QCOMPARE(table.fromString(u"\t pEAR \n"_s, Fruit::Apple, Qt::CaseInsensitive, &ok),
                 Fruit::Pear);
        QVERIFY(ok);
        QCOMPARE(table.fromString(u" pEAR "_s, Fruit::Apple, Qt::CaseSensitive, &ok), Fruit::Apple);
        QVERIFY(!ok);
        QCOMPARE(table.fromString(u" Pear "_s, Fruit::Apple, Qt::CaseSensitive, &ok), Fruit::Pear);
        QVERIFY(ok);
    }

    void unknownTextGivesTheDefault_data()
    {
        QTest::addColumn<QString>("text");
        QTest::newRow("empty") << QString();
        QTest::newRow("blank") << u"  "_s;
        QTest::newRow("unknown") << u"Melon"_s;
        QTest::newRow("part of a name") << u"Pea"_s;
        QTest::newRow("more than a name") << u"Pears"_s;
        QTest::newRow("a number") << u"5"_s;
        QTest::newRow("a list") << u"Pear, Plum"_s;
    }

    void unknownTextGivesTheDefault()
    {
        QFETCH(QString, text);
        bool ok = true;
        QCOMPARE(Fruit_T::instance().fromString(text, Fruit::Plum, Qt::CaseInsensitive, &ok),
                 Fruit::Plum);
        QVERIFY(!ok);
        QCOMPARE(Fruit_T::instance().fromString(text, Fruit::Plum), Fruit::Plum);
        QCOMPARE(Fruit_T::instance().fromString(text, 1000), 1000);
    }

    void truthValues()
    {
        const auto &table = Answer_T::instance();
        QCOMPARE(table.toString(Answer::Yes), u"Yes"_s);
        QCOMPARE(table.toString(false), u"No"_s);
        QCOMPARE(table.fromString(u"yes"_s, Answer::No), Answer::Yes);
    }

    void tableHoldsAsManyKeysAsTheMacroAllows()
    {
        const auto &table = Many_T::instance();
        QCOMPARE(table.values().size(), 256);
        QCOMPARE(table.toString(Many::K00), u"K00"_s);
        QCOMPARE(table.toString(255), u"KFF"_s);
        QCOMPARE(table.fromString(u"k80"_s, Many::K00), Many::K80);
    }

    void pairIsInsertedOnce()
    {
        Fruit_T table;
        table.insert(5, u"Pear"_s);
        QCOMPARE(table.values(), QList<int>({0, 5, 6, -3}));
        table.insert(5, u"Birne"_s);
        QCOMPARE(table.values(), QList<int>({0, 5, 6, -3, 5}));
        QCOMPARE(table.toString(Fruit::Pear), u"Pear"_s);
        QCOMPARE(table.fromString(u"Birne"_s, Fruit::Apple), Fruit::Pear);
    }

    void flagsText_data()
    {
        QTest::addColumn<int>("value");
        QTest::addColumn<QString>("text");
        QTest::newRow("one") << 4 << u"Run"_s;
        QTest::newRow("named combination") << 3 << u"ReadWrite"_s;
        QTest::newRow("every fitting name, in order of declaration")
            << 7 << u"Read, Write, ReadWrite, Run"_s;
        QTest::newRow("two") << 5 << u"Read, Run"_s;
        QTest::newRow("nothing") << 0 << u""_s;
        QTest::newRow("undeclared bit") << 9 << u"9"_s;
        QTest::newRow("all bits") << -1 << u"-1"_s;
    }

    void flagsText()
    {
        QFETCH(int, value);
        QFETCH(QString, text);
        QCOMPARE(Access_T::instance().toString(value, QLocale::c()), text);
    }

    void flagsTextFollowsTheDeclaration()
    {
        const auto &table = Mark_T::instance();
        QCOMPARE(table.toString(Mark::High | Mark::Low), u"High, Low"_s);
        QCOMPARE(table.toString(Mark::None), u"None"_s);
    }

    void numberOfFlagsGoesThroughTheLocale()
    {
        const QLocale german(QLocale::German, QLocale::Germany);
        QCOMPARE(Access_T::instance().toString(4096 | 1, german), u"4.097"_s);
    }

    void unsignedFlagsKeepTheirHighestBit()
    {
        const QLocale plain(QLocale::C);
        QCOMPARE(Word_T::instance().toString(Word::Top | Word::Bottom), u"Top, Bottom"_s);
        QCOMPARE(Word_T::instance().toString(0x80000002, plain), u"2147483650"_s);
        QCOMPARE(Long_T::instance().toString(Long::First | Long::Last), u"First, Last"_s);
        QCOMPARE(Long_T::instance().fromString(u"Last,First"_s, Long::First),
                 Long::First | Long::Last);
        QCOMPARE(quint64(Long_T::instance().fromString(u"Last"_s, 0)), 0x8000000000000000u);
    }

    void flagsAreReadPartByPart_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<int>("value");
        QTest::addColumn<bool>("known");
        QTest::newRow("one") << u"Run"_s << 4 << true;
        QTest::newRow("blanks") << u"  Read ,Run  "_s << 5 << true;
        QTest::newRow("combination") << u"ReadWrite, Run"_s << 7 << true;
        QTest::newRow("twice") << u"Run, Run"_s << 4 << true;
        QTest::newRow("another case") << u"read, RUN"_s << 5 << true;
        QTest::newRow("unknown part stands for the default") << u"Read, Walk"_s << 65 << false;
        QTest::newRow("unknown part first") << u"Walk, Read"_s << 65 << false;
        QTest::newRow("unknown") << u"Walk"_s << 64 << false;
        QTest::newRow("empty") << u""_s << 64 << false;
        QTest::newRow("empty part") << u"Read,"_s << 65 << false;
    }

    void flagsAreReadPartByPart()
    {
        QFETCH(QString, text);
        QFETCH(int, value);
        QFETCH(bool, known);
        bool ok = !known;
        const qint64 result = Access_T::instance().fromString(text, 64, Qt::CaseInsensitive, &ok);
        QCOMPARE(result, value);
        QCOMPARE(ok, known);
        QCOMPARE(Access_T::instance().fromString(text, 64), value);
    }

    void flagsHaveBitOperators()
    {
        QCOMPARE(Access::Read | Access::Write, Access::ReadWrite);
        QCOMPARE(Access::ReadWrite & Access::Write, Access::Write);
        QCOMPARE(Access::ReadWrite & ~Access::Write, Access::Read);
        Access access = Access::Read;
        access |= Access::Run;
        QVERIFY(hasFlag(access, Access::Run));
        QVERIFY(!hasFlag(access, Access::ReadWrite));
        access &= Access::Run;
        QCOMPARE(access, Access::Run);
    }

    void loaderThatWasThereExtendsTheTable()
    {
        auto *loader = new Loader;
        SEnumRuntimeLoader::loaderRegister(u"Extended"_s, loader);
        QCOMPARE(loader->tables, 0);
        const Extended_T table;
        QCOMPARE(loader->tables, 1);
        QCOMPARE(table.toString(2), u"Two"_s);
        QCOMPARE(int(table.fromString(u"Two"_s, Extended::One)), 2);
        QCOMPARE(Extended_T::instance().toString(2), u"Two"_s);
    }

    void loaderThatComesLaterExtendsTheTableToo()
    {
        const Late_T &table = Late_T::instance();
        QCOMPARE(table.toString(2, QLocale::c()), u"2"_s);
        SEnumRuntimeLoader::loaderRegister(u"Late"_s, new Loader);
        QCOMPARE(table.toString(2), u"Two"_s);
    }

    void tableIsBuiltOnceHoweverManyThreadsAsk()
    {
        std::vector<std::unique_ptr<QThread>> threads;
        std::atomic<const Colour_T *> seen[4] = {};
        for (auto &mine : seen) {
            threads.emplace_back(QThread::create([&mine] { mine = &Colour_T::instance(); }));
            threads.back()->start();
        }
        for (const auto &thread : threads)
            QVERIFY(thread->wait());
        for (const auto &mine : seen)
            QCOMPARE(mine.load(), &Colour_T::instance());
    }
};

QTEST_APPLESS_MAIN(tst_SEnum)
#include "tst_senum.moc"
