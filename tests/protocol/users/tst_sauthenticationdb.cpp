// SPDX-License-Identifier: MIT
#include <brixlib/protocol/scommunicatorbase.h>
#include <brixlib/protocol/users/sauthenticationdb.h>
#include <brixlib/protocol/users/suserdata.h>

#include <shared/goldenbytes.h>

#include <QtCore/QJsonArray>
#include <QtCore/QJsonDocument>
#include <QtCore/QJsonObject>
#include <QtCore/QSaveFile>

#include <atomic>
#include <functional>
#include <future>
#include <thread>
#include <vector>

using namespace Talverine;
using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

namespace {

constexpr auto cannotOpenToRead = "SAuthenticationDb::fromDevice: cannot open the device";
constexpr auto noObject = "SAuthenticationDb::fromDevice: no valid object(s) found";
constexpr auto cannotOpenToSave = "SAuthenticationDb::save: cannot open the device";

SUserData user(const QString &name)
{
    return SUserData(name, u"secret of "_s + name, u"/srv/"_s + name, u"Full "_s + name,
                     name + u"@example.com"_s);
}

void fill(SAuthenticationDb &db, const QStringList &names)
{
    for (const auto &name : names)
        db.insert(user(name).clone());
}

SAuthenticationDb fromBytes(QByteArray bytes)
{
    QBuffer buffer(&bytes);
    return SAuthenticationDb::fromDevice(&buffer);
}

QByteArray saved(SAuthenticationDb &db)
{
    QBuffer buffer;
    return db.save(&buffer) ? buffer.data() : QByteArray();
}

// Takes no more than a few bytes, as a disk does that runs full.
class FullDevice final : public QIODevice
{
protected:
    qint64 readData(char *, qint64) override { return -1; }
    qint64 writeData(const char *, qint64 size) override { return std::min<qint64>(size, 10); }
};

// Calls \a probe while it takes what is written.
class ProbingDevice final : public QIODevice
{
public:
    explicit ProbingDevice(std::function<void()> probe)
        : m_probe(std::move(probe))
    {
    }

protected:
    qint64 readData(char *, qint64) override { return -1; }
    qint64 writeData(const char *, qint64 size) override
    {
        m_probe();
        return size;
    }

private:
    const std::function<void()> m_probe;
};

// Whether another thread gets into the table now. One that has to wait goes on in \a waiting.
bool answersAnotherThread(const SAuthenticationDb &db, std::future<void> *waiting,
                          std::chrono::milliseconds patience)
{
    *waiting = std::async(std::launch::async, [&db] { (void)db.isEmpty(); });
    return waiting->wait_for(patience) == std::future_status::ready;
}

class DerivedDb final : public SAuthenticationDb
{
};

// One end of a connection with that uuid.
class Session final : public SCommunicatorBase
{
public:
    explicit Session(const QString &uuid) { setUuid(QUuid(uuid)); }
    using SCommunicatorBase::generateHashedPassword;
    bool doWork() override { return true; }
};

// Tells when it dies.
class WatchedUser final : public SUserData
{
public:
    WatchedUser(const QString &name, bool *alive)
        : SUserData(user(name))
        , m_alive(alive)
    {
        *m_alive = true;
    }
    ~WatchedUser() override { *m_alive = false; }

private:
    bool *m_alive;
};

} // namespace

class tst_SAuthenticationDb : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init() { QTest::failOnWarning(QRegularExpression(u"."_s)); }

    void freshTableIsEmpty()
    {
        const SAuthenticationDb db;
        QVERIFY(db.isEmpty());
        QVERIFY(db.isNull());
        QVERIFY(db.users().isEmpty());
        QVERIFY(!db.contains(QString()));
        QVERIFY(!db.value(QString()));
        QVERIFY(!db.sharedUser(QString()));
    }

    void isFoundAsAnInterfaceAtRunTime()
    {
        QObject parent;
        QObject *object = new SAuthenticationDb(&parent);
        QVERIFY(qobject_cast<Interfaces::ISAuthenticationDb *>(object));
        QVERIFY(object->inherits("Talverine.ICloneable/1.0"));
        QVERIFY(object->inherits("Talverine.IEquatable/1.0"));
    }

    void insertOwnsAndTells()
    {
        SAuthenticationDb db;
        QSignalSpy added(&db, &SAuthenticationDb::added);
        QSignalSpy changed(&db, &SAuthenticationDb::changed);
        auto *bob = user(u"Bob"_s).clone();
        db.insert(bob);
        QCOMPARE(added, QList<QVariantList>{{u"bob"_s}});
        QVERIFY(changed.isEmpty());
        QVERIFY(db.contains(u"bob"_s));
        QCOMPARE(db.value(u"bob"_s), bob);
        QVERIFY(!db.isEmpty());
    }

    void insertReplacesTheUserOfThatName()
    {
        SAuthenticationDb db;
        bool alive = false;
        db.insert(new WatchedUser(u"ann"_s, &alive));
        QSignalSpy added(&db, &SAuthenticationDb::added);
        QSignalSpy removed(&db, &SAuthenticationDb::removed);
        auto *other = user(u"ann"_s).clone();
        other->setHomeFolder(u"/other"_s);
        db.insert(other);
        QVERIFY(!alive);
        QCOMPARE(db.users(), QList<QString>{u"ann"_s});
        QCOMPARE(db.value(u"ann"_s)->homeFolder(), u"/other"_s);
        QCOMPARE(added.size(), 1);
        QVERIFY(removed.isEmpty());
    }

    void insertOfTheSameObjectKeepsItAndTells()
    {
        SAuthenticationDb db;
        bool alive = false;
        auto *ann = new WatchedUser(u"ann"_s, &alive);
        db.insert(ann);
        QSignalSpy added(&db, &SAuthenticationDb::added);
        ann->setEnabled(false);
        db.insert(ann);
        QVERIFY(alive);
        QCOMPARE(db.value(u"ann"_s), ann);
        QCOMPARE(added, QList<QVariantList>{{u"ann"_s}});
        db.clear();
        QVERIFY(!alive);
    }

    void insertOfNothingIsIgnored()
    {
        SAuthenticationDb db;
        QSignalSpy added(&db, &SAuthenticationDb::added);
        db.insert(nullptr);
        QVERIFY(db.isEmpty());
        QVERIFY(added.isEmpty());
    }

    void removeReleasesAndTells()
    {
        SAuthenticationDb db;
        bool alive = false;
        db.insert(new WatchedUser(u"ann"_s, &alive));
        QSignalSpy removed(&db, &SAuthenticationDb::removed);
        QVERIFY(db.remove(u"ann"_s));
        QVERIFY(!alive);
        QVERIFY(db.isEmpty());
        QCOMPARE(removed, QList<QVariantList>{{u"ann"_s}});
        QVERIFY(!db.remove(u"ann"_s));
        QCOMPARE(removed.size(), 1);
    }

    void removedUserLivesUntilItsSignalIsOut()
    {
        SAuthenticationDb db;
        bool alive = false;
        db.insert(new WatchedUser(u"ann"_s, &alive));
        bool aliveInSlot = false;
        connect(&db, &SAuthenticationDb::removed, this, [&] { aliveInSlot = alive; });
        QVERIFY(db.remove(u"ann"_s));
        QVERIFY(aliveInSlot);
        QVERIFY(!alive);
    }

    void namesAreLookedUpAsWritten()
    {
        SAuthenticationDb db;
        fill(db, {u"Ann"_s});
        QVERIFY(!db.contains(u"Ann"_s));
        QVERIFY(!db.value(u"Ann"_s));
        QVERIFY(!db.remove(u"Ann"_s));
        QVERIFY(db.contains(u"ann"_s));
    }

    void clearDropsAllAndTells()
    {
        SAuthenticationDb db;
        bool alive = false;
        db.insert(new WatchedUser(u"ann"_s, &alive));
        QSignalSpy changed(&db, &SAuthenticationDb::changed);
        QSignalSpy removed(&db, &SAuthenticationDb::removed);
        db.clear();
        QVERIFY(!alive);
        QVERIFY(db.isEmpty());
        QCOMPARE(changed.size(), 1);
        QVERIFY(removed.isEmpty());
        db.clear();
        QCOMPARE(changed.size(), 2);
    }

    void replaceByTellsOnlyTheDifferences()
    {
        SAuthenticationDb db;
        fill(db, {u"ann"_s, u"bob"_s, u"carol"_s, u"dan"_s, u"eve"_s});
        SAuthenticationDb other;
        fill(other, {u"ann"_s, u"carol"_s, u"dan"_s, u"eve"_s, u"fay"_s});
        SUserData carol = user(u"carol"_s);
        carol.setEnabled(false);
        other.insert(carol.clone());
        SUserData dan = user(u"dan"_s);
        dan.setFullname(u"Dan"_s);
        dan.setEmail(u"dan@example.com"_s);
        other.insert(dan.clone());
        SUserData eve = user(u"eve"_s);
        eve.setPassword(u"other"_s);
        other.insert(eve.clone());
        QSignalSpy added(&db, &SAuthenticationDb::added);
        QSignalSpy removed(&db, &SAuthenticationDb::removed);
        QSignalSpy changed(&db, &SAuthenticationDb::changed);
        db.replaceBy(other);
        QVERIFY(db == other);
        QCOMPARE(removed, QList<QVariantList>{{u"bob"_s}});
        QStringList names;
        for (const QVariantList &arguments : added)
            names.append(arguments.first().toString());
        names.sort();
        QCOMPARE(names, (QStringList{u"carol"_s, u"eve"_s, u"fay"_s}));
        QVERIFY(changed.isEmpty());
    }

    void usersAreSorted()
    {
        SAuthenticationDb db;
        fill(db, {u"zoe"_s, u"bob"_s, u"ann"_s, u"émile"_s, u"mia"_s});
        QCOMPARE(db.users(), (QList<QString>{u"ann"_s, u"bob"_s, u"mia"_s, u"zoe"_s, u"émile"_s}));
    }

    void slotsMayUseTheTable()
    {
        SAuthenticationDb db;
        int seen = 0;
        connect(&db, &SAuthenticationDb::added, this, [&](const QString &name) {
            if (db.contains(name) && db.value(name))
                ++seen;
        });
        connect(&db, &SAuthenticationDb::removed, this, [&](const QString &name) {
            if (!db.contains(name))
                ++seen;
        });
        connect(&db, &SAuthenticationDb::changed, this, [&] {
            if (db.isEmpty())
                ++seen;
        });
        fill(db, {u"ann"_s, u"bob"_s});
        QVERIFY(db.remove(u"ann"_s));
        db.clear();
        QCOMPARE(seen, 4);
    }

    void signalsComeWithTheTableHeld()
    {
        SAuthenticationDb db;
        std::vector<std::future<void>> others;
        int held = 0;
        const auto probe = [&] {
            held += answersAnotherThread(db, &others.emplace_back(), 20ms) ? 0 : 1;
        };
        connect(&db, &SAuthenticationDb::added, this, probe);
        connect(&db, &SAuthenticationDb::removed, this, probe);
        connect(&db, &SAuthenticationDb::changed, this, probe);
        fill(db, {u"ann"_s});
        QVERIFY(db.remove(u"ann"_s));
        db.clear();
        QCOMPARE(held, 3);
    }

    void sharedUserOutlivesItsRemoval()
    {
        SAuthenticationDb db;
        bool alive = false;
        db.insert(new WatchedUser(u"ann"_s, &alive));
        auto shared = db.sharedUser(u"ann"_s);
        QCOMPARE(shared.get(), db.value(u"ann"_s));
        QVERIFY(db.remove(u"ann"_s));
        QVERIFY(alive);
        QCOMPARE(shared->username(), u"ann"_s);
        shared.reset();
        QVERIFY(!alive);
    }

    void comparisonLooksAtTheUsersValues()
    {
        SAuthenticationDb db;
        SAuthenticationDb other;
        QVERIFY(db == other);
        fill(db, {u"ann"_s, u"bob"_s});
        QVERIFY(!(db == other));
        fill(other, {u"bob"_s, u"ann"_s});
        QVERIFY(db.value(u"ann"_s) != other.value(u"ann"_s));
        QVERIFY(db == other);
        QVERIFY(db.equalsTo(&other));
        QVERIFY(!db.equalsTo(nullptr));

        DerivedDb derived;
        fill(derived, {u"ann"_s, u"bob"_s});
        QVERIFY(db == derived);
        QVERIFY(!db.equalsTo(&derived));
        QVERIFY(!derived.equalsTo(&db));

        auto *changed = user(u"ann"_s).clone();
        changed->setEnabled(false);
        other.insert(changed);
        QVERIFY(!(db == other));
        other.insert(user(u"ann"_s).clone());
        QVERIFY(other.remove(u"bob"_s));
        fill(other, {u"eve"_s});
        QVERIFY(!(db == other));
    }

    void copySharesTheUsers()
    {
        QObject parent;
        SAuthenticationDb db(&parent);
        fill(db, {u"ann"_s, u"bob"_s});
        SAuthenticationDb copy(db);
        QVERIFY(!copy.parent());
        QVERIFY(copy == db);
        QCOMPARE(copy.value(u"ann"_s), db.value(u"ann"_s));
        db.clear();
        QCOMPARE(copy.value(u"ann"_s)->fullname(), u"Full ann"_s);
        const std::unique_ptr<SAuthenticationDb> clone(copy.clone());
        QVERIFY(*clone == copy);
    }

    void assignmentReplacesTheTableWithoutASignal()
    {
        SAuthenticationDb db;
        fill(db, {u"ann"_s});
        SAuthenticationDb other;
        fill(other, {u"bob"_s, u"eve"_s});
        QSignalSpy added(&db, &SAuthenticationDb::added);
        QSignalSpy changed(&db, &SAuthenticationDb::changed);
        db = other;
        QCOMPARE(db.users(), (QList<QString>{u"bob"_s, u"eve"_s}));
        QVERIFY(added.isEmpty());
        QVERIFY(changed.isEmpty());
        const SAuthenticationDb &self = db;
        db = self;
        QVERIFY(db == other);
    }

    void fileIsAnIndentedDocumentInTheOrderOfTheNames()
    {
        SAuthenticationDb db;
        db.insert(new SUserData(u"zoë"_s, "00FF"_ba, u"C:\\Data\\zoë"_s, u"Zoë \"Z\""_s,
                                u"zoe@example.com"_s, true));
        db.insert(new SUserData(u"ann"_s, "ab"_ba, u"/srv/ann"_s));
        QCOMPARE(saved(db), GoldenBytes::userFile());
    }

    void emptyTableIsSavedAsAnEmptyArray()
    {
        SAuthenticationDb db;
        QCOMPARE(saved(db), "{\n    \"users\": [\n    ]\n}\n"_ba);
    }

    void savedTableIsReadBackEqual()
    {
        SAuthenticationDb db;
        fill(db, {u"ann"_s, u"bob"_s, u"ärger"_s, u"名前"_s, u"a \"quoted\"\n\tname"_s});
        auto *disabled = user(u"off"_s).clone();
        disabled->setEnabled(false);
        db.insert(disabled);
        QTemporaryDir dir;
        QFile file(dir.filePath(u"users.json"_s));
        QVERIFY(db.save(&file));
        QVERIFY(!file.isOpen());
        QVERIFY(SAuthenticationDb::fromDevice(&file) == db);
        QVERIFY(!file.isOpen());
        QVERIFY(SAuthenticationDb::fromFile(file.fileName()) == db);
        SAuthenticationDb loaded;
        QVERIFY(loaded.load(&file));
        QVERIFY(loaded == db);
    }

    void saveReplacesALongerContent()
    {
        QBuffer buffer;
        buffer.setData(QByteArray(10'000, 'x'));
        SAuthenticationDb db;
        fill(db, {u"ann"_s});
        QVERIFY(db.save(&buffer));
        QCOMPARE(buffer.data(), saved(db));
    }

    void saveLeavesASaveFileToItsCommit()
    {
        SAuthenticationDb db;
        fill(db, {u"ann"_s});
        QTemporaryDir dir;
        QSaveFile file(dir.filePath(u"users.json"_s));
        QVERIFY(db.save(&file));
        QVERIFY(!QFile::exists(file.fileName()));
        QVERIFY(file.commit());
        QVERIFY(SAuthenticationDb::fromFile(file.fileName()) == db);
    }

    void slowDeviceHoldsNobodyUp()
    {
        SAuthenticationDb db;
        fill(db, {u"ann"_s});
        std::future<void> other;
        bool answered = false;
        ProbingDevice device([&] { answered = answersAnotherThread(db, &other, 10s); });
        QVERIFY(db.save(&device));
        QVERIFY(answered);
    }

    void saveFailsOnAnOpenDevice()
    {
        QBuffer buffer;
        buffer.setData("kept"_ba);
        QVERIFY(buffer.open(QIODevice::ReadWrite));
        SAuthenticationDb db;
        QTest::ignoreMessage(QtDebugMsg, cannotOpenToSave);
        QVERIFY(!db.save(&buffer));
        QCOMPARE(buffer.data(), "kept"_ba);
        QVERIFY(buffer.isOpen());
    }

    void saveFailsWhereNothingOpens()
    {
        SAuthenticationDb db;
        QTemporaryDir dir;
        QFile missing(dir.filePath(u"no such folder/users.json"_s));
        QTest::ignoreMessage(QtDebugMsg, cannotOpenToSave);
        QVERIFY(!db.save(&missing));
        QTest::ignoreMessage(QtDebugMsg, cannotOpenToSave);
        QVERIFY(!db.save(nullptr));
    }

    void saveFailsWhenTheDeviceTakesOnlyAPart()
    {
        SAuthenticationDb db;
        FullDevice device;
        QVERIFY(!db.save(&device));
        QVERIFY(!device.isOpen());
    }

#ifdef Q_OS_LINUX
    void saveFailsOnAFullDisk()
    {
        SAuthenticationDb db;
        fill(db, {u"ann"_s});
        QFile full(u"/dev/full"_s);
        QVERIFY(!db.save(&full));
    }
#endif

    void fromDeviceUsesAnOpenDeviceAsItIs()
    {
        QBuffer buffer;
        buffer.setData(R"(rubbish{"users":[{"username":"ann"}]})");
        QVERIFY(buffer.open(QIODevice::ReadOnly));
        QCOMPARE(buffer.read(7), "rubbish"_ba);
        QCOMPARE(SAuthenticationDb::fromDevice(&buffer).users(), QList<QString>{u"ann"_s});
        QVERIFY(buffer.isOpen());
    }

    void deviceThatDoesNotOpenGivesAnEmptyTable()
    {
        QTemporaryDir dir;
        QTest::ignoreMessage(QtDebugMsg, cannotOpenToRead);
        QVERIFY(SAuthenticationDb::fromFile(dir.filePath(u"missing.json"_s)).isEmpty());
        QTest::ignoreMessage(QtDebugMsg, cannotOpenToRead);
        QVERIFY(SAuthenticationDb::fromDevice(nullptr).isEmpty());
    }

    void contentThatIsNoObjectGivesAnEmptyTable_data()
    {
        QTest::addColumn<QByteArray>("content");
        QTest::newRow("nothing") << ""_ba;
        QTest::newRow("blank") << " \n"_ba;
        QTest::newRow("no JSON") << "users: ann"_ba;
        QTest::newRow("an array") << R"([{"username":"ann"}])"_ba;
        QTest::newRow("a text") << R"("users")"_ba;
        QTest::newRow("a null") << "null"_ba;
        QTest::newRow("rubbish behind") << R"({"users":[]}x)"_ba;
        QTest::newRow("bytes that are not UTF-8") << "{\"users\":[{\"username\":\"\xff\xfe\"}]}"_ba;
        QTest::newRow("zeros") << QByteArray(4096, '\0');
        QTest::newRow("nested without end") << QByteArray(100'000, '[');
    }

    void contentThatIsNoObjectGivesAnEmptyTable()
    {
        QFETCH(QByteArray, content);
        QTest::ignoreMessage(QtDebugMsg, noObject);
        QVERIFY(fromBytes(content).isEmpty());
    }

    void objectWithoutUsersIsAnEmptyTable_data()
    {
        QTest::addColumn<QByteArray>("content");
        QTest::newRow("no key") << "{}"_ba;
        QTest::newRow("another key") << R"({"Users":[{"username":"ann"}]})"_ba;
        QTest::newRow("no users") << R"({"users":[]})"_ba;
        QTest::newRow("users are an object") << R"({"users":{"username":"ann"}})"_ba;
        QTest::newRow("users are a text") << R"({"users":"ann"})"_ba;
        QTest::newRow("users are null") << R"({"users":null})"_ba;
    }

    void objectWithoutUsersIsAnEmptyTable()
    {
        QFETCH(QByteArray, content);
        QVERIFY(fromBytes(content).isEmpty());
    }

    void missingKeysReadAsEmptyAndNotDisabled()
    {
        const auto db = fromBytes(R"({"users":[{"username":"ann"}]})"_ba);
        QVERIFY(SUserData(db.value(u"ann"_s)) == SUserData(u"ann"_s, QByteArray(), QString()));
        QVERIFY(db.value(u"ann"_s)->enabled());
        QVERIFY(!db.value(u"ann"_s)->isValid());
    }

    void valuesOfAnotherTypeReadAsEmptyAndNotDisabled()
    {
        const auto db = fromBytes(
            R"({"users":[{"username":"ann","password":7,"homeFolder":["/"],"fullname":{},
                          "email":null,"disabled":"true"}]})"_ba);
        QVERIFY(SUserData(db.value(u"ann"_s)) == SUserData(u"ann"_s, QByteArray(), QString()));
    }

    void elementsThatAreNoObjectsGiveAUserWithoutName()
    {
        const auto db = fromBytes(R"({"users":[1,"ann",null,[],{"username":"bob"}]})"_ba);
        QCOMPARE(db.users(), (QList<QString>{QString(), u"bob"_s}));
        QVERIFY(!db.value(QString())->isValid());
    }

    void laterUserOfAFileReplacesTheFormerOfThatName()
    {
        const auto db = fromBytes(R"({"users":[{"username":"ANN","email":"1"},
                                               {"username":"ann","email":"2"}]})"_ba);
        QCOMPARE(db.users(), QList<QString>{u"ann"_s});
        QCOMPARE(db.value(u"ann"_s)->email(), u"2"_s);
    }

    void upperCaseHashOfAFileIsLowered()
    {
        const QByteArray hash = SUserData::hashPassword(u"secret"_s);
        const auto db = fromBytes("{\"users\":[{\"username\":\"Ann\",\"password\":\"" +
                                  hash.toUpper() + "\"}]}");
        QCOMPARE(db.value(u"ann"_s)->hashedPassword(), hash);
    }

    void loadReplacesTheTableWithoutASignal()
    {
        SAuthenticationDb db;
        fill(db, {u"ann"_s});
        SAuthenticationDb other;
        fill(other, {u"bob"_s});
        QBuffer buffer;
        buffer.setData(saved(other));
        QSignalSpy added(&db, &SAuthenticationDb::added);
        QSignalSpy changed(&db, &SAuthenticationDb::changed);
        QSignalSpy removed(&db, &SAuthenticationDb::removed);
        QVERIFY(db.load(&buffer));
        QCOMPARE(db.users(), QList<QString>{u"bob"_s});
        QVERIFY(added.isEmpty());
        QVERIFY(changed.isEmpty());
        QVERIFY(removed.isEmpty());
    }

    void loadOfAnEmptyDocumentKeepsTheTable_data()
    {
        QTest::addColumn<QByteArray>("content");
        QTest::addColumn<bool>("isObject");
        QTest::newRow("nothing") << ""_ba << false;
        QTest::newRow("empty object") << "{}"_ba << true;
        QTest::newRow("no users") << R"({"users":[]})"_ba << true;
    }

    void loadOfAnEmptyDocumentKeepsTheTable()
    {
        QFETCH(QByteArray, content);
        QFETCH(bool, isObject);
        SAuthenticationDb db;
        fill(db, {u"ann"_s});
        const auto *before = db.value(u"ann"_s);
        QBuffer buffer(&content);
        if (!isObject)
            QTest::ignoreMessage(QtDebugMsg, noObject);
        QVERIFY(!db.load(&buffer));
        QCOMPARE(db.users(), QList<QString>{u"ann"_s});
        QCOMPARE(db.value(u"ann"_s), before);
    }

    void loadOfADeviceThatDoesNotOpenKeepsTheTable()
    {
        SAuthenticationDb db;
        fill(db, {u"ann"_s});
        QTemporaryDir dir;
        QFile missing(dir.filePath(u"missing.json"_s));
        QTest::ignoreMessage(QtDebugMsg, cannotOpenToRead);
        QVERIFY(!db.load(&missing));
        QVERIFY(db.contains(u"ann"_s));
    }

    void loadOfAFileCutAnywhereKeepsTheTable()
    {
        SAuthenticationDb source;
        fill(source, {u"ann"_s, u"ärger"_s});
        const QByteArray whole = saved(source);
        SAuthenticationDb db;
        fill(db, {u"bob"_s});
        // Without its last newline the document is still whole.
        for (qsizetype size = 0; size < whole.size() - 1; ++size) {
            QTest::ignoreMessage(QtDebugMsg, noObject);
            QBuffer buffer;
            buffer.setData(whole.first(size));
            QVERIFY2(!db.load(&buffer), qPrintable(u"cut at %1"_s.arg(size)));
            QCOMPARE(db.users(), QList<QString>{u"bob"_s});
        }
        QBuffer buffer;
        buffer.setData(whole.chopped(1));
        QVERIFY(db.load(&buffer));
        QVERIFY(db == source);
    }

    void fileWithAnyByteChangedIsReadWithoutHarm()
    {
        SAuthenticationDb source;
        fill(source, {u"ann"_s});
        const QByteArray whole = saved(source);
        qInstallMessageHandler([](QtMsgType, const QMessageLogContext &, const QString &) {});
        int atMostOne = 0;
        for (qsizetype at = 0; at < whole.size(); ++at) {
            for (const char byte : {'\0', '"', '{', ']', '\\', '\xff'}) {
                QByteArray damaged = whole;
                damaged[at] = byte;
                atMostOne += fromBytes(damaged).users().size() <= 1 ? 1 : 0;
            }
        }
        qInstallMessageHandler(nullptr);
        QCOMPARE(atMostOne, 6 * whole.size());
    }

    void twoConnectionsSendDifferentValuesForOnePassword()
    {
        SAuthenticationDb db;
        db.insert(new SUserData(u"ann"_s, u"secret"_s, u"/srv/ann"_s));
        const QByteArray stored = db.value(u"ann"_s)->hashedPassword();
        // printf '%s{3f2504e0-4f89-41d3-9a0c-0305e82c3301}' STORED | sha512sum, and so on.
        QCOMPARE(
            Session(u"{3f2504e0-4f89-41d3-9a0c-0305e82c3301}"_s).generateHashedPassword(stored),
            "e96cc80f5efba1438c1fa6d040b4404c9ca5fc4df96c9d9cef0929d5827ef61e"
            "48c9a699ee279904a47d15390624a40d499cfe19812ee5968f62e459961e058e"_ba);
        QCOMPARE(
            Session(u"{9b1deb4d-3b7d-4bad-9bdd-2b0d7b3dcb6d}"_s).generateHashedPassword(stored),
            "60c9b2998384e82b98af25c8bf3a1bc0caed6731c29df9175941bea32b105965"
            "e9ab8e954bb332980186d7ab00785a94bfb54a4ce866d6e24d0a546acda8923c"_ba);
    }

    void manyUsersAreSavedAndReadBack()
    {
        SAuthenticationDb db;
        for (int i = 0; i < 5'000; ++i)
            db.insert(new SUserData(u"user%1"_s.arg(i), "00"_ba, u"/srv"_s));
        QBuffer buffer;
        QVERIFY(db.save(&buffer));
        QVERIFY(SAuthenticationDb::fromDevice(&buffer) == db);
    }

    void threadsShareOneTable()
    {
        SAuthenticationDb db;
        fill(db, {u"fixed"_s});
        std::atomic_bool stop = false;
        std::atomic_int wrong = 0;
        const auto read = [&] {
            while (!stop) {
                const auto shared = db.sharedUser(u"guest"_s);
                if (shared && shared->homeFolder() != u"/srv/guest"_s)
                    ++wrong;
                if (!db.contains(u"fixed"_s) || !db.users().contains(u"fixed"_s))
                    ++wrong;
                SAuthenticationDb copy(db);
                if (!copy.users().contains(u"fixed"_s))
                    ++wrong;
            }
        };
        std::thread first(read);
        std::thread second(read);
        for (int i = 0; i < 2'000; ++i) {
            db.insert(user(u"guest"_s).clone());
            if (!db.remove(u"guest"_s))
                ++wrong;
        }
        stop = true;
        first.join();
        second.join();
        QCOMPARE(wrong.load(), 0);
    }

    void crosswiseAssignmentAndComparisonDoNotBlock()
    {
        SAuthenticationDb a;
        SAuthenticationDb b;
        fill(a, {u"ann"_s});
        fill(b, {u"bob"_s});
        const auto work = [](SAuthenticationDb *to, SAuthenticationDb *from) {
            for (int i = 0; i < 5'000; ++i) {
                *to = *from;
                (void)(*to == *from);
            }
        };
        std::thread first(work, &a, &b);
        std::thread second(work, &b, &a);
        first.join();
        second.join();
        QCOMPARE(a.users().size(), 1);
        QCOMPARE(b.users().size(), 1);
    }
};

QTEST_GUILESS_MAIN(tst_SAuthenticationDb)
#include "tst_sauthenticationdb.moc"
