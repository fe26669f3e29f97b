// SPDX-License-Identifier: MIT
#include "sampledatabase.h"

#include <QtCore/QBuffer>

using namespace Talverine;
using namespace Talverine::Sample;
using namespace Qt::StringLiterals;

namespace {

template<typename Iterator>
QString nameAt(const Iterator &iterator)
{
    return iterator->value(u"name"_s).toString();
}

} // namespace

class tst_SDBIterator : public QObject
{
    Q_OBJECT

private:
    QBuffer m_device;
    SDBText m_database;

private Q_SLOTS:
    void init()
    {
        m_database.close();
        m_device.setData({});
        QVERIFY(create(m_database, &m_device));
        QVERIFY(insertAll(m_database, {u"b"_s, u"d"_s, u"a"_s, u"c"_s}));
    }

    void cleanup() { m_database.close(); }

    void walksInTheOrderOfKeys()
    {
        QString names;
        for (SDBIterator it = m_database.begin(); it != m_database.end(); ++it)
            names += nameAt(it);
        QCOMPARE(names, u"abcd"_s);
    }

    void walksBackwards()
    {
        QString names;
        for (SDBReverseIterator it = m_database.rbegin(); it != m_database.rend(); it++)
            names += nameAt(it);
        QCOMPARE(names, u"dcba"_s);
    }

    void emptyDatabaseBeginsAtItsEnd()
    {
        QVERIFY(m_database.clear());
        QVERIFY(m_database.begin() == m_database.end());
        QVERIFY(m_database.rbegin() == m_database.rend());
        QVERIFY(m_database.begin()->isEmpty());
    }

    void minusAtTheEndIsTheLastRecord()
    {
        SDBIterator it = m_database.end();
        QVERIFY(it->isEmpty());
        --it;
        QCOMPARE(nameAt(it), u"d"_s);
    }

    void plusAtTheEndIsTheFirstRecord()
    {
        SDBIterator it = m_database.end();
        ++it;
        QCOMPARE(nameAt(it), u"a"_s);
        SDBReverseIterator back = m_database.rend();
        ++back;
        QCOMPARE(nameAt(back), u"d"_s);
    }

    void stepsOfMoreThanOne()
    {
        const SDBIterator begin = m_database.begin();
        QCOMPARE(nameAt(begin + 2), u"c"_s);
        QCOMPARE(nameAt(begin + 2 - 1), u"b"_s);
        QCOMPARE(nameAt(begin + 0), u"a"_s);
        QCOMPARE(nameAt(begin + -3), u"a"_s);
        QCOMPARE(nameAt(begin - -3), u"a"_s);
        QVERIFY((begin + 4) == m_database.end());
        SDBReverseIterator back = m_database.rbegin();
        back += 3;
        QCOMPARE(nameAt(back), u"a"_s);
        back -= 2;
        QCOMPARE(nameAt(back), u"c"_s);
        QCOMPARE(nameAt(back + 1), u"b"_s);
        QCOMPARE(nameAt(back - 1), u"d"_s);
    }

    void postfixGivesWhereItWas()
    {
        SDBIterator it = m_database.begin();
        QCOMPARE(nameAt(it++), u"a"_s);
        QCOMPARE(nameAt(it--), u"b"_s);
        QCOMPARE(nameAt(it), u"a"_s);
        SDBReverseIterator back = m_database.rbegin();
        QCOMPARE(nameAt(back++), u"d"_s);
        QCOMPARE(nameAt(back--), u"c"_s);
        QCOMPARE(nameAt(back), u"d"_s);
    }

    void removedRecordIsLeftForAnEnd()
    {
        SDBIterator forward = m_database.find(1);
        SDBIterator backward = forward;
        QCOMPARE(nameAt(forward), u"b"_s);
        QVERIFY(m_database.remove(u"b"_s));
        ++forward;
        QVERIFY(forward == m_database.end());
        --backward;
        QCOMPARE(nameAt(backward), u"d"_s);
    }

    void walkEndsWithTheRightToRead()
    {
        QBuffer device;
        SDBText database;
        QVERIFY(create(database, &device, DBAuthGrants::None));
        QVERIFY(insertAll(database, {u"a"_s, u"b"_s, u"c"_s}));
        SDBIterator forward = database.begin();
        SDBReverseIterator backward = database.rbegin();
        QVERIFY(!database.authenticate(u"eve"_s, u"apple"_s));
        ++forward;
        QVERIFY(forward == database.end());
        ++backward;
        QVERIFY(backward == database.rend());
    }

    void findCountsInTheOrderOfKeys()
    {
        QCOMPARE(nameAt(m_database.find(0)), u"a"_s);
        QCOMPARE(nameAt(m_database.find(3)), u"d"_s);
        QVERIFY(m_database.find(4)->isEmpty());
        QVERIFY(m_database.find(-1)->isEmpty());
    }

    void equalOnEqualRecordsOfOneDatabase()
    {
        QVERIFY(m_database.begin() == m_database.find(0));
        QVERIFY(m_database.begin() != m_database.find(1));
        SDBText copy(m_database);
        QVERIFY(m_database.begin() != copy.begin());
        QCOMPARE(*m_database.begin(), *copy.begin());
        const SDBIterator assigned = m_database.begin();
        QVERIFY(assigned == assigned);
    }

    void withoutDatabaseItStays()
    {
        SDBIterator it;
        ++it;
        --it;
        it += 5;
        QVERIFY(it->isEmpty());
        QVERIFY(it == SDBIterator());
    }
};

QTEST_GUILESS_MAIN(tst_SDBIterator)
#include "tst_sdbiterator.moc"
