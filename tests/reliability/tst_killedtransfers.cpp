// SPDX-License-Identifier: MIT
// Transfers whose client or whose server is killed at random moments: what is left on disk.
#include <fileservice/filetree.h>
#include <shared/eventwait.h>
#include <shared/faultproxy.h>
#include <shared/killedprocess.h>
#include <shared/seededrandom.h>
#include <shared/toolprocess.h>

#include <brixlib/protocol/users/sauthenticationdb.h>
#include <brixlib/protocol/users/suserdata.h>

#include <QtCore/QElapsedTimer>
#include <QtCore/QTemporaryDir>

using namespace Talverine;
using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

namespace {

constexpr int kRounds = 15;
constexpr qint64 kFileBytes = 16 * 1024 * 1024;

// Exit codes of the tool.
constexpr int kDone = 0;
constexpr int kProtocolFailure = 3;

const QByteArray kOlder = "what was there before";

//! "brix serve" on a free port for the user "ann".
class Server
{
public:
    explicit Server(const QString &users)
    {
        ToolProcess().prepare(&m_child.process(), {u"serve"_s, u"--users"_s, users});
    }

    [[nodiscard]] bool start()
    {
        return m_child.start() &&
               waitWithEvents([this] { return m_child.output().contains('\n'); });
    }
    KilledProcess &child() { return m_child; }

    QString url(const QString &path)
    {
        return u"brix://ann@%1/%2"_s.arg(QString::fromLatin1(authority()), path);
    }
    quint16 port() { return authority().split(':').last().toUShort(); }

private:
    QByteArray authority() { return m_child.output().split('\n').first().mid(13); }

    KilledProcess m_child;
};

void prepare(KilledProcess *child, const QStringList &arguments)
{
    ToolProcess tool;
    tool.password = u"secret"_s;
    tool.prepare(&child->process(), arguments);
}

} // namespace

class tst_KilledTransfers : public QObject
{
    Q_OBJECT

private:
    std::unique_ptr<QTemporaryDir> m_dir;
    QByteArray m_content;
    qint64 m_usualMs = 0; // what a transfer takes that nobody kills

    QString path(const QString &name) const { return m_dir->filePath(name); }
    QString users() const { return path(u"users.json"_s); }
    QString source() const { return path(u"source"_s); }
    QString home() const { return path(u"home"_s); }
    QString local() const { return path(u"local"_s); }

    //! An older file lies at both ends.
    void resetFolders() const
    {
        for (const QString &folder : {home(), local()}) {
            QDir(folder).removeRecursively();
            FileTree::write(folder + u"/file"_s, kOlder);
        }
    }

    QStringList putArguments(Server *server) const
    {
        return {u"put"_s, source(), server->url(u"file"_s)};
    }
    QStringList getArguments(Server *server) const
    {
        return {u"get"_s, server->url(u"file"_s), local() + u"/file"_s};
    }

    // Empty when a reader finds the older file or the new one, whole: what was broken off lies
    // under names that nobody asks for.
    QString wrongIn(const QString &folder) const
    {
        const QStringList names = FileTree::below(folder);
        for (const QString &name : names) {
            if (name.endsWith(u".part"_s) || name.startsWith(u".brix-"_s))
                continue;
            const QByteArray content = FileTree::read(folder + u'/' + name);
            if (name != u"file"_s || (content != kOlder && content != m_content))
                return u"%1 has %2 bytes"_s.arg(name, QString::number(content.size()));
        }
        if (!names.contains(u"file"_s))
            return u"the file is missing"_s;
        return names.size() > 2 ? u"left: "_s + names.join(u", ") : QString();
    }

    int run(const QStringList &arguments) const
    {
        ToolProcess tool;
        tool.password = u"secret"_s;
        return tool.run(arguments).exitCode;
    }

    std::chrono::milliseconds someTime(SeededRandom *random) const
    {
        return std::chrono::milliseconds(random->between(0, m_usualMs));
    }

private Q_SLOTS:
    void init()
    {
        m_dir = std::make_unique<QTemporaryDir>();
        m_content = FileTree::content(kFileBytes);
        QVERIFY(FileTree::write(source(), m_content));
        resetFolders();
        SAuthenticationDb db;
        db.insert(new SUserData(u"ann"_s, u"secret"_s, home()));
        QFile file(users());
        QVERIFY(db.save(&file));

        Server server(users());
        QVERIFY(server.start());
        QElapsedTimer timer;
        timer.start();
        QCOMPARE(run(putArguments(&server)), kDone);
        m_usualMs = timer.elapsed();
        QCOMPARE(FileTree::read(home() + u"/file"_s), m_content);
    }

    void cleanup() { m_dir.reset(); }

    void serverIsKilledDuringAPut()
    {
        SeededRandom random;
        int killed = 0;
        for (int round = 0; round < kRounds; ++round) {
            resetFolders();
            Server server(users());
            QVERIFY(server.start());
            KilledProcess client;
            prepare(&client, putArguments(&server));
            QVERIFY(client.start());
            QCOMPARE(server.child().killAfter(someTime(&random)), KilledProcess::End::Killed);
            QVERIFY(
                waitWithEvents([&] { return client.process().state() == QProcess::NotRunning; }));
            QCOMPARE(client.process().exitStatus(), QProcess::NormalExit);
            const bool done = client.process().exitCode() == kDone;
            if (!done)
                QCOMPARE(client.process().exitCode(), kProtocolFailure);
            QCOMPARE(wrongIn(home()), QString());
            if (done)
                QCOMPARE(FileTree::read(home() + u"/file"_s), m_content);
            killed += done ? 0 : 1;
        }
        qInfo("%d of %d transfers were broken off", killed, kRounds);
        QVERIFY(killed > 0);

        // What was left behind is in nobody's way.
        Server server(users());
        QVERIFY(server.start());
        QCOMPARE(run(putArguments(&server)), kDone);
        QCOMPARE(FileTree::read(home() + u"/file"_s), m_content);
    }

    // The last byte has left; of the word that would say so some bytes come, or none.
    void serverThatGoesBeforeItsLastWordIsALostConnection()
    {
        Server server(users());
        QVERIFY(server.start());
        FaultProxy proxy(server.port());
        const QStringList arguments{u"put"_s, source(),
                                    u"brix://ann@127.0.0.1:%1/file"_s.arg(proxy.port())};
        QCOMPARE(run(arguments), kDone);
        QVERIFY(proxy.waitForIdle(10s));
        const qint64 whole = proxy.record(0).toClient;
        for (const FlowFault fault : {FlowFault::Reset, FlowFault::Close}) {
            for (qint64 missing = 1; missing <= 4; ++missing) {
                resetFolders();
                proxy.setPlan({.toClient = {.faultAt = whole - missing, .fault = fault}});
                QCOMPARE(run(arguments), kProtocolFailure);
                QVERIFY(proxy.waitForIdle(10s));
                QVERIFY(proxy.record(proxy.count() - 1).hadFault);
                QCOMPARE(wrongIn(home()), QString());
            }
        }
        proxy.setPlan({});
        QCOMPARE(run(arguments), kDone);
    }

    void clientIsKilledDuringAPut()
    {
        SeededRandom random;
        Server server(users());
        QVERIFY(server.start());
        int killed = 0;
        for (int round = 0; round < kRounds; ++round) {
            resetFolders();
            KilledProcess client;
            prepare(&client, putArguments(&server));
            QVERIFY(client.start());
            const auto end = client.killAfter(someTime(&random));
            killed += end == KilledProcess::End::Killed ? 1 : 0;
            // The server that lives on clears away what it had begun.
            QVERIFY(waitWithEvents(
                [this] { return QDir(home()).entryList({u"*.part"_s}, QDir::Files).isEmpty(); }));
            QCOMPARE(wrongIn(home()), QString());
        }
        qInfo("%d of %d transfers were broken off", killed, kRounds);
        QVERIFY(killed > 0);
        QCOMPARE(run(putArguments(&server)), kDone);
        QCOMPARE(FileTree::read(home() + u"/file"_s), m_content);
    }

    void clientIsKilledDuringAGet()
    {
        SeededRandom random;
        Server server(users());
        QVERIFY(server.start());
        int killed = 0;
        for (int round = 0; round < kRounds; ++round) {
            resetFolders();
            QVERIFY(FileTree::write(home() + u"/file"_s, m_content));
            KilledProcess client;
            prepare(&client, getArguments(&server));
            QVERIFY(client.start());
            const auto end = client.killAfter(someTime(&random));
            killed += end == KilledProcess::End::Killed ? 1 : 0;
            QCOMPARE(wrongIn(local()), QString());
        }
        qInfo("%d of %d transfers were broken off", killed, kRounds);
        QVERIFY(killed > 0);
        QCOMPARE(run(getArguments(&server)), kDone);
        QCOMPARE(FileTree::read(local() + u"/file"_s), m_content);
    }
};

QTEST_GUILESS_MAIN(tst_KilledTransfers)
#include "tst_killedtransfers.moc"
