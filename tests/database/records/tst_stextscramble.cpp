// SPDX-License-Identifier: MIT
#include <brixlib/database/records/stextscramble.h>

#include <shared/seededrandom.h>

#include <QtCore/QList>

#include <algorithm>
#include <limits>

using namespace Talverine;
using namespace Qt::StringLiterals;

namespace {

//! The positions by looking at each one in turn, as the order is defined.
QString slowlyScrambled(const QString &text, const QString &seed)
{
    const qsizetype count = text.size();
    QList<bool> used(count, false);
    QString result(count, u'\0');
    for (qsizetype i = 0; i < count; ++i) {
        qsizetype place = seed.at(i % seed.size()).unicode() % count;
        while (used.at(place))
            place = (place + 1) % count;
        used[place] = true;
        result[place] = text.at(i);
    }
    return result;
}

QString sorted(QString text)
{
    std::sort(text.begin(), text.end());
    return text;
}

QString randomText(SeededRandom &random, qint64 length, int lastCharacter)
{
    QString text;
    for (; length > 0; --length)
        text += QChar(static_cast<char16_t>(random.between(0, lastCharacter)));
    return text;
}

STextScramble withSeed(const QString &seed)
{
    STextScramble scramble;
    scramble.setSeed(seed);
    return scramble;
}

} // namespace

class tst_STextScramble : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void emptyTextStaysEmpty()
    {
        const STextScramble scramble;
        QCOMPARE(scramble.scramble(QString(), 0), QString());
        QCOMPARE(scramble.scramble(u""_s, 5), u""_s);
        QCOMPARE(scramble.unScramble(QString(), 0), QString());
        QCOMPARE(scramble.unScramble(u""_s, 5), u""_s);
    }

    void placesFollowTheSeed()
    {
        // Of 5 places "b" means 98 % 5 = 3; then 4, 0, 1 and 2 are the next free ones.
        QCOMPARE(withSeed(u"b"_s).scramble(u"ABCDE"_s, 0), u"CDEAB"_s);
        // "ab" means 97 % 4 = 1 and 98 % 4 = 2 in turn: 1, 2, 3 (1 and 2 are taken), 0.
        QCOMPARE(withSeed(u"ab"_s).scramble(u"ABCD"_s, 0), u"DABC"_s);
        QCOMPARE(withSeed(u"ab"_s).unScramble(u"DABC"_s, 0), u"ABCD"_s);
    }

    void oneCharacterStays()
    {
        QCOMPARE(STextScramble().scramble(u"x"_s, 0), u"x"_s);
        QCOMPARE(STextScramble().unScramble(u"x"_s, 0), u"x"_s);
    }

    void scrambledTextComesBack_data()
    {
        QTest::addColumn<QString>("seed");
        QTest::newRow("default seed") << QString();
        QTest::newRow("one character") << u"x"_s;
        QTest::newRow("two") << u"ab"_s;
        QTest::newRow("beyond Latin") << u"\u4E2D\u0000\uFFFF"_s;
        QTest::newRow("longer than the text") << QString(500, u'q');
    }

    void scrambledTextComesBack()
    {
        QFETCH(QString, seed);
        const STextScramble scramble = withSeed(seed);
        SeededRandom random;
        for (int i = 0; i < 1000; ++i) {
            const QString text = randomText(random, random.between(1, 60), 0xFFFF);
            const int count = static_cast<int>(random.between(0, 40));
            const QString scrambled = scramble.scramble(text, count);
            QCOMPARE(scrambled.size(), text.size() + count);
            QCOMPARE(scramble.unScramble(scrambled, count), text);
        }
    }

    void withoutRandomCharactersItIsAPermutation()
    {
        SeededRandom random;
        const STextScramble scramble;
        for (int i = 0; i < 500; ++i) {
            const QString text = randomText(random, random.between(1, 100), 0xFFFF);
            QCOMPARE(sorted(scramble.scramble(text, 0)), sorted(text));
        }
    }

    void negativeCountsMeanNone()
    {
        const STextScramble scramble;
        for (const int count : {-1, std::numeric_limits<int>::min()}) {
            QCOMPARE(scramble.scramble(u"some text"_s, count),
                     scramble.scramble(u"some text"_s, 0));
            QCOMPARE(scramble.unScramble(scramble.scramble(u"some text"_s, 0), count),
                     u"some text"_s);
        }
    }

    void oneCharacterIsAlwaysKept()
    {
        const STextScramble scramble = withSeed(u"ab"_s);
        QCOMPARE(scramble.unScramble(u"DABC"_s, 3), u"A"_s);
        QCOMPARE(scramble.unScramble(u"DABC"_s, 4), u"A"_s);
        QCOMPARE(scramble.unScramble(u"DABC"_s, 5), u"A"_s);
        QCOMPARE(scramble.unScramble(u"DABC"_s, std::numeric_limits<int>::max()), u"A"_s);
    }

    void placesAreThoseOfALinearSearch()
    {
        SeededRandom random;
        for (int i = 0; i < 1000; ++i) {
            const QString text = randomText(random, random.between(1, 200), 0xFFFF);
            const QString seed = randomText(random, random.between(1, 20), i % 2 ? 0x7F : 0xFFFF);
            QCOMPARE(withSeed(seed).scramble(text, 0), slowlyScrambled(text, seed));
        }
    }

    // A linear search would take hours.
    void longTextsAreScrambled()
    {
        SeededRandom random;
        const QString text = randomText(random, 1'000'000, 0x7F);
        for (const QString &seed : {QString(), u"x"_s, u"az"_s}) {
            const STextScramble scramble = withSeed(seed);
            QCOMPARE(scramble.unScramble(scramble.scramble(text, 1000), 1000), text);
        }
    }

    // Files of one installation are scrambled alike by all its programs, now and later.
    void defaultSeedIsFixed()
    {
        QCOMPARE(STextScramble().scramble(u"0123456789abcdefghij"_s, 0), u"3c7e9g2fj54hi0d168ab"_s);
        QCOMPARE(STextScramble().scramble(u"printer-07"_s, 0), u"nt-p7rir0e"_s);
    }

    void emptySeedMeansTheDefaultOne()
    {
        STextScramble scramble = withSeed(u"x"_s);
        scramble.setSeed(u""_s);
        QCOMPARE(scramble.scramble(u"0123456789"_s, 0),
                 STextScramble().scramble(u"0123456789"_s, 0));
    }

    void anotherSeedGivesAnotherOrder()
    {
        QVERIFY(withSeed(u"ab"_s).scramble(u"0123456789"_s, 0) !=
                withSeed(u"ba"_s).scramble(u"0123456789"_s, 0));
    }

    void copiesHaveTheSameSeed()
    {
        const STextScramble scramble = withSeed(u"hello"_s);
        const STextScramble copy = scramble;
        QCOMPARE(copy.scramble(u"0123456789"_s, 0), scramble.scramble(u"0123456789"_s, 0));
    }

    void randomCharactersAreOfTheAlphabet()
    {
        const STextScramble scramble;
        QString all;
        for (int i = 0; i < 20; ++i)
            all += scramble.scramble(u"_"_s, 200).remove(u'_');
        QCOMPARE(all.size(), 4000);
        QString distinct = sorted(all);
        distinct.erase(std::unique(distinct.begin(), distinct.end()), distinct.end());
        QCOMPARE(distinct, u"0123456789abcdefghijklmnopqrstuvwxyz"_s);
    }

    void randomCharactersDifferEachTime()
    {
        const STextScramble scramble;
        QVERIFY(scramble.scramble(u"a"_s, 40) != scramble.scramble(u"a"_s, 40));
    }
};

QTEST_APPLESS_MAIN(tst_STextScramble)
#include "tst_stextscramble.moc"
