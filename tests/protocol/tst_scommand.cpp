// SPDX-License-Identifier: MIT
#include <brixlib/foundation/sdatastream.h>
#include <brixlib/protocol/commands/scommandservername.h>
#include <brixlib/protocol/commands/scommandwhoami.h>
#include <brixlib/protocol/sconcretecommand.h>

using namespace Talverine;
using namespace Qt::StringLiterals;

namespace {

// A command of an application: its fields, and the stream version that it was written at.
class Greet : public SConcreteCommand<Greet>
{
public:
    Greet()
        : SConcreteCommand(Wire::word("gret"), Wire::version(1, 1, 0))
    {
    }

    bool operator==(const Greet &) const = default;

    QString name;
    qint32 writtenAt = 0;

private:
    friend SConcreteCommand;
    void readFields(QDataStream &stream) { stream >> name >> writtenAt; }
    void writeFields(QDataStream &stream) const { stream << name << qint32(stream.version()); }
};

// One that has nothing but the bare interfaces to build on.
class Plain : public SCommand
{
public:
    ICloneable *clone() const override { return new Plain(*this); }
    bool equalsTo(const IEquatable *other) const override { return isSameType(other); }
    bool deserialize(QDataStream &) override { return result; }
    bool serialize(QDataStream &) const override { return result; }
    using SCommand::setId;

    bool result = false;
};

} // namespace

class tst_SCommand : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void startsNullAtTheFirstVersion()
    {
        const Plain command;
        QVERIFY(command.isNull());
        QVERIFY(command.id().isNull());
        QCOMPARE(command.version(), 0x00010000);
    }

    void basesStandInTheirOrder()
    {
        const SCommandServerName command;
        const SCommand &base = command;
        const auto at = [](const auto *part) { return reinterpret_cast<quintptr>(part); };
        const auto cloneable = at(static_cast<const Interfaces::ICloneable *>(&base));
        const auto equatable = at(static_cast<const Interfaces::IEquatable *>(&base));
        const auto serializable = at(static_cast<const Interfaces::ISerializable *>(&base));
        QCOMPARE(cloneable, at(&base));
        QVERIFY(cloneable < equatable);
        QVERIFY(equatable < serializable);
    }

    void isNullAsLongAsItsIdIs()
    {
        Plain command;
        command.setId(SCommandId(7));
        QVERIFY(!command.isNull());
        QVERIFY(!SCommandServerName().isNull());
    }

    void comparesIdAndVersion()
    {
        Plain command;
        command.setId(SCommandId(7));
        Plain other = command;
        QVERIFY(command == other);
        QVERIFY(!(command != other));
        other.setVersion(8);
        QVERIFY(command != other);
        other = command;
        QVERIFY(command == other);
        other.setId(SCommandId(8));
        QVERIFY(command != other);
    }

    void equalsToAsksForTheSameTypeFirst()
    {
        const SCommandServerName name;
        const SCommandWhoAmI user;
        QVERIFY(name.equalsTo(&name));
        QVERIFY(!name.equalsTo(&user));
        QVERIFY(!name.equalsTo(nullptr));
        SCommandServerName lowered;
        lowered.setVersion(1);
        QVERIFY(!name.equalsTo(&lowered));
    }

    void cloneHasTheSameTypeAndValue()
    {
        Greet greet;
        greet.name = u"ann"_s;
        greet.setVersion(3);
        const std::unique_ptr<SCommand> copy(greet.clone());
        QVERIFY(copy->equalsTo(&greet));
    }

    void derivedCommandComparesItsFieldsToo()
    {
        Greet greet;
        Greet other;
        QVERIFY(greet == other);
        other.name = u"bob"_s;
        QVERIFY(greet != other);
        QVERIFY(!greet.equalsTo(&other));
    }

    void arrayIsWrittenAtTheVersionOfTheThread_data()
    {
        QTest::addColumn<int>("version");
        QTest::newRow("17") << 17;
        QTest::newRow("20") << 20;
    }
    void arrayIsWrittenAtTheVersionOfTheThread()
    {
        QFETCH(const int, version);
        SDataStream::setDefaultVersion(static_cast<QDataStream::Version>(version));
        QByteArray bytes;
        QVERIFY(Greet().serializeArray(bytes));
        SDataStream::setDefaultVersion(QDataStream::Qt_5_6);
        Greet greet;
        QVERIFY(greet.deserializeArray(bytes));
        QCOMPARE(greet.writtenAt, version);
    }

    void arrayCallsGiveTheResultOfTheStep()
    {
        Plain command;
        for (const bool result : {false, true}) {
            command.result = result;
            QByteArray bytes;
            QCOMPARE(command.serializeArray(bytes), result);
            QCOMPARE(command.deserializeArray(bytes), result);
        }
    }

    void arrayIsReplaced()
    {
        QByteArray bytes(500, 'x');
        QVERIFY(SCommandServerName().serializeArray(bytes));
        QCOMPARE(bytes.size(), 20);
    }

    void failedWriteIsReported()
    {
        QFile full(u"/dev/full"_s);
        QVERIFY(full.open(QIODevice::WriteOnly | QIODevice::Unbuffered));
        QDataStream stream(&full);
        QVERIFY(!SCommandServerName().serialize(stream));
        QCOMPARE(stream.status(), QDataStream::WriteFailed);
    }

    void streamThatHasFailedBeforeIsRefused()
    {
        QByteArray bytes;
        QVERIFY(SCommandServerName().serializeArray(bytes));
        QDataStream stream(bytes);
        stream.setStatus(QDataStream::ReadCorruptData);
        SCommandServerName command;
        QVERIFY(!command.deserialize(stream));
    }

    void failedReadLeavesTheCommandAsItWas()
    {
        Greet greet;
        greet.name = u"ann"_s;
        greet.setVersion(5);
        const Greet before = greet;
        QByteArray bytes;
        QVERIFY(greet.serializeArray(bytes));
        for (qsizetype size = 0; size < bytes.size(); ++size) {
            QVERIFY(!greet.deserializeArray(bytes.first(size)));
            QVERIFY(greet == before);
        }
    }

    void readStopsBehindTheFields()
    {
        QByteArray bytes;
        QVERIFY(Greet().serializeArray(bytes));
        QDataStream stream(bytes + bytes);
        stream.setVersion(SDataStream::defaultVersion());
        Greet greet;
        QVERIFY(greet.deserialize(stream));
        QCOMPARE(stream.device()->pos(), bytes.size());
        QVERIFY(greet.deserialize(stream));
        QVERIFY(stream.atEnd());
    }
};

QTEST_APPLESS_MAIN(tst_SCommand)
#include "tst_scommand.moc"
