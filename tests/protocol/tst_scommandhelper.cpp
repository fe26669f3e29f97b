// SPDX-License-Identifier: MIT
#include <brixlib/protocol/scommandhelper.h>

#include <brixlib/foundation/scontexthelper.h>
#include <brixlib/protocol/commands/scommandpluggable.h>
#include <brixlib/protocol/commands/scommandservername.h>
#include <brixlib/protocol/commands/scommandwhoami.h>

#include <atomic>

using namespace Talverine;
using namespace Qt::StringLiterals;

namespace {

// Tells how many threads have been at work at once.
class Presence
{
public:
    Presence()
    {
        const int now = ++present;
        most = std::max(most.load(), now);
        QThread::yieldCurrentThread();
    }
    ~Presence() { --present; }
    Q_DISABLE_COPY_MOVE(Presence)

    static inline std::atomic<int> most = 0;

private:
    static inline std::atomic<int> present = 0;
};

// Counts its objects, and is watched while it is copied and read.
class Counted : public SConcreteCommand<Counted>
{
public:
    Counted()
        : SConcreteCommand(Wire::word("cntd"))
    {
        ++alive;
    }
    Counted(const Counted &other)
        : SConcreteCommand(other)
        , mark(other.mark)
    {
        const Presence presence;
        ++alive;
    }
    Counted &operator=(const Counted &) = default;
    ~Counted() override { --alive; }

    bool operator==(const Counted &) const = default;

    int mark = 0;
    static inline std::atomic<int> alive = 0;

private:
    friend SConcreteCommand;
    void readFields(QDataStream &stream)
    {
        const Presence presence;
        stream >> mark;
    }
    void writeFields(QDataStream &stream) const { stream << mark; }
};

// Another class under the same id.
class CountedTwin : public SConcreteCommand<CountedTwin>
{
public:
    CountedTwin()
        : SConcreteCommand(Wire::word("cntd"))
    {
    }
};

// Bytes that go by once.
class Pipe : public QIODevice
{
public:
    explicit Pipe(const QByteArray &bytes)
        : m_bytes(bytes)
    {
    }
    bool isSequential() const override { return true; }
    qint64 bytesAvailable() const override { return m_bytes.size() + QIODevice::bytesAvailable(); }

protected:
    qint64 readData(char *data, qint64 maxSize) override
    {
        const qsizetype count = std::min<qsizetype>(maxSize, m_bytes.size());
        std::copy_n(m_bytes.cbegin(), count, data);
        m_bytes.remove(0, count);
        return count;
    }
    qint64 writeData(const char *, qint64) override { return -1; }

private:
    QByteArray m_bytes;
};

// A context that is empty again at its end.
class Context
{
public:
    Context() = default;
    ~Context() { SCommandHelper::deregisterCommands(id); }
    Q_DISABLE_COPY_MOVE(Context)

    const unsigned int id = SContextHelper::newContextId();
};

QByteArray bytesOf(const SCommand &command)
{
    QByteArray bytes;
    return command.serializeArray(bytes) ? bytes : QByteArray();
}

std::unique_ptr<SCommand> created(const QByteArray &bytes, const Context &context)
{
    return std::unique_ptr<SCommand>(SCommandHelper::createCommand(bytes, context.id));
}

Counted *counted(int mark, int version = 0x00010000)
{
    auto *command = new Counted;
    command->mark = mark;
    command->setVersion(version);
    return command;
}

} // namespace

class tst_SCommandHelper : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void cleanup() { QCOMPARE(Counted::alive.load(), 0); }

    void unknownContextHasNothing()
    {
        const Context context;
        QVERIFY(SCommandHelper::registeredCommands(context.id).isEmpty());
        QVERIFY(SCommandHelper::registeredCommandVersions(context.id).isEmpty());
        SCommandHelper::deregisterCommands(context.id);
    }

    void commandsComeInOrderOfRegistration()
    {
        const Context context;
        SCommandHelper::registerCommand(new SCommandWhoAmI, context.id);
        SCommandHelper::registerCommand(counted(1), context.id);
        SCommandHelper::registerCommand(new SCommandServerName, context.id);
        QCOMPARE(
            SCommandHelper::registeredCommands(context.id),
            (QList<SCommandId>{CommandIds::kWhoAmI, Wire::word("cntd"), CommandIds::kServerName}));
    }

    void contextsAreSeparate()
    {
        const Context one;
        const Context two;
        SCommandHelper::registerCommand(new SCommandWhoAmI, one.id);
        SCommandHelper::registerCommand(new SCommandServerName, two.id);
        QCOMPARE(SCommandHelper::registeredCommands(one.id),
                 QList<SCommandId>{CommandIds::kWhoAmI});
        QVERIFY(created(bytesOf(SCommandWhoAmI()), one));
        QVERIFY(!created(bytesOf(SCommandWhoAmI()), two));
        SCommandHelper::deregisterCommands(one.id);
        QVERIFY(!created(bytesOf(SCommandWhoAmI()), one));
        QVERIFY(created(bytesOf(SCommandServerName()), two));
    }

    void versionsAreThoseOfThePrototypes()
    {
        const Context context;
        SCommandHelper::registerCommand(new SCommandWhoAmI, context.id);
        SCommandHelper::registerCommand(counted(1, 0x00010200), context.id);
        const QHash<SCommandId, int> expected{{CommandIds::kWhoAmI, 0x00010000},
                                              {Wire::word("cntd"), 0x00010200}};
        QCOMPARE(SCommandHelper::registeredCommandVersions(context.id), expected);
    }

    void duplicatesAreListedAndTheFirstCounts()
    {
        const Context context;
        SCommandHelper::registerCommand(counted(1, 11), context.id);
        SCommandHelper::registerCommand(counted(2, 22), context.id);
        QCOMPARE(SCommandHelper::registeredCommands(context.id).size(), 2);
        const QHash<SCommandId, int> expected{{Wire::word("cntd"), 11}};
        QCOMPARE(SCommandHelper::registeredCommandVersions(context.id), expected);
    }

    void firstPrototypeOfAnIdMakesTheCommand()
    {
        const QByteArray bytes = bytesOf(CountedTwin()) + QByteArray(4, '\0');
        const Context one;
        SCommandHelper::registerCommand(new CountedTwin, one.id);
        SCommandHelper::registerCommand(counted(1), one.id);
        QVERIFY(dynamic_cast<CountedTwin *>(created(bytes, one).get()));
        const Context two;
        SCommandHelper::registerCommand(counted(1), two.id);
        SCommandHelper::registerCommand(new CountedTwin, two.id);
        QVERIFY(dynamic_cast<Counted *>(created(bytes, two).get()));
    }

    void nullPrototypeIsIgnored()
    {
        const Context context;
        SCommandHelper::registerCommand(nullptr, context.id);
        QVERIFY(SCommandHelper::registeredCommands(context.id).isEmpty());
        QVERIFY(!created(bytesOf(SCommandWhoAmI()), context));
    }

    void deregisteringDeletesThePrototypesOfOneContext()
    {
        const Context one;
        const Context two;
        for (int i = 0; i < 3; ++i)
            SCommandHelper::registerCommand(counted(i), one.id);
        SCommandHelper::registerCommand(counted(9), two.id);
        QCOMPARE(Counted::alive.load(), 4);
        SCommandHelper::deregisterCommands(one.id);
        QCOMPARE(Counted::alive.load(), 1);
        QVERIFY(SCommandHelper::registeredCommands(one.id).isEmpty());
    }

    void createsTheCommandThatTheBytesTell()
    {
        const Context context;
        SCommandHelper::registerCommand(new SCommandPluggable(u"prototype"_s, "old"), context.id);
        SCommandPluggable sent(u"echo"_s, "in");
        sent.setVersion(0x7FFFFFFF);
        const auto command = created(bytesOf(sent), context);
        QVERIFY(command);
        QVERIFY(command->equalsTo(&sent));
        QCOMPARE(command->version(), 0x7FFFFFFF);
    }

    void readsFromWhereTheStreamStands()
    {
        const Context context;
        SCommandHelper::registerCommand(new SCommandWhoAmI, context.id);
        SCommandHelper::registerCommand(counted(0), context.id);
        const std::unique_ptr<Counted> sent(counted(42));
        QDataStream stream("....." + bytesOf(*sent) + bytesOf(SCommandWhoAmI()) + "rest");
        stream.skipRawData(5);
        const std::unique_ptr<SCommand> first(SCommandHelper::createCommand(stream, context.id));
        QVERIFY(first && first->equalsTo(sent.get()));
        const std::unique_ptr<SCommand> second(SCommandHelper::createCommand(stream, context.id));
        QVERIFY(second && second->id() == CommandIds::kWhoAmI);
        QCOMPARE(stream.device()->bytesAvailable(), 4);
    }

    void streamWithoutDeviceGivesNull()
    {
        const Context context;
        SCommandHelper::registerCommand(new SCommandWhoAmI, context.id);
        QDataStream stream;
        QVERIFY(!SCommandHelper::createCommand(stream, context.id));
    }

    void deviceThatCannotSeekGivesNullAndKeepsItsBytes()
    {
        const Context context;
        SCommandHelper::registerCommand(new SCommandWhoAmI, context.id);
        Pipe device(bytesOf(SCommandWhoAmI()));
        QVERIFY(device.open(QIODevice::ReadOnly));
        QDataStream stream(&device);
        QVERIFY(!SCommandHelper::createCommand(stream, context.id));
        QCOMPARE(device.readAll(), bytesOf(SCommandWhoAmI()));
    }

    void unknownIdGivesNullAndLeavesThePosition()
    {
        const Context context;
        SCommandHelper::registerCommand(new SCommandWhoAmI, context.id);
        QDataStream stream(bytesOf(SCommandServerName()));
        QVERIFY(!SCommandHelper::createCommand(stream, context.id));
        QCOMPARE(stream.device()->pos(), 0);
    }

    void damagedHeaderGivesNull_data()
    {
        QTest::addColumn<QByteArray>("bytes");
        const auto row = [](const char *name, const char *digits) {
            QTest::newRow(name) << QByteArray::fromHex(digits);
        };
        row("no bytes", "");
        row("wrong first magic", "73636D65 00010000 73636D69 00010000 77616D69");
        row("wrong second magic", "73636D64 00010000 73636D64 00010000 77616D69");
        row("null id", "73636D64 00010000 73636D69 00010000 00000000");
        row("letters in lower order", "73636D64 00010000 73636D69 00010000 696D6177");
        const QByteArray whole = bytesOf(SCommandWhoAmI());
        for (qsizetype size = 1; size < whole.size(); ++size)
            QTest::addRow("cut to %d bytes", static_cast<int>(size)) << whole.first(size);
    }
    void damagedHeaderGivesNull()
    {
        QFETCH(const QByteArray, bytes);
        const Context context;
        SCommandHelper::registerCommand(new SCommandWhoAmI, context.id);
        QVERIFY(!created(bytes, context));
    }

    void wordAtIdRecordVersionIsIgnored()
    {
        const Context context;
        SCommandHelper::registerCommand(new SCommandWhoAmI, context.id);
        const auto bytes = QByteArray::fromHex("73636D64 00010000 73636D69 FFFFFFFF 77616D69");
        QVERIFY(created(bytes, context));
    }

    void failedReadDeletesTheClone()
    {
        const Context context;
        SCommandHelper::registerCommand(counted(0), context.id);
        QByteArray bytes;
        {
            const std::unique_ptr<Counted> sent(counted(7));
            bytes = bytesOf(*sent);
        }
        for (qsizetype size = 20; size < bytes.size(); ++size) {
            QVERIFY(!created(bytes.first(size), context));
            QCOMPARE(Counted::alive.load(), 1);
        }
    }

    void threadsWorkOneAtATimeOnContextsOfTheirOwn()
    {
        constexpr int threads = 4;
        constexpr int rounds = 200;
        constexpr int commandsPerRound = 10;
        std::atomic<int> failures = 0;
        Presence::most = 0;
        const auto work = [&failures] {
            for (int round = 0; round < rounds; ++round) {
                const Context context;
                SCommandHelper::registerCommand(counted(0), context.id);
                SCommandHelper::registerCommand(new SCommandWhoAmI, context.id);
                for (int i = 0; i < commandsPerRound; ++i) {
                    const std::unique_ptr<Counted> sent(counted(i));
                    const auto command = created(bytesOf(*sent), context);
                    failures += !command || !command->equalsTo(sent.get());
                }
                failures += SCommandHelper::registeredCommands(context.id).size() != 2;
                failures += SCommandHelper::registeredCommandVersions(context.id).size() != 2;
            }
        };
        std::vector<std::unique_ptr<QThread>> running;
        for (int i = 0; i < threads; ++i)
            running.emplace_back(QThread::create(work))->start();
        for (const auto &thread : running)
            QVERIFY(thread->wait(60000));
        QCOMPARE(failures.load(), 0);
        QCOMPARE(Presence::most.load(), 1);
    }
};

QTEST_APPLESS_MAIN(tst_SCommandHelper)
#include "tst_scommandhelper.moc"
