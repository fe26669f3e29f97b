// SPDX-License-Identifier: MIT
// The client on a removable medium. That is played: this program brings its own platform under
// SStorageInfo, which the library finds before the one of its own.
#include "filesession.h"
#include "filetree.h"

#include <brixrt/sstorageinfo_p.h>

#include <QtCore/QRegularExpression>

using namespace Talverine;
using namespace Qt::StringLiterals;

namespace {

// What the played platform was asked to flush, and what stood in the folder at that time. Written
// in the worker's thread, read after the results that come later.
struct Platform
{
    bool removable = true;
    QStringList synced;
    QStringList seen;
};

Platform platform;

} // namespace

namespace Talverine::StoragePlatform {

bool isRemovable(const QString &)
{
    return platform.removable;
}

bool sync(const QString &folder)
{
    platform.synced.append(folder);
    platform.seen = FileTree::below(folder);
    return true;
}

Qt::CaseSensitivity sensitivity(const QString &, const QByteArray &)
{
    return Qt::CaseSensitive;
}

Qt::CaseSensitivity usualSensitivity()
{
    return Qt::CaseSensitive;
}

} // namespace Talverine::StoragePlatform

class tst_SClientFtpSync : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init()
    {
        QTest::failOnWarning(QRegularExpression(u"."_s));
        platform = {};
        m_server = std::make_unique<FileServer>();
        m_client = std::make_unique<FileClient>();
        m_client->configure = [](JailedClient &client) { client.setAutoSync(true); };
        QVERIFY(FileTree::write(m_server->path(u"a.txt"_s), "content"));
    }

    void cleanup()
    {
        m_client.reset();
        QVERIFY(m_server->waitForEnd());
        m_server.reset();
    }

    void fetchedFileIsFlushedOnceItStandsInItsPlace()
    {
        QVERIFY(m_client->open(m_server->port()));
        QVERIFY(fetch());
        QCOMPARE(platform.synced, QStringList{m_client->folder()});
        QCOMPARE(platform.seen, QStringList{u"a.txt"_s});
        QCOMPARE(FileTree::below(m_client->folder()), QStringList{u"a.txt"_s});
        QCOMPARE(FileTree::read(m_client->path(u"a.txt"_s)), "content");
    }

    void nothingIsFlushedUnasked()
    {
        m_client->configure = nullptr;
        QVERIFY(m_client->open(m_server->port()));
        QVERIFY(fetch());
        QVERIFY(platform.synced.isEmpty());
    }

    void nothingIsFlushedOnAFixedMedium()
    {
        platform.removable = false;
        QVERIFY(m_client->open(m_server->port()));
        QVERIFY(fetch());
        QVERIFY(platform.synced.isEmpty());
    }

    void transferThatFailsLeavesTheOlderFile()
    {
        QVERIFY(FileTree::write(m_client->path(u"a.txt"_s), "older"));
        QVERIFY(m_client->open(m_server->port()));
        // The worker is told to stop by its first sign of the transfer.
        connect(m_client->client(), &SClientFtp::getFileStarted, m_client->client(),
                [] { QThread::currentThread()->requestInterruption(); });
        QVERIFY(!fetch());
        QVERIFY(m_client->waitForEnd());
        QCOMPARE(FileTree::below(m_client->folder()), QStringList{u"a.txt"_s});
        QCOMPARE(FileTree::read(m_client->path(u"a.txt"_s)), "older");
    }

private:
    bool fetch()
    {
        return m_client->run([](SClientFtp &client) { client.getFile(u"a.txt"_s); });
    }

    std::unique_ptr<FileServer> m_server;
    std::unique_ptr<FileClient> m_client;
};

QTEST_GUILESS_MAIN(tst_SClientFtpSync)
#include "tst_sclientftp_sync.moc"
