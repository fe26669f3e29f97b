// SPDX-License-Identifier: MIT
// The index of keys against a plain map.
#include <brixlib/database/index/keyindex_p.h>

#include <shared/seededrandom.h>

#include <QtCore/QMap>

using namespace Talverine;
using namespace Qt::StringLiterals;

namespace {

using Map = QMap<QString, qint64>;

Map mapOf(const KeyIndex &index)
{
    Map map;
    QString last;
    index.forEach([&](const KeyIndex::Entry &entry) {
        if (!(last < entry.key))
            qFatal("not in order");
        last = entry.key;
        map.insert(entry.key, entry.position);
        return true;
    });
    if (map.size() != index.count())
        qFatal("counted wrong");
    return map;
}

//! A key of a few characters of few kinds, so that many are alike.
QString keyOf(SeededRandom *random, bool isLatin1)
{
    const QString units = isLatin1 ? u"ab\u00FF"_s : u"ab\u00FF\u0100\uFFFF"_s;
    QString key = u"common prefix"_s;
    for (qint64 count = random->between(0, 12); count > 0; --count)
        key += units.at(random->between(0, units.size() - 1));
    return key;
}

} // namespace

class tst_KeyIndex : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void freshOneIsEmpty()
    {
        const KeyIndex index;
        QVERIFY(index.isEmpty());
        QVERIFY(index.first().isNull());
        QVERIFY(index.last().isNull());
        QVERIFY(index.above(u"a"_s).isNull());
        QVERIFY(index.below(u"a"_s).isNull());
        QVERIFY(index.at(0).isNull());
        QVERIFY(!index.position(u"a"_s));
    }

    void firstPositionStands()
    {
        KeyIndex index;
        QVERIFY(index.add(u"a"_s, 1));
        QVERIFY(!index.add(u"a"_s, 2));
        QCOMPARE(*index.position(u"a"_s), 1);
        KeyIndex loaded;
        loaded.load(u"b"_s, 1);
        loaded.load(u"a"_s, 2);
        loaded.load(u"b"_s, 3);
        loaded.load(u"a"_s, 4);
        loaded.finishLoading();
        QCOMPARE(mapOf(loaded), (Map{{u"a"_s, 2}, {u"b"_s, 1}}));
    }

    void emptyKeyIsNone()
    {
        KeyIndex index;
        QVERIFY(!index.add(u""_s, 1));
        index.load(QString(), 1);
        index.finishLoading();
        QVERIFY(index.isEmpty());
    }

    void changesAsAMapDoes()
    {
        SeededRandom random;
        KeyIndex index;
        Map map;
        for (int i = 0; i < 20'000; ++i) {
            const QString key = keyOf(&random, false);
            if (random.chance(60)) {
                QCOMPARE(index.add(key, i), !map.contains(key));
                if (!map.contains(key))
                    map.insert(key, i);
            } else {
                QCOMPARE(index.remove(key), map.remove(key) > 0);
            }
            if (i % 4000 == 0)
                QCOMPARE(mapOf(index), map);
        }
        for (const QString &key : map.keys())
            QVERIFY(index.remove(key));
        QVERIFY(index.isEmpty());
        QVERIFY(index.first().isNull());
    }

    void neighboursAreThoseOfAMap()
    {
        SeededRandom random;
        KeyIndex index;
        Map map;
        for (int i = 0; i < 3000; ++i) {
            const QString key = keyOf(&random, true);
            index.add(key, i);
            map.insert(key, i);
        }
        for (int i = 0; i < 3000; ++i) {
            const QString key = keyOf(&random, true);
            const auto above = map.upperBound(key);
            QCOMPARE(index.above(key), above == map.end() ? QString() : above.key());
            const auto below = map.lowerBound(key);
            QCOMPARE(index.below(key), below == map.begin() ? QString() : std::prev(below).key());
            QCOMPARE(index.contains(key), map.contains(key));
        }
        QCOMPARE(index.first(), map.firstKey());
        QCOMPARE(index.last(), map.lastKey());
        const QList<QString> keys = map.keys();
        for (const qsizetype at : {qsizetype(0), qsizetype(256), qsizetype(257), keys.size() - 1})
            QCOMPARE(index.at(at), keys.at(at));
        QVERIFY(index.at(keys.size()).isNull());
        QVERIFY(index.at(-1).isNull());
    }

    void loadedKeysComeInOrder_data()
    {
        QTest::addColumn<bool>("isLatin1");
        QTest::addColumn<bool>("isSorted");
        QTest::newRow("Latin-1 in any order") << true << false;
        QTest::newRow("other characters in any order") << false << false;
        QTest::newRow("sorted already") << true << true;
    }

    void loadedKeysComeInOrder()
    {
        QFETCH(bool, isLatin1);
        QFETCH(bool, isSorted);
        SeededRandom random;
        QStringList keys;
        for (int i = 0; i < 20'000; ++i)
            keys.append(keyOf(&random, isLatin1));
        if (isSorted)
            keys.sort();
        KeyIndex index;
        Map map;
        for (int i = 0; i < keys.size(); ++i) {
            index.load(keys.at(i), i);
            if (!map.contains(keys.at(i)))
                map.insert(keys.at(i), i);
        }
        index.finishLoading();
        QCOMPARE(mapOf(index), map);
        QVERIFY(index.add(u"another"_s, 5));
        QVERIFY(index.remove(keys.first()));
    }
};

QTEST_APPLESS_MAIN(tst_KeyIndex)
#include "tst_keyindex.moc"
