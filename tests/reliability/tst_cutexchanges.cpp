// SPDX-License-Identifier: MIT
// Connections that are cut at every byte of each command's exchange, small as it can be.
#include "cutstage.h"

#include <fileservice/filetree.h>

#include <brixlib/fileservice/scommandgetdir.h>
#include <brixlib/protocol/spluggablestring.h>

#include <QtCore/QBuffer>
#include <QtCore/QRegularExpression>

using namespace Talverine;
using namespace Qt::StringLiterals;

using Scene = CutStage::Scene;

namespace {

const QByteArray kContent = "the content of a small file";
const QByteArray kOlder = "what was there before";

// A folder with two files in it, one of them a level deeper.
void makeFolder(const QString &folder)
{
    FileTree::write(folder + u"/one"_s, kContent);
    FileTree::write(folder + u"/deep/two"_s, kContent);
}

Scene act(std::function<void(JailedClient &)> commands, int exchanges = 1)
{
    return {.act = std::move(commands), .exchanges = exchanges};
}

// A scene with something in the user's folder on the server.
Scene onServer(std::function<void(const QString &home)> prepare,
               std::function<void(JailedClient &)> commands, int exchanges = 1)
{
    return {.prepare = [prepare = std::move(prepare)](const QString &home,
                                                      const QString &) { prepare(home); },
            .act = std::move(commands),
            .exchanges = exchanges};
}

Scene withFile(std::function<void(JailedClient &)> commands)
{
    return onServer([](const QString &home) { FileTree::write(home + u"/file"_s, kContent); },
                    std::move(commands));
}

Scene withFolder(std::function<void(JailedClient &)> commands, int exchanges = 1)
{
    return onServer([](const QString &home) { makeFolder(home + u"/folder"_s); },
                    std::move(commands), exchanges);
}

// Between the word that accepts a fetch and the end of the size, the local file becomes an empty
// one: a server that was refused its file and one that has gone cannot be told apart there. The
// exchange fails in its last word. The fetches are the last \a count exchanges, each of kContent.
Scene fetching(int count, Scene scene)
{
    scene.mayEmptyFiles = [count](const CutStage::Whole &whole, const CutStage::Cut &cut) {
        const qint64 bytes = 4 + 8 + kContent.size() + 4;
        for (int i = 1; i <= count; ++i) {
            const qint64 size = whole.toClient - i * bytes + 4;
            if (!cut.toServer && cut.at >= size && cut.at < size + 8)
                return true;
        }
        return false;
    };
    return scene;
}

Scene getFileScene()
{
    return {.prepare =
                [](const QString &home, const QString &folder) {
                    FileTree::write(home + u"/file"_s, kContent);
                    FileTree::write(folder + u"/file"_s, kOlder);
                },
            .act = [](JailedClient &client) { client.getFile(u"file"_s, u"file"_s, false); },
            .exchanges = 1};
}

Scene sendFileScene()
{
    return {.prepare =
                [](const QString &home, const QString &folder) {
                    FileTree::write(folder + u"/file"_s, kContent);
                    FileTree::write(home + u"/file"_s, kOlder);
                },
            .act = [](JailedClient &client) { client.sendFile(u"file"_s, u"file"_s, false); },
            .exchanges = 1};
}

// Devices belong to the client, and so last as long as it needs them.
Scene getDeviceScene()
{
    return withFile(
        [](JailedClient &client) { client.getDevice(u"file"_s, new QBuffer(&client)); });
}

Scene sendDeviceScene()
{
    return act([](JailedClient &client) {
        auto *buffer = new QBuffer(&client);
        buffer->setData(kContent);
        client.sendDevice(buffer, u"file"_s);
    });
}

QMap<QByteArray, Scene> scenes()
{
    using Client = JailedClient;
    return {
        // The base protocol.
        {"second login", act([](Client &c) { c.authenticate(u"alice"_s, u"secret"_s); })},
        {"command list", act([](Client &c) { c.commandList(); }, 2)},
        {"server name", act([](Client &c) { c.serverName(); })},
        {"whoami", act([](Client &c) { c.whoAmI(); })},
        {"pluggable", act([](Client &c) { c.pluggable(u"motto"_s, "params"); })},
        {"list of pluggables", act([](Client &c) { c.pluggableList(); })},
        {"link test", act([](Client &c) { c.linkTest(0, 0); })},
        // The file service.
        {"cd", withFolder([](Client &c) { c.changeDir(u"folder"_s); })},
        {"cd home", act([](Client &c) { c.homeDir(); })},
        {"copy dir", withFolder([](Client &c) { c.copyDir(u"folder"_s, u"copy"_s); })},
        {"copy file", withFile([](Client &c) { c.copyFile(u"file"_s, u"copy"_s); })},
        {"exists", withFile([](Client &c) { c.exists(u"file"_s); })},
        {"sensitivity", act([](Client &c) { c.fileSystemSensitivity(); })},
        {"get device", getDeviceScene()},
        {"get dir, old form",
         fetching(2, withFolder(
                         [](Client &c) {
                             c.enqueueCommand(new SCommandGetDir(u"folder"_s, u"got"_s, false));
                         },
                         3))},
        {"get file", fetching(1, getFileScene())},
        {"get files",
         fetching(
             2, withFolder([](Client &c) { c.getFiles(u"folder"_s, u""_s, u"got"_s, true); }, 3))},
        {"list dir", withFolder([](Client &c) { c.listDir(u"folder"_s); })},
        {"make dir", act([](Client &c) { c.makeDir(u"new/folder"_s); })},
        {"pwd", act([](Client &c) { c.pwd(); })},
        {"remove dir", withFolder([](Client &c) { c.removeDir(u"folder"_s); })},
        {"remove file", withFile([](Client &c) { c.removeFile(u"file"_s); })},
        {"rename dir", withFolder([](Client &c) { c.renameDir(u"folder"_s, u"other"_s); })},
        {"rename file", withFile([](Client &c) { c.renameFile(u"file"_s, u"other"_s); })},
        {"send device", sendDeviceScene()},
        {"send file", sendFileScene()},
        {"set permissions",
         withFile([](Client &c) { c.setFilePermissions(u"file"_s, FileEntryFlags::Permissions); })},
        {"storage info", act([](Client &c) { c.storageInfo(); })},
    };
}

} // namespace

class tst_CutExchanges : public QObject
{
    Q_OBJECT

private:
    std::unique_ptr<CutStage> m_stage;
    CutStage::Whole m_handshake;

    // The bytes behind the handshake.
    QString cutEverywhere(const Scene &scene, const CutStage::Whole &whole, bool toServer)
    {
        const qint64 first = toServer ? m_handshake.toServer : m_handshake.toClient;
        const qint64 last = toServer ? whole.toServer : whole.toClient;
        for (qint64 at = first + 1; at <= last; ++at) {
            const auto cut = CutStage::Cut::mixed(toServer, at);
            const QString problem = m_stage->playCut(scene, whole, cut);
            if (!problem.isEmpty())
                return problem;
        }
        return QString();
    }

private Q_SLOTS:
    void initTestCase()
    {
        m_stage = std::make_unique<CutStage>();
        m_stage->server().configure = [](SServerFtp &session) {
            session.addPluggable(u"motto"_s, new SPluggableString(u"press on"_s));
        };
        QCOMPARE(m_stage->playWhole({}, &m_handshake), QString());
    }

    void init() { QTest::failOnWarning(QRegularExpression(u"."_s)); }

    void cleanupTestCase()
    {
        qInfo("%d cuts, the slowest %lld ms", m_stage->cuts(), qlonglong(m_stage->slowestMs()));
        m_stage.reset();
    }

    void cutAtEveryByte_data()
    {
        QTest::addColumn<QByteArray>("name");
        const QList<QByteArray> names = scenes().keys();
        for (const QByteArray &name : names)
            QTest::newRow(name.constData()) << name;
    }

    void cutAtEveryByte()
    {
        QFETCH(const QByteArray, name);
        const Scene scene = scenes().value(name);
        CutStage::Whole whole;
        QCOMPARE(m_stage->playWhole(scene, &whole), QString());
        QVERIFY(whole.toServer > m_handshake.toServer && whole.toClient > m_handshake.toClient);
        QCOMPARE(cutEverywhere(scene, whole, true), QString());
        QCOMPARE(cutEverywhere(scene, whole, false), QString());
        // The next connection works.
        QCOMPARE(m_stage->playWhole(scene, &whole), QString());
    }
};

QTEST_GUILESS_MAIN(tst_CutExchanges)
#include "tst_cutexchanges.moc"
