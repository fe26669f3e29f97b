// SPDX-License-Identifier: MIT
#include <brixlib/protocol/scommandid.h>

#include <QtCore/QSet>

using namespace Talverine;

class tst_SCommandId : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void defaultIsNull()
    {
        QVERIFY(SCommandId().isNull());
        QVERIFY(SCommandId(0).isNull());
        QCOMPARE(SCommandId().id(), 0u);
    }

    void holdsItsNumber()
    {
        const SCommandId id(0x636D646C);
        QVERIFY(!id.isNull());
        QCOMPARE(id.id(), 0x636D646Cu);
        const SCommandId copy(id);
        QVERIFY(copy == id);
        QVERIFY(copy != SCommandId(0x636D646D));
        SCommandId assigned;
        assigned = id;
        QVERIFY(assigned == id);
    }

    void servesAsAKey()
    {
        QHash<SCommandId, int> versions{{SCommandId(1), 10}, {SCommandId(2), 20}};
        versions.insert(SCommandId(1), 30);
        QCOMPARE(versions.size(), 2);
        QCOMPARE(versions.value(SCommandId(1)), 30);
        QCOMPARE(versions.value(SCommandId(3), -1), -1);
    }

    void recordHasThreeWords()
    {
        QByteArray bytes;
        QDataStream out(&bytes, QIODevice::WriteOnly);
        out << SCommandId(0x61757468);
        QCOMPARE(bytes, QByteArray::fromHex("73636D69 00010000 61757468"));
        SCommandId id;
        QDataStream in(bytes);
        in >> id;
        QCOMPARE(id.id(), 0x61757468u);
        QVERIFY(in.atEnd());
    }

    void middleWordMayBeAnything()
    {
        QDataStream in(QByteArray::fromHex("73636D69 DEADBEEF 61757468"));
        SCommandId id;
        in >> id;
        QCOMPARE(id.id(), 0x61757468u);
    }

    void wrongMagicGivesNullAndGoesOn()
    {
        QDataStream in(QByteArray::fromHex("73636D68 00010000 61757468 00000007"));
        SCommandId id(5);
        quint32 next = 0;
        in >> id >> next;
        QVERIFY(id.isNull());
        QCOMPARE(in.status(), QDataStream::Ok);
        QCOMPARE(next, 7u);
    }

    void truncationGivesNullAndABadStream()
    {
        const QByteArray bytes = QByteArray::fromHex("73636D69 00010000 61757468");
        for (qsizetype size = 0; size < bytes.size(); ++size) {
            QDataStream in(bytes.first(size));
            SCommandId id(5);
            in >> id;
            QVERIFY(id.isNull());
            QCOMPARE(in.status(), QDataStream::ReadPastEnd);
        }
    }

    void typesAreKnownByBothNames()
    {
        const auto single = QMetaType::fromType<SCommandId>();
        QCOMPARE(QMetaType::fromName("SCommandId"), single);
        QCOMPARE(QMetaType::fromName("Talverine::SCommandId"), single);
        const auto list = QMetaType::fromType<QList<SCommandId>>();
        QCOMPARE(QMetaType::fromName("QList<SCommandId>"), list);
        QCOMPARE(QMetaType::fromName("QList<Talverine::SCommandId>"), list);
        const auto hash = QMetaType::fromType<QHash<SCommandId, qint32>>();
        QCOMPARE(QMetaType::fromName("QHash<SCommandId,qint32>"), hash);
        QCOMPARE(QMetaType::fromName("QHash<SCommandId,int>"), hash);
        QCOMPARE(QMetaType::fromName("QHash<Talverine::SCommandId,qint32>"), hash);
        QCOMPARE(QMetaType::fromName("QHash<Talverine::SCommandId,int>"), hash);
    }
};

QTEST_APPLESS_MAIN(tst_SCommandId)
#include "tst_scommandid.moc"
