// SPDX-License-Identifier: MIT
#include "filesession.h"
#include "filetree.h"

#include <brixlib/fileservice/sclientftprequester.h>

#include <shared/rawserver.h>

#include <QtCore/QBuffer>
#include <QtCore/QRegularExpression>

using namespace Talverine;
using namespace Qt::StringLiterals;

namespace {

//! One operation, called on the client itself and through the requester.
struct Call
{
    std::function<void(SClientFtp &)> direct;
    std::function<void(SClientFtpRequester &)> requested;
};

template<typename Operation>
Call call(Operation operation)
{
    return {operation, operation};
}

} // namespace

Q_DECLARE_METATYPE(Call)

class tst_SClientFtpRequester : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init() { QTest::failOnWarning(QRegularExpression(u"."_s)); }

    void requestSendsWhatACallSends_data()
    {
        QTest::addColumn<Call>("operation");
        for (const auto &[name, operation] : calls())
            QTest::newRow(name) << operation;
    }
    void requestSendsWhatACallSends()
    {
        QFETCH(const Call, operation);
        const QByteArray direct =
            firstCommand([&](SClientFtp &client) { operation.direct(client); });
        const QByteArray requested = firstCommand([&](SClientFtp &client) {
            SClientFtpRequester requester(&client);
            operation.requested(requester);
        });
        QVERIFY(direct.size() >= 20);
        QCOMPARE(requested.toHex(' '), direct.toHex(' '));
    }

    void requestToAWorkerThatIsGoneDoesNothing_data() { requestSendsWhatACallSends_data(); }
    void requestToAWorkerThatIsGoneDoesNothing()
    {
        QFETCH(const Call, operation);
        auto client = std::make_unique<SClientFtp>(QHostAddress(QHostAddress::LocalHost), 1);
        SClientFtpRequester requester(client.get());
        QVERIFY(!requester.isNull());
        client.reset();
        QVERIFY(requester.isNull());
        const QSignalSpy errors(&requester, &SClientFtpRequester::invokeError);
        operation.requested(requester);
        QVERIFY(errors.isEmpty());
    }

    void requestThatTheWorkerDoesNotKnowIsAnError_data() { requestSendsWhatACallSends_data(); }
    void requestThatTheWorkerDoesNotKnowIsAnError()
    {
        class Requester : public SClientFtpRequester
        {
        public:
            explicit Requester(SClientBase *worker)
                : SClientFtpRequester(nullptr)
            {
                setWorker(worker);
            }
        };
        QFETCH(const Call, operation);
        SClientBase client(QHostAddress(QHostAddress::LocalHost), 1);
        Requester requester(&client);
        const QSignalSpy errors(&requester, &SClientFtpRequester::invokeError);
        QTest::ignoreMessage(QtWarningMsg,
                             QRegularExpression(u"QMetaObject::invokeMethod: No such method"_s));
        operation.requested(requester);
        QCOMPARE(errors.size(), 1);
        QCOMPARE(errors.first().first().toString(),
                 QString::fromLatin1(QTest::currentDataTag()).section(u',', 0, 0));
    }

    void requestInTheWorkersThreadRunsAtOnce()
    {
        SClientFtp client(QHostAddress(QHostAddress::LocalHost), 1);
        SClientFtpRequester requester(&client);
        const QSignalSpy enqueued(&client, &SClientFtp::commandEnqueue);
        requester.pwd();
        QCOMPARE(enqueued.size(), 1);
    }

    void requestFromAnotherThreadReachesTheServer()
    {
        FileServer server;
        QVERIFY(FileTree::write(server.path(u"in/a.txt"_s), "a"));
        FileClient client;
        QVERIFY(client.open(server.port()));
        SClientFtpRequester requester(client.client());
        QVERIFY(client.run(
            [&](SClientFtp &) {
                requester.getDir(u"in"_s, u"got"_s, true);
                requester.setFilePermissions(u"in/a.txt"_s, FileEntryFlags::Permissions);
            },
            4));
        QCOMPARE(FileTree::read(client.path(u"got/a.txt"_s)), "a");
        QVERIFY(FileTree::below(server.home()).isEmpty());
    }

    void sendDirWithRemovalIsSafeFromAnyThread()
    {
        FileServer server;
        FileClient client;
        QVERIFY(FileTree::write(client.path(u"out/a.txt"_s), "a"));
        QVERIFY(client.open(server.port()));
        SClientFtpRequester requester(client.client());
        QVERIFY(client.run([&](SClientFtp &) { requester.sendDir(u"out"_s, u"up"_s, true); }));
        QTRY_VERIFY(FileTree::below(client.folder()).isEmpty());
        QCOMPARE(FileTree::read(server.path(u"up/a.txt"_s)), "a");
    }

private:
    static QList<std::pair<const char *, Call>> calls()
    {
        const QString a = u"a"_s;
        const QString b = u"b"_s;
        static QBuffer device;
        return {
            {"changeDir", call([=](auto &ftp) { ftp.changeDir(a); })},
            {"homeDir", call([=](auto &ftp) { ftp.homeDir(); })},
            {"pwd", call([=](auto &ftp) { ftp.pwd(); })},
            {"listDir", call([=](auto &ftp) { ftp.listDir(a); })},
            {"makeDir", call([=](auto &ftp) { ftp.makeDir(a); })},
            {"removeDir", call([=](auto &ftp) { ftp.removeDir(a); })},
            {"removeFile", call([=](auto &ftp) { ftp.removeFile(a); })},
            {"exists", call([=](auto &ftp) { ftp.exists(a); })},
            {"renameDir", call([=](auto &ftp) { ftp.renameDir(a, b); })},
            {"renameFile", call([=](auto &ftp) { ftp.renameFile(a, b); })},
            {"copyDir", call([=](auto &ftp) { ftp.copyDir(a, b); })},
            {"copyFile", call([=](auto &ftp) { ftp.copyFile(a, b); })},
            {"setFilePermissions", call([=](auto &ftp) {
                 ftp.setFilePermissions(a, static_cast<FileEntryFlags>(0x64440000));
             })},
            {"storageInfo", call([=](auto &ftp) { ftp.storageInfo(); })},
            {"fileSystemSensitivity", call([=](auto &ftp) { ftp.fileSystemSensitivity(); })},
            {"getFile", call([=](auto &ftp) { ftp.getFile(a, b, false); })},
            {"getFile, with removal", call([=](auto &ftp) { ftp.getFile(a, b, true); })},
            {"getFiles", call([=](auto &ftp) { ftp.getFiles(a, u"*"_s, b, true); })},
            {"getDir", call([=](auto &ftp) { ftp.getDir(a, b, true); })},
            {"getDevice", call([=](auto &ftp) { ftp.getDevice(a, &device); })},
            {"sendFile", call([=](auto &ftp) { ftp.sendFile(u"/dev/null"_s, b, true); })},
            {"sendFiles", call([=](auto &ftp) { ftp.sendFiles(outgoing(), u"*.x"_s, b, true); })},
            {"sendDir", call([=](auto &ftp) { ftp.sendDir(outgoing(), b, false); })},
            {"sendDevice", call([=](auto &ftp) { ftp.sendDevice(&device, b); })},
        };
    }

    //! A folder with one file two levels down.
    static QString outgoing()
    {
        static const QTemporaryDir dir;
        FileTree::write(dir.filePath(u"sub/a.x"_s), "a");
        return dir.path();
    }

    //! The first command that a fresh session sends after its handshake.
    static QByteArray firstCommand(const std::function<void(SClientFtp &)> &operation)
    {
        QByteArray command;
        RawServer server([&](auto &peer) {
            RawHandshake handshake;
            for (const char *id :
                 {"cd__", "mkd_", "rmd_", "lstd", "rmf_", "rnf_", "rnd_", "pwd_", "exst", "fsse",
                  "aflp", "gfio", "siof", "cpyf", "cpyd", "gfls", "getf", "getd", "sndf", "stoi"})
                handshake.commands.append({id, 0x00020000});
            if (handshake(peer))
                command = peer.readCommand();
        });
        FileClient client;
        if (!client.open(server.port()))
            return "no handshake";
        operation(*client.client());
        return server.finishes() ? command : "no command";
    }
};

QTEST_GUILESS_MAIN(tst_SClientFtpRequester)
#include "tst_sclientftprequester.moc"
