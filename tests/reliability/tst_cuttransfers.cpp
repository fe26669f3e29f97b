// SPDX-License-Identifier: MIT
// Transfers of a file of 16 MiB that are cut at 200 places each way.
#include "faultstage.h"

#include <fileservice/filetree.h>

#include <QtCore/QBuffer>
#include <QtCore/QRegularExpression>
#include <QtCore/QTemporaryDir>

using namespace Talverine;
using namespace Qt::StringLiterals;

using Scene = FaultStage::Scene;

namespace {

constexpr qint64 kFileBytes = 16 * 1024 * 1024;
constexpr int kPlaces = 200;

const QByteArray kOlder = "what was there before";

} // namespace

class tst_CutTransfers : public QObject
{
    Q_OBJECT

private:
    QTemporaryDir m_dir;
    std::unique_ptr<FaultStage> m_stage;
    FaultStage::Whole m_handshake;

    //! The big file under another name, without writing it anew.
    void place(const QString &path) const
    {
        QVERIFY(link(QFile::encodeName(m_dir.filePath(u"big"_s)).constData(),
                     QFile::encodeName(path).constData()) == 0);
    }

    // From the first byte behind the handshake to the last of all.
    QString cutAtPlaces(const Scene &scene, const FaultStage::Whole &whole, bool toServer)
    {
        const qint64 first = 1 + (toServer ? m_handshake.toServer : m_handshake.toClient);
        const qint64 last = toServer ? whole.toServer : whole.toClient;
        for (int i = 0; i < kPlaces; ++i) {
            const qint64 at = first + i * (last - first) / (kPlaces - 1);
            const FlowFault fault = i % 2 == 0 ? FlowFault::Reset : FlowFault::Close;
            const QString problem = m_stage->playFault(scene, whole, {toServer, at, fault});
            if (!problem.isEmpty())
                return problem;
        }
        return QString();
    }

    void cutEverywhere(const Scene &scene, bool toServer)
    {
        FaultStage::Whole whole;
        QCOMPARE(m_stage->playWhole(scene, &whole), QString());
        QVERIFY((toServer ? whole.toServer : whole.toClient) > kFileBytes);
        QCOMPARE(cutAtPlaces(scene, whole, toServer), QString());
        // The next connection works.
        QCOMPARE(m_stage->playWhole(scene, &whole), QString());
    }

private Q_SLOTS:
    void initTestCase()
    {
        QVERIFY(FileTree::write(m_dir.filePath(u"big"_s), FileTree::content(kFileBytes)));
        m_stage = std::make_unique<FaultStage>();
        QCOMPARE(m_stage->playWhole({}, &m_handshake), QString());
    }

    void init() { QTest::failOnWarning(QRegularExpression(u"."_s)); }

    void cleanupTestCase()
    {
        qInfo("%d cuts, the slowest %lld ms", m_stage->faults(), qlonglong(m_stage->slowestMs()));
        m_stage.reset();
    }

    void getFile()
    {
        cutEverywhere({.prepare =
                           [this](const QString &home, const QString &folder) {
                               place(home + u"/file"_s);
                               FileTree::write(folder + u"/file"_s, kOlder);
                           },
                       .act = [](JailedClient &c) { c.getFile(u"file"_s, u"file"_s, false); },
                       .exchanges = 1},
                      false);
    }

    void sendFile()
    {
        cutEverywhere({.prepare =
                           [this](const QString &home, const QString &folder) {
                               place(folder + u"/file"_s);
                               FileTree::write(home + u"/file"_s, kOlder);
                           },
                       .act = [](JailedClient &c) { c.sendFile(u"file"_s, u"file"_s, false); },
                       .exchanges = 1},
                      true);
    }
};

QTEST_GUILESS_MAIN(tst_CutTransfers)
#include "tst_cuttransfers.moc"
