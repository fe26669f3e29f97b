// SPDX-License-Identifier: MIT
// Sessions under a scripted client: the login, the replies byte for byte, the users changing.
#include <brixlib/foundation/sdatastream.h>
#include <brixlib/protocol/commands/scommandcommandlist.h>
#include <brixlib/protocol/pluggables/spluggablestring.h>
#include <brixlib/protocol/sconcretecommand.h>
#include <brixlib/protocol/server/sserverbase.h>
#include <brixlib/protocol/socket/stcpsocket.h>

#include <shared/rawclient.h>
#include <shared/sessionhost.h>

#include <QtTest/QSignalSpy>

#include <atomic>

using namespace Talverine;
using namespace Qt::StringLiterals;

namespace {

// Opens what only derived classes may use.
class ProbeServer : public SServerBase
{
public:
    using SServerBase::absoluteToNetworkPath;
    using SServerBase::connectionCommandVersion;
    using SServerBase::networkPathToAbsolute;
    using SServerBase::receivedCommand;
    using SServerBase::setCurrentPath;
    using SServerBase::setRootPath;
    using SServerBase::socket;
    using SServerBase::SServerBase;
    using SServerBase::supportedCommands;
};

// Gives back what it was given, and tells what it knows of the session.
class EchoPluggable : public SPluggable
{
public:
    explicit EchoPluggable(bool result)
        : m_result(result)
    {
    }

    bool execute(const QByteArray &params, QByteArray &output,
                 const SPluggableEnvironment &environment) override
    {
        output = params + '|' + environment.user()->username().toUtf8() + '|' +
                 (environment.documentRootEnabled() ? "root" : "plain") + '|' +
                 environment.value(u"serverName"_s).toString().toUtf8();
        return m_result;
    }

private:
    const bool m_result;
};

// Answers with the version that this client speaks. Null if its result is negative.
class Greet : public SConcreteCommand<Greet>
{
public:
    Greet()
        : SConcreteCommand(SCommandId(Wire::word("gret")))
    {
    }
    bool operator==(const Greet &) const = default;
    bool isNull() const override { return result < 0; }

    qint32 result = 0;

private:
    friend SConcreteCommand;
    void readFields(QDataStream &stream) { stream >> result; }
    void writeFields(QDataStream &stream) const { stream << result; }
};

class GreetServer : public SServerBase
{
public:
    GreetServer(qint64 descriptor, Interfaces::ISAuthenticationDb *db)
        : SServerBase(descriptor, db)
    {
        registerCommand(new Greet);
    }

protected:
    bool executeCommand(SCommand *command) override
    {
        if (command->id() != Greet().id())
            return SServerBase::executeCommand(command);
        const auto version = static_cast<quint32>(connectionCommandVersion(command));
        return writeWord(socket(), version) && static_cast<Greet *>(command)->result == 1;
    }
};

// Counts how often its hash is asked for.
class WatchedHash final : public SUserData
{
public:
    WatchedHash(const SUserData &user, std::atomic_int *looks)
        : SUserData(user)
        , m_looks(looks)
    {
    }
    QByteArray hashedPassword() const override
    {
        ++*m_looks;
        return SUserData::hashedPassword();
    }

private:
    std::atomic_int *m_looks;
};

// A table that is not the stock one: its only user never changes.
class OneUser : public Interfaces::ISAuthenticationDb
{
public:
    explicit OneUser(const SUserData &user)
        : m_user(user)
    {
    }

    void clear() override {}
    bool isEmpty() const override { return false; }
    bool contains(const QString &username) const override { return username == m_user.username(); }
    void insert(Interfaces::ISUser *) override {}
    bool remove(const QString &) override { return false; }
    const Interfaces::ISUser *value(const QString &username) const override
    {
        return contains(username) ? &m_user : nullptr;
    }
    QList<QString> users() const override { return {m_user.username()}; }
    bool save(QIODevice *) override { return false; }
    bool load(QIODevice *) override { return false; }
    OneUser *clone() const override { return new OneUser(m_user); }
    bool isNull() const override { return false; }
    bool equalsTo(const Interfaces::IEquatable *other) const override { return other == this; }

private:
    const SUserData m_user;
};

constexpr auto kNotLoggedIn = "SServerBase::innerExecuteCommand: not authenticated error!";

const QByteArray kStreamVersion20 = RawBytes::command("strv", RawBytes::i32(20));
// Accepted, the server's own version, completed.
const QByteArray kStreamVersionReply = RawBytes::ack() + RawBytes::u32(20) + RawBytes::ack();

QByteArray accepted(const QByteArray &reply)
{
    return RawBytes::ack() + reply + RawBytes::ack();
}

const QByteArray kIAmAlice = accepted(RawBytes::frame(RawBytes::text(u"alice")));
const QByteArray kIAmBob = accepted(RawBytes::frame(RawBytes::text(u"bob")));

} // namespace

class tst_SServerBase : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void freshServerHasItsDefaults()
    {
        ProbeServer server(0);
        QVERIFY(server.isNull());
        QCOMPARE(server.timeout(), 10000);
        QCOMPARE(server.currentUser(), QString());
        QVERIFY(!server.serverName().isEmpty());
        QVERIFY(!server.isDocumentRootEnabled());
        QVERIFY(server.authenticationDb());
        QVERIFY(server.authenticationDb()->isEmpty());
        QVERIFY(server.pluggableList().isEmpty());
        QVERIFY(server.peerAddress().isNull());
        const QList<SCommandId> expected{
            CommandIds::kCommandList,   CommandIds::kAuthentication, CommandIds::kServerName,
            CommandIds::kWhoAmI,        CommandIds::kStreamVersion,  CommandIds::kPluggable,
            CommandIds::kPluggableList, CommandIds::kClientDevice,   CommandIds::kLinkTest};
        QCOMPARE(server.supportedCommands(), expected);
    }

    void descriptorZeroDoesNotStart()
    {
        SServerBase server(0, nullptr);
        QSignalSpy finished(&server, &SServerBase::finished);
        QSignalSpy started(&server, &SServerBase::started);
        server.init();
        QCOMPARE(finished.size(), 1);
        QCOMPARE(finished.at(0).at(0).value<SimpleWorkerError>(), SimpleWorkerError::InitError);
        QCOMPARE(started.size(), 0);
    }

    void aDescriptorThatIsNoSocketDoesNotStart()
    {
        SServerBase server(1 << 30);
        QSignalSpy finished(&server, &SServerBase::finished);
        QSignalSpy told(&server, &SServerBase::connectionInfo);
        server.init();
        QCOMPARE(finished.size(), 1);
        QCOMPARE(finished.at(0).at(0).value<SimpleWorkerError>(), SimpleWorkerError::InitError);
        QVERIFY(told.isEmpty());
        QVERIFY(server.peerAddress().isNull());
    }

    void theSocketHasTheOptionsOfTheProtocol()
    {
        SServerController controller;
        qint64 waiting = 0;
        connect(&controller, &SServerController::newConnection, this,
                [&](qint64 descriptor) { waiting = descriptor; });
        QVERIFY(controller.listen(QHostAddress(QHostAddress::LocalHost)));
        RawClient client;
        QVERIFY(client.open(controller.serverPort()));
        QTRY_VERIFY(waiting != 0);
        ProbeServer server(waiting);
        server.init();
        QVERIFY(!server.isNull());
        QCOMPARE(server.socket()->parent(), &server);
        const auto option = [&](QAbstractSocket::SocketOption name) {
            return server.socket()->socketOption(name).toInt();
        };
        // Systems may give more than was asked for.
        QCOMPARE_GE(option(QAbstractSocket::SendBufferSizeSocketOption), 262144);
        QCOMPARE_GE(option(QAbstractSocket::ReceiveBufferSizeSocketOption), 262144);
        QCOMPARE(option(QAbstractSocket::KeepAliveOption), 1);
        QCOMPARE(option(QAbstractSocket::LowDelayOption), 1);
    }

    void documentRootIsStoredAndTold()
    {
        SServerBase server(0);
        QSignalSpy told(&server, &SServerBase::documentRootEnabled);
        server.enableDocumentRoot(true);
        QVERIFY(server.isDocumentRootEnabled());
        server.enableDocumentRoot(false);
        QVERIFY(!server.isDocumentRootEnabled());
        QCOMPARE(told, (QList<QVariantList>{{true}, {false}}));
    }

    void nullDatabaseIsReplacedByAnEmptyOne()
    {
        SAuthenticationDb users;
        SServerBase server(0, &users);
        QCOMPARE(server.authenticationDb(), &users);
        server.setAuthenticationDb(nullptr);
        QVERIFY(server.authenticationDb());
        QVERIFY(server.authenticationDb() != &users);
        QCOMPARE(server.authenticationDb()->parent(), &server);
    }

    void pluggablesAreListedReplacedAndWithdrawn()
    {
        SServerBase server(0);
        auto *first = new EchoPluggable(true);
        server.addPluggable(u"echo"_s, first);
        QCOMPARE(first->command(), u"echo"_s);
        QCOMPARE(first->parent(), &server);
        auto *second = new EchoPluggable(false);
        server.addPluggable(u"echo"_s, second);
        server.addPluggable(u"nothing"_s, nullptr);
        QList<QString> names = server.pluggableList();
        names.sort();
        QCOMPARE(names, (QList<QString>{u"echo"_s, u"nothing"_s}));
        server.delPluggable(u"echo"_s);
        QCOMPARE(server.pluggableList(), QList<QString>{u"nothing"_s});
        QCOMPARE(second->parent(), &server);
    }

    void connectionVersionIsTheSmallerOfBoth()
    {
        ProbeServer server(0);
        SCommandCommandList list;
        QCOMPARE(server.connectionCommandVersion(&list), 0x00020000);
        list.setVersion(0x00010000);
        QCOMPARE(server.connectionCommandVersion(&list), 0x00010000);
        list.setVersion(0x00030000);
        QCOMPARE(server.connectionCommandVersion(&list), 0x00020000);
        list.setVersion(-5);
        QCOMPARE(server.connectionCommandVersion(&list), -5);
        QCOMPARE(server.connectionCommandVersion(nullptr), 0);
        Greet unregistered;
        QCOMPARE(server.connectionCommandVersion(&unregistered), 0);
        unregistered.setVersion(-5);
        QCOMPARE(server.connectionCommandVersion(&unregistered), -5);
    }

    void networkPathsFollowTheDocumentRoot_data()
    {
        QTest::addColumn<bool>("documentRoot");
        QTest::addColumn<QString>("path");
        QTest::addColumn<QString>("root");
        QTest::addColumn<QString>("absolute");
        QTest::newRow("absolute, on") << true << u"/a"_s << u"/root"_s << u"/root/a"_s;
        QTest::newRow("absolute, off: outside the jail")
            << false << u"/a"_s << u"/root"_s << QString();
        QTest::newRow("inside, off") << false << u"/root/a"_s << u"/root"_s << u"/root/a"_s;
        QTest::newRow("the root itself, on") << true << u"/"_s << u"/root"_s << u"/root"_s;
        QTest::newRow("above the root, on") << true << u"/../x"_s << u"/root"_s << QString();
        QTest::newRow("percent signs, on") << true << u"/%1/%2"_s << u"/50%2"_s << u"/50%2/%1/%2"_s;
        QTest::newRow("no root, on") << true << u"/a"_s << QString() << u"/a"_s;
    }

    void networkPathsFollowTheDocumentRoot()
    {
        QFETCH(bool, documentRoot);
        QFETCH(QString, path);
        QFETCH(QString, root);
        ProbeServer server(0);
        server.enableDocumentRoot(documentRoot);
        QTEST(server.networkPathToAbsolute(path, root), "absolute");
    }

    void relativeNetworkPathsStartAtTheCurrentPath()
    {
        QTemporaryDir folder;
        QVERIFY(QDir(folder.path()).mkpath(u"inner"_s));
        ProbeServer server(0);
        QVERIFY(server.setRootPath(folder.path()));
        QVERIFY(server.setCurrentPath(u"inner"_s, false));
        for (const bool documentRoot : {false, true}) {
            server.enableDocumentRoot(documentRoot);
            QCOMPARE(server.networkPathToAbsolute(u"x"_s, server.rootPath()),
                     folder.path() + u"/inner/x"_s);
            QCOMPARE(server.networkPathToAbsolute(u"../../x"_s, server.rootPath()), QString());
        }
    }

    void localPathsAreToldRelativeToTheDocumentRoot_data()
    {
        QTest::addColumn<bool>("documentRoot");
        QTest::addColumn<QString>("path");
        QTest::addColumn<QString>("root");
        QTest::addColumn<QString>("network");
        QTest::newRow("inside, on") << true << u"/root/a/b"_s << u"/root"_s << u"/a/b"_s;
        QTest::newRow("inside, off") << false << u"/root/a/b"_s << u"/root"_s << u"/root/a/b"_s;
        QTest::newRow("the root itself") << true << u"/root"_s << u"/root"_s << u"/"_s;
        QTest::newRow("other case") << true << u"/ROOT/a"_s << u"/root"_s << u"/a"_s;
        QTest::newRow("outside") << true << u"/other"_s << u"/root"_s << QString();
        QTest::newRow("no root") << true << u"/a"_s << QString() << u"/a"_s;
        QTest::newRow("root of the file system") << true << u"/a"_s << u"/"_s << u"/a"_s;
    }

    void localPathsAreToldRelativeToTheDocumentRoot()
    {
        QFETCH(bool, documentRoot);
        QFETCH(QString, path);
        QFETCH(QString, root);
        ProbeServer server(0);
        server.enableDocumentRoot(documentRoot);
        QTEST(server.absoluteToNetworkPath(path, root), "network");
    }

    void greetsWithAUuidOfItsOwn()
    {
        SessionHost host;
        RawClient first;
        RawClient second;
        QVERIFY(first.open(host.port()) && first.readGreeting());
        QVERIFY(second.open(host.port()) && second.readGreeting());
        QVERIFY(first.uuid() != second.uuid());
        QVERIFY(first.staysQuiet(50));
    }

    void tellsThePeersAddress()
    {
        SessionHost host;
        QHostAddress address;
        host.prepare = [&](SServerBase *server) {
            connect(server, &SServerBase::connectionInfo, this,
                    [&](const QHostAddress &peer) { address = peer; });
        };
        RawClient client;
        QVERIFY(client.open(host.port()) && client.readGreeting());
        QTRY_COMPARE(address, QHostAddress(QHostAddress::LocalHost));
    }

    void bytesSentBeforeTheGreetingAreServed()
    {
        SServerController controller;
        qint64 waiting = 0;
        connect(&controller, &SServerController::newConnection, this,
                [&](qint64 descriptor) { waiting = descriptor; });
        QVERIFY(controller.listen(QHostAddress(QHostAddress::LocalHost)));
        RawClient client;
        QVERIFY(client.open(controller.serverPort()));
        client.send(RawBytes::command("srvn"));
        QTRY_VERIFY(waiting != 0);

        QTest::ignoreMessage(QtDebugMsg, kNotLoggedIn);
        QVERIFY(controller.serveNewConnection(new SServerBase(waiting), true));
        QVERIFY(client.readGreeting());
        QCOMPARE(client.read(8), RawBytes::ack() + RawBytes::nack());
        QVERIFY(client.endsHere());
    }

    void aLoginIsAnswered()
    {
        SessionHost host;
        QString user;
        AuthenticationStatus status = AuthenticationStatus::NotAuthenticated;
        SCommandId id;
        bool result = false;
        host.prepare = [&](SServerBase *server) {
            connect(server, &SServerBase::authenticationFinished, this,
                    [&](const QString &username, const AuthenticationStatus &value) {
                        user = username;
                        status = value;
                    });
            connect(server, &SServerBase::commandResult, this, [&](SCommandId command, bool value) {
                id = command;
                result = value;
            });
        };
        RawClient client;
        QVERIFY(client.openAndLogin(host.port(), u"alice"_s, u"secret"_s));
        QTRY_COMPARE(id, CommandIds::kAuthentication);
        QCOMPARE(user, u"alice"_s);
        QCOMPARE(status, AuthenticationStatus::Authenticated);
        QVERIFY(result);
    }

    void aUserNameInCapitalsLogsIn()
    {
        SessionHost host;
        RawClient client;
        QVERIFY(client.openAndLogin(host.port(), u"ALICE"_s, u"secret"_s));
        client.send(RawBytes::command("wami"));
        QCOMPARE(client.readLike(kIAmAlice), kIAmAlice);
    }

    void aStoredHashInCapitalsLogsIn()
    {
        SessionHost host;
        const QByteArray hash = SUserData::hashPassword(u"secret"_s).toUpper();
        QBuffer file;
        file.setData(R"({"users":[{"username":"alice","password":")" + hash +
                     R"(","homeFolder":")" + host.homeOf(u"alice"_s).toUtf8() + R"("}]})");
        host.users.clear();
        QVERIFY(host.users.load(&file));
        RawClient client;
        QVERIFY(client.openAndLogin(host.port(), u"alice"_s, u"secret"_s));
    }

    void theHashOfAUserWhoIsNotValidIsNotEvenLookedAt()
    {
        std::atomic_int looks = 0;
        SessionHost host;
        auto *closed =
            new WatchedHash(SUserData(u"closed"_s, u"secret"_s, host.homeOf(u"alice"_s)), &looks);
        host.users.insert(closed);
        RawClient client;
        QVERIFY(client.openAndLogin(host.port(), u"closed"_s, u"secret"_s));
        QCOMPARE_GT(looks.load(), 0);

        auto *disabled = new WatchedHash(*closed, &looks);
        disabled->setEnabled(false);
        host.users.insert(disabled);
        looks = 0;
        RawClient other;
        QVERIFY(other.open(host.port()) && other.readGreeting());
        other.sendLogin(u"closed"_s, u"secret"_s);
        QCOMPARE(other.read(8), RawBytes::ack() + RawBytes::u32(0));
        QCOMPARE(looks.load(), 0);
    }

    void theLoginIsToldBeforeTheStatusGoesOut()
    {
        SessionHost host;
        std::atomic_bool told = false;
        host.prepare = [&](SServerBase *server) {
            connect(
                server, &SServerBase::authenticationFinished, server, [&] { told = true; },
                Qt::DirectConnection);
        };
        RawClient client;
        QVERIFY(client.open(host.port()) && client.readGreeting());
        client.sendLogin(u"alice"_s, u"secret"_s);
        QCOMPARE(client.read(8), RawBytes::ack() + RawBytes::u32(1));
        QVERIFY(told);
        QCOMPARE(client.read(4), RawBytes::ack());
    }

    void aFailedLoginCostsASecondAndNotTheSession_data()
    {
        QTest::addColumn<QString>("user");
        QTest::addColumn<QString>("password");
        QTest::newRow("unknown user") << u"carol"_s << u"secret"_s;
        QTest::newRow("wrong password") << u"alice"_s << u"Secret"_s;
        QTest::newRow("missing home folder") << u"homeless"_s << u"secret"_s;
        QTest::newRow("empty home folder") << u"nowhere"_s << u"secret"_s;
        QTest::newRow("disabled user") << u"disabled"_s << u"secret"_s;
        QTest::newRow("no name") << QString() << u"secret"_s;
    }

    void aFailedLoginCostsASecondAndNotTheSession()
    {
        QFETCH(QString, user);
        QFETCH(QString, password);
        SessionHost host;
        QList<QVariantList> told;
        host.prepare = [&](SServerBase *server) {
            connect(server, &SServerBase::authenticationFinished, this,
                    [&](const QString &username, const AuthenticationStatus &status) {
                        told.append({username, static_cast<int>(status)});
                    });
        };
        host.users.insert(new SUserData(u"homeless"_s, u"secret"_s, host.homeOf(u"missing"_s)));
        host.users.insert(new SUserData(u"nowhere"_s, u"secret"_s, QString()));
        host.users.insert(new SUserData(u"disabled"_s, u"secret"_s, host.homeOf(u"alice"_s),
                                        QString(), QString(), true));
        RawClient client;
        QVERIFY(client.open(host.port()) && client.readGreeting());
        QElapsedTimer timer;
        timer.start();
        client.sendLogin(user, password);
        QCOMPARE(client.read(8), RawBytes::ack() + RawBytes::u32(0));
        QVERIFY2(timer.elapsed() < 900, "the status waited for the delay");
        QCOMPARE(client.read(4), RawBytes::ack());
        QVERIFY2(timer.elapsed() >= 1000, "the completion word did not wait");

        client.sendLogin(u"alice"_s, u"secret"_s);
        QCOMPARE(client.read(12), accepted(RawBytes::u32(1)));
        QTRY_COMPARE(told, (QList<QVariantList>{{user, 0}, {u"alice"_s, 1}}));
    }

    void theAnswerOfAnotherConnectionIsRefused()
    {
        SessionHost host;
        RawClient first;
        RawClient second;
        QVERIFY(first.open(host.port()) && first.readGreeting());
        QVERIFY(second.open(host.port()) && second.readGreeting());
        const QByteArray login = RawBytes::authentication(
            u"alice"_s, RawBytes::challengeAnswer(u"secret"_s, first.uuid()));
        second.send(login);
        QCOMPARE(second.read(8), RawBytes::ack() + RawBytes::u32(0));
        first.send(login);
        QCOMPARE(first.read(12), accepted(RawBytes::u32(1)));
    }

    void aSecondLoginLogsTheFirstUserOut()
    {
        SessionHost host;
        RawClient client;
        QVERIFY(client.openAndLogin(host.port(), u"alice"_s, u"secret"_s));
        client.sendLogin(u"bob"_s, u"builder"_s);
        QCOMPARE(client.read(12), accepted(RawBytes::u32(1)));
        client.send(RawBytes::command("wami"));
        QCOMPARE(client.readLike(kIAmBob), kIAmBob);
    }

    void aSecondLoginThatFailsLogsTheFirstUserOutToo()
    {
        SessionHost host;
        RawClient client;
        QVERIFY(client.openAndLogin(host.port(), u"alice"_s, u"secret"_s));
        client.sendLogin(u"bob"_s, u"wrong"_s);
        QCOMPARE(client.read(12), accepted(RawBytes::u32(0)));
        QTest::ignoreMessage(QtDebugMsg, kNotLoggedIn);
        client.send(RawBytes::command("wami"));
        QCOMPARE(client.read(8), RawBytes::ack() + RawBytes::nack());
        QVERIFY(client.endsHere());
    }

    void onlyALoginIsTakenFromAStranger_data()
    {
        QTest::addColumn<QByteArray>("frame");
        QTest::newRow("command list") << RawBytes::command("cmdl", {}, 0x00020000);
        QTest::newRow("server name") << RawBytes::command("srvn");
        QTest::newRow("who am I") << RawBytes::command("wami");
        QTest::newRow("stream version") << kStreamVersion20;
        QTest::newRow("pluggable")
            << RawBytes::command("plgb", RawBytes::text(u"echo") + RawBytes::array("x"));
        QTest::newRow("pluggable list") << RawBytes::command("plgl");
        QTest::newRow("link test")
            << RawBytes::command("lnkt", RawBytes::i32(1) + RawBytes::i32(1));
        QTest::newRow("client device") << RawBytes::command("cldv", RawBytes::text(u"file"));
    }

    void onlyALoginIsTakenFromAStranger()
    {
        QFETCH(QByteArray, frame);
        SessionHost host;
        RawClient client;
        QVERIFY(client.open(host.port()) && client.readGreeting());
        QTest::ignoreMessage(QtDebugMsg, kNotLoggedIn);
        client.send(frame);
        QCOMPARE(client.read(8), RawBytes::ack() + RawBytes::nack());
        QVERIFY(client.endsHere());
    }

    void aUserWhoIsChangedIsRefusedAtTheNextCommand_data()
    {
        QTest::addColumn<QString>("change");
        QTest::newRow("removed") << u"removed"_s;
        QTest::newRow("replaced") << u"replaced"_s;
        QTest::newRow("table cleared") << u"cleared"_s;
    }

    void aUserWhoIsChangedIsRefusedAtTheNextCommand()
    {
        QFETCH(QString, change);
        SessionHost host;
        RawClient client;
        QVERIFY(client.openAndLogin(host.port(), u"alice"_s, u"secret"_s));
        client.send(RawBytes::command("wami"));
        QCOMPARE(client.readLike(kIAmAlice), kIAmAlice);
        if (change == u"removed")
            QVERIFY(host.users.remove(u"alice"_s));
        else if (change == u"replaced")
            host.addUser(u"alice"_s, u"another"_s);
        else
            host.users.clear();
        QTest::ignoreMessage(QtDebugMsg, kNotLoggedIn);
        client.send(RawBytes::command("wami"));
        QCOMPARE(client.read(8), RawBytes::ack() + RawBytes::nack());
        QVERIFY(client.endsHere());
    }

    void aDatabaseThatIsReplacedStaysConnected_data()
    {
        QTest::addColumn<bool>("oldOne");
        QTest::newRow("a change of the new one") << false;
        QTest::newRow("a change of the old one") << true;
    }

    // Who is known is asked of the new one, whichever speaks.
    void aDatabaseThatIsReplacedStaysConnected()
    {
        QFETCH(bool, oldOne);
        SAuthenticationDb others;
        SessionHost host;
        RawClient client;
        QVERIFY(client.openAndLogin(host.port(), u"alice"_s, u"secret"_s));
        QMetaObject::invokeMethod(
            host.session, [&] { host.session->setAuthenticationDb(&others); },
            Qt::BlockingQueuedConnection);
        client.send(RawBytes::command("wami"));
        QCOMPARE(client.readLike(kIAmAlice), kIAmAlice);
        if (oldOne)
            QVERIFY(host.users.remove(u"bob"_s));
        else
            others.clear();
        QTest::ignoreMessage(QtDebugMsg, kNotLoggedIn);
        client.send(RawBytes::command("wami"));
        QCOMPARE(client.read(8), RawBytes::ack() + RawBytes::nack());
        QVERIFY(client.endsHere());
    }

    void changesOfOtherUsersAreNothingToTheSession()
    {
        SessionHost host;
        RawClient client;
        QVERIFY(client.openAndLogin(host.port(), u"alice"_s, u"secret"_s));
        QVERIFY(host.users.remove(u"bob"_s));
        host.addUser(u"carol"_s, u"new"_s);
        client.send(RawBytes::command("wami"));
        QCOMPARE(client.readLike(kIAmAlice), kIAmAlice);
    }

    // A client that never lets the event loop of the session turn must not keep a removed user in.
    void aRemovedUserIsRefusedAmidPipelinedCommands()
    {
        SessionHost host;
        RawClient client;
        QVERIFY(client.openAndLogin(host.port(), u"alice"_s, u"secret"_s));
        const QByteArray command = RawBytes::command("wami");
        constexpr int kCommands = 20000;
        QTest::ignoreMessage(QtDebugMsg, kNotLoggedIn);
        client.send(command.repeated(kCommands));
        QCOMPARE(client.readLike(kIAmAlice), kIAmAlice);
        QVERIFY(host.users.remove(u"alice"_s));
        QVERIFY(client.waitForEnd());
        const QByteArray rest = client.read(client.socket().bytesAvailable());
        QVERIFY(rest.endsWith(RawBytes::ack() + RawBytes::nack()));
        QVERIFY(rest.size() < kIAmAlice.size() * (kCommands - 1));
    }

    void commandListWithoutVersionsComesInTheOrderOfRegistration_data() { streamVersions(); }

    void commandListWithoutVersionsComesInTheOrderOfRegistration()
    {
        SessionHost host;
        RawClient client;
        QVERIFY(openAtStreamVersion(client, host));
        client.send(RawBytes::command("cmdl", {}, 0x00010000));
        QByteArray body = RawBytes::i32(9);
        for (const char *id :
             {"cmdl", "auth", "srvn", "wami", "strv", "plgb", "plgl", "cldv", "lnkt"})
            body += RawBytes::idRecord(id);
        QCOMPARE(client.read(8 + 4 + body.size()), accepted(RawBytes::frame(body)));
        QVERIFY(client.staysQuiet(20));
    }

    void commandListWithVersionsMatchesByPosition_data() { streamVersions(); }

    void commandListWithVersionsMatchesByPosition()
    {
        SessionHost host;
        RawClient client;
        QVERIFY(openAtStreamVersion(client, host));
        client.send(RawBytes::command("cmdl", {}, 0x00020000));
        QCOMPARE(client.read(4), RawBytes::ack());
        QByteArray body = client.readFrame();
        QCOMPARE(body.size(), 4 + 9 * 12 + 4 + 9 * 4);
        QCOMPARE(body.left(4), RawBytes::i32(9));
        QCOMPARE(body.mid(4 + 9 * 12, 4), RawBytes::i32(9));
        QHash<QByteArray, QByteArray> versions;
        for (int i = 0; i < 9; ++i) {
            const QByteArray record = body.mid(4 + 12 * i, 12);
            QCOMPARE(record.left(8), "scmi" + RawBytes::u32(0x00010000));
            versions.insert(record.mid(8), body.mid(8 + 9 * 12 + 4 * i, 4));
        }
        QHash<QByteArray, QByteArray> expected;
        for (const char *id : {"auth", "srvn", "wami", "strv", "plgb", "plgl", "cldv", "lnkt"})
            expected.insert(id, RawBytes::u32(0x00010000));
        expected.insert("cmdl", RawBytes::u32(0x00020000));
        QCOMPARE(versions, expected);
        QCOMPARE(client.read(4), RawBytes::ack());
    }

    void serverNameIsAnswered_data() { streamVersions(); }

    void serverNameIsAnswered()
    {
        SessionHost host;
        host.prepare = [](SServerBase *server) { server->setServerName(u"Unit 7 ü"_s); };
        RawClient client;
        QVERIFY(openAtStreamVersion(client, host));
        client.send(RawBytes::command("srvn"));
        QCOMPARE(client.read(32).toHex(), QByteArray("a5a5a5a5"
                                                     "00000014"
                                                     "00000010"
                                                     "0055006e00690074002000370020"
                                                     "00fc"
                                                     "a5a5a5a5"));
    }

    void whoAmIIsAnswered_data() { streamVersions(); }

    void whoAmIIsAnswered()
    {
        SessionHost host;
        RawClient client;
        QVERIFY(openAtStreamVersion(client, host));
        client.send(RawBytes::command("wami"));
        QCOMPARE(client.read(26).toHex(), QByteArray("a5a5a5a5"
                                                     "0000000e"
                                                     "0000000a"
                                                     "0061006c006900630065"
                                                     "a5a5a5a5"));
    }

    void streamVersionIsAnsweredByTheServersOwn_data()
    {
        QTest::addColumn<qint32>("version");
        QTest::newRow("17") << 17;
        QTest::newRow("20") << 20;
        QTest::newRow("newer than any") << 99;
        QTest::newRow("older than any") << 0;
        QTest::newRow("negative") << -7;
        QTest::newRow("largest") << std::numeric_limits<qint32>::max();
    }

    void streamVersionIsAnsweredByTheServersOwn()
    {
        QFETCH(qint32, version);
        SessionHost host;
        RawClient client;
        QVERIFY(client.openAndLogin(host.port(), u"alice"_s, u"secret"_s));
        client.send(RawBytes::command("strv", RawBytes::i32(version)));
        QCOMPARE(client.read(12), kStreamVersionReply);
        client.send(RawBytes::command("plgl"));
        QCOMPARE(client.read(16), accepted(RawBytes::frame(RawBytes::i32(0))));
    }

    void theSmallerStreamVersionIsUsed_data()
    {
        QTest::addColumn<qint32>("asked");
        QTest::addColumn<int>("used");
        QTest::newRow("17") << 17 << 17;
        QTest::newRow("19") << 19 << 19;
        QTest::newRow("20") << 20 << 20;
        QTest::newRow("21") << 21 << 20;
    }

    void theSmallerStreamVersionIsUsed()
    {
        QFETCH(qint32, asked);
        QFETCH(int, used);
        SessionHost host;
        std::atomic_int version = 0;
        host.prepare = [&](SServerBase *server) {
            connect(
                server, &SServerBase::commandResult, server,
                [&] { version = SDataStream::defaultVersion(); }, Qt::DirectConnection);
        };
        RawClient client;
        QVERIFY(client.openAndLogin(host.port(), u"alice"_s, u"secret"_s));
        QTRY_COMPARE(version, 17);
        client.send(RawBytes::command("strv", RawBytes::i32(asked)));
        QCOMPARE(client.read(12), kStreamVersionReply);
        QTRY_COMPARE(version, used);
        // Other connections have a version of their own.
        QVERIFY(RawClient().openAndLogin(host.port(), u"bob"_s, u"builder"_s));
        QTRY_COMPARE(version, 17);
    }

    void pluggablesAreCalled_data() { streamVersions(); }

    void pluggablesAreCalled()
    {
        SessionHost host;
        host.prepare = [](SServerBase *server) {
            server->setServerName(u"unit"_s);
            server->enableDocumentRoot(true);
            server->addPluggable(u"echo"_s, new EchoPluggable(true));
        };
        RawClient client;
        QVERIFY(openAtStreamVersion(client, host));
        client.send(RawBytes::command("plgb", RawBytes::text(u"echo") + RawBytes::array("par")));
        const QByteArray body = RawBytes::array("par|alice|root|unit") + '\1';
        QCOMPARE(client.read(12 + body.size()), accepted(RawBytes::frame(body)));
        client.send(RawBytes::command("plgl"));
        const QByteArray names = RawBytes::i32(1) + RawBytes::text(u"echo");
        QCOMPARE(client.read(12 + names.size()), accepted(RawBytes::frame(names)));
    }

    void theLaterPluggableOfANameAnswers()
    {
        SessionHost host;
        host.prepare = [](SServerBase *server) {
            server->addPluggable(u"ink"_s, new SPluggableString(u"cyan"_s));
            server->addPluggable(u"ink"_s, new SPluggableString(u"black"_s));
        };
        RawClient client;
        QVERIFY(client.openAndLogin(host.port(), u"alice"_s, u"secret"_s));
        client.send(RawBytes::command("plgb", RawBytes::text(u"ink") + RawBytes::array({})));
        const QByteArray body = RawBytes::array("STRGblack") + '\1';
        QCOMPARE(client.read(12 + body.size()), accepted(RawBytes::frame(body)));
    }

    void aPluggableThatFailsDoesNotEndTheSession_data()
    {
        QTest::addColumn<QString>("name");
        QTest::addColumn<QByteArray>("output");
        QTest::newRow("gives false") << u"failing"_s << QByteArray("p|alice|plain|unit");
        QTest::newRow("unknown name") << u"unknown"_s << QByteArray();
        QTest::newRow("null object") << u"nothing"_s << QByteArray();
        QTest::newRow("deleted object") << u"deleted"_s << QByteArray();
    }

    void aPluggableThatFailsDoesNotEndTheSession()
    {
        QFETCH(QString, name);
        QFETCH(QByteArray, output);
        SessionHost host;
        QVariantList told;
        host.prepare = [&](SServerBase *server) {
            server->setServerName(u"unit"_s);
            server->addPluggable(u"failing"_s, new EchoPluggable(false));
            server->addPluggable(u"nothing"_s, nullptr);
            auto *deleted = new EchoPluggable(true);
            server->addPluggable(u"deleted"_s, deleted);
            delete deleted;
            connect(server, &SServerBase::pluggableResult, this,
                    [&](const QString &command, bool result, const QByteArray &params,
                        const QByteArray &bytes) {
                        told = {command, result, params, bytes};
                    });
        };
        RawClient client;
        QVERIFY(client.openAndLogin(host.port(), u"alice"_s, u"secret"_s));
        client.send(RawBytes::command("plgb", RawBytes::text(name) + RawBytes::array("p")));
        QCOMPARE(client.read(4), RawBytes::ack());
        const QByteArray body = client.readFrame();
        // An output that was never set may travel as null or as empty.
        const bool isExpected = body == RawBytes::array(output) + '\0' ||
                                (output.isEmpty() && body == RawBytes::u32(0xFFFFFFFF) + '\0');
        QVERIFY2(isExpected, body.toHex().constData());
        QCOMPARE(client.read(4), RawBytes::ack());
        QTRY_COMPARE(told, (QVariantList{name, false, QByteArray("p"), output}));
        client.send(RawBytes::command("wami"));
        QCOMPARE(client.readLike(kIAmAlice), kIAmAlice);
    }

    void aBodyOfExactlyTheLimitIsRead()
    {
        SessionHost host;
        host.prepare = [](SServerBase *server) {
            server->setServerName(u"unit"_s);
            server->addPluggable(u"echo"_s, new EchoPluggable(true));
        };
        RawClient client;
        QVERIFY(client.openAndLogin(host.port(), u"alice"_s, u"secret"_s));
        constexpr int kLimit = 1048576;
        constexpr int kOverhead = 20 + 12 + 4;
        const QByteArray params(kLimit - kOverhead, 'x');
        const QByteArray frame =
            RawBytes::command("plgb", RawBytes::text(u"echo") + RawBytes::array(params));
        QCOMPARE(frame.size(), 4 + kLimit);
        client.send(frame);
        QCOMPARE(client.read(4), RawBytes::ack());
        QCOMPARE(client.readFrame(), RawBytes::array(params + "|alice|plain|unit") + '\1');
        QCOMPARE(client.read(4), RawBytes::ack());
    }

    void anyVersionAndIdRecordVersionIsTaken()
    {
        SessionHost host;
        RawClient client;
        QVERIFY(client.openAndLogin(host.port(), u"alice"_s, u"secret"_s));
        for (const quint32 version : {0u, 1u, 0x7FFFFFFFu, 0x80000000u, 0xFFFFFFFFu}) {
            client.send(RawBytes::command("wami", {}, version));
            QCOMPARE(client.readLike(kIAmAlice), kIAmAlice);
            client.send(RawBytes::frame("scmd" + RawBytes::u32(0x00010000) + "scmi" +
                                        RawBytes::u32(version) + "wami"));
            QCOMPARE(client.readLike(kIAmAlice), kIAmAlice);
        }
    }

    void aNegativeVersionGetsTheOldCommandList()
    {
        SessionHost host;
        RawClient client;
        QVERIFY(client.openAndLogin(host.port(), u"alice"_s, u"secret"_s));
        client.send(RawBytes::command("cmdl", {}, 0x80000000u));
        QCOMPARE(client.read(4), RawBytes::ack());
        QCOMPARE(client.readFrame().size(), 4 + 9 * 12);
    }

    void spareBytesBehindTheFieldsAreIgnored()
    {
        SessionHost host;
        RawClient client;
        QVERIFY(client.openAndLogin(host.port(), u"alice"_s, u"secret"_s));
        client.send(RawBytes::command("wami", "spare"));
        QCOMPARE(client.readLike(kIAmAlice), kIAmAlice);
    }

    void pipelinedCommandsAreAnsweredInOrder()
    {
        SessionHost host;
        host.prepare = [](SServerBase *server) { server->setServerName(u"unit"_s); };
        RawClient client;
        QVERIFY(client.open(host.port()) && client.readGreeting());
        client.send(RawBytes::authentication(
                        u"alice"_s, RawBytes::challengeAnswer(u"secret"_s, client.uuid())) +
                    RawBytes::command("srvn") + kStreamVersion20 + RawBytes::command("wami"));
        const QByteArray expected =
            accepted(RawBytes::u32(1)) + accepted(RawBytes::frame(RawBytes::text(u"unit"))) +
            kStreamVersionReply + accepted(RawBytes::frame(RawBytes::text(u"alice")));
        QCOMPARE(client.read(expected.size()), expected);
    }

    void aFrameMayComeByteByByte()
    {
        SessionHost host;
        RawClient client;
        QVERIFY(client.openAndLogin(host.port(), u"alice"_s, u"secret"_s));
        const QByteArray frame = RawBytes::command("wami");
        for (const char byte : frame) {
            client.send(QByteArray(1, byte));
            QVERIFY(byte == frame.back() || client.staysQuiet(2));
        }
        QCOMPARE(client.readLike(kIAmAlice), kIAmAlice);
    }

    // The words of an exchange are small writes in a row. Held back for the acknowledgement of the
    // one before, each exchange would take 40 ms and more.
    void noWordWaitsForAnAcknowledgement()
    {
        SessionHost host;
        RawClient client;
        QVERIFY(client.openAndLogin(host.port(), u"alice"_s, u"secret"_s));
        QElapsedTimer timer;
        timer.start();
        for (int i = 0; i < 100; ++i) {
            client.send(RawBytes::command("wami"));
            QCOMPARE(client.readLike(kIAmAlice), kIAmAlice);
        }
        QVERIFY2(timer.elapsed() < 2000, qPrintable(u"took %1 ms"_s.arg(timer.elapsed())));
    }

    // What arrives while a failed login is being held back is answered afterwards.
    void commandsSentDuringTheDelayAreNotLost()
    {
        SessionHost host;
        RawClient client;
        QVERIFY(client.open(host.port()) && client.readGreeting());
        client.sendLogin(u"alice"_s, u"wrong"_s);
        QCOMPARE(client.read(8), RawBytes::ack() + RawBytes::u32(0));
        client.sendLogin(u"alice"_s, u"secret"_s);
        QCOMPARE(client.read(4), RawBytes::ack());
        QCOMPARE(client.read(12), accepted(RawBytes::u32(1)));
    }

    void busyAndIdleFrameEachRun()
    {
        SessionHost host;
        QList<QString> log;
        host.prepare = [&](SServerBase *server) {
            connect(server, &SServerBase::busy, this, [&] { log += u"busy"_s; });
            connect(server, &SServerBase::idle, this, [&] { log += u"idle"_s; });
            connect(server, &SServerBase::commandResult, this,
                    [&](SCommandId, bool success) { log += success ? u"ok"_s : u"failed"_s; });
        };
        RawClient client;
        QVERIFY(client.openAndLogin(host.port(), u"alice"_s, u"secret"_s));
        QTRY_COMPARE(log.size(), 3);
        QCOMPARE(log, (QList<QString>{u"busy"_s, u"ok"_s, u"idle"_s}));
        log.clear();
        client.send(RawBytes::u32(0));
        QCOMPARE(client.read(4), RawBytes::nack());
        QVERIFY(client.endsHere());
        QTRY_COMPARE(log.size(), 3);
        QCOMPARE(log, (QList<QString>{u"busy"_s, u"failed"_s, u"idle"_s}));
    }

    // A frame of which no command could be made is told by the id of the one before it in the run.
    void commandResultNamesTheCommand()
    {
        SessionHost host;
        QList<std::pair<SCommandId, bool>> results;
        host.prepare = [&](SServerBase *server) {
            connect(server, &SServerBase::commandResult, this, [&](SCommandId id, bool success) {
                results.append({id, success});
            });
        };
        RawClient client;
        QVERIFY(client.open(host.port()) && client.readGreeting());
        client.send(RawBytes::u32(0));
        QCOMPARE(client.read(4), RawBytes::nack());
        QTRY_COMPARE(results, (QList<std::pair<SCommandId, bool>>{{SCommandId(), false}}));

        results.clear();
        RawClient stranger;
        QVERIFY(stranger.open(host.port()) && stranger.readGreeting());
        QTest::ignoreMessage(QtDebugMsg, kNotLoggedIn);
        stranger.send(RawBytes::command("srvn"));
        QCOMPARE(stranger.read(8), RawBytes::ack() + RawBytes::nack());
        QTRY_COMPARE(results,
                     (QList<std::pair<SCommandId, bool>>{{CommandIds::kServerName, false}}));

        RawClient alice;
        QVERIFY(alice.openAndLogin(host.port(), u"alice"_s, u"secret"_s));
        QTRY_COMPARE(results.size(), 2);
        results.clear();
        alice.send(RawBytes::command("wami") + RawBytes::u32(0));
        QCOMPARE(alice.readLike(kIAmAlice), kIAmAlice);
        QCOMPARE(alice.read(4), RawBytes::nack());
        QTRY_COMPARE(results, (QList<std::pair<SCommandId, bool>>{{CommandIds::kWhoAmI, true},
                                                                  {CommandIds::kWhoAmI, false}}));
    }

    void aDerivedClassAddsCommands()
    {
        SAuthenticationDb *users = nullptr;
        SessionHost host(
            [&users](qint64 descriptor) { return new GreetServer(descriptor, users); });
        users = &host.users;
        RawClient client;
        QVERIFY(client.openAndLogin(host.port(), u"alice"_s, u"secret"_s));
        client.send(RawBytes::command("gret", RawBytes::i32(1), 0x00050000));
        QCOMPARE(client.read(12), accepted(RawBytes::u32(0x00010000)));
        client.send(RawBytes::command("wami"));
        QCOMPARE(client.readLike(kIAmAlice), kIAmAlice);
        client.send(RawBytes::command("gret", RawBytes::i32(0)));
        QCOMPARE(client.read(12), RawBytes::ack() + RawBytes::u32(0x00010000) + RawBytes::nack());
        QVERIFY(client.endsHere());
    }

    // Its id and its fields are whole, so only the command itself can tell.
    void aNullCommandIsRefused()
    {
        SAuthenticationDb *users = nullptr;
        SessionHost host(
            [&users](qint64 descriptor) { return new GreetServer(descriptor, users); });
        users = &host.users;
        RawClient client;
        QVERIFY(client.openAndLogin(host.port(), u"alice"_s, u"secret"_s));
        client.send(RawBytes::command("gret", RawBytes::i32(-1)));
        QCOMPARE(client.read(4), RawBytes::nack());
        QVERIFY(client.endsHere());
    }

    void aForeignDatabaseIsAsked()
    {
        SessionHost host;
        OneUser users(SUserData(u"alice"_s, u"secret"_s, host.homeOf(u"alice"_s)));
        host.prepare = [&](SServerBase *server) { server->setAuthenticationDb(&users); };
        RawClient client;
        QVERIFY(client.openAndLogin(host.port(), u"alice"_s, u"secret"_s));
        client.sendLogin(u"bob"_s, u"builder"_s);
        QCOMPARE(client.read(12), accepted(RawBytes::u32(0)));
    }

private:
    static void streamVersions()
    {
        QTest::addColumn<qint32>("streamVersion");
        QTest::newRow("stream version 17") << 17;
        QTest::newRow("stream version 20") << 20;
    }

    static bool openAtStreamVersion(RawClient &client, SessionHost &host)
    {
        QFETCH(qint32, streamVersion);
        if (!client.openAndLogin(host.port(), u"alice"_s, u"secret"_s))
            return false;
        if (streamVersion == 17)
            return true;
        client.send(RawBytes::command("strv", RawBytes::i32(streamVersion)));
        return client.read(12) == kStreamVersionReply;
    }
};

QTEST_GUILESS_MAIN(tst_SServerBase)
#include "tst_sserverbase.moc"
