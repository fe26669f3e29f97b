// SPDX-License-Identifier: MIT
#include "cutstage.h"

#include <fileservice/filetree.h>
#include <shared/eventwait.h>
#include <shared/processfacts.h>

#include <QtCore/QElapsedTimer>

using namespace Talverine;
using namespace Qt::StringLiterals;

namespace {

// Half of the time-out of both ends: who comes to it has waited for a peer that had gone.
constexpr qint64 kInTimeMs = 5000;
constexpr int kHandshakeExchanges = 3;
constexpr auto kServerPrefix = "server: "_L1;
constexpr auto kClientPrefix = "client: "_L1;

QString describe(const CutStage::Cut &cut)
{
    return u"cut at %1 to the %2 by %3: "_s.arg(
        QString::number(cut.at), cut.toServer ? u"server"_s : u"client"_s,
        cut.fault == FlowFault::Reset ? u"reset"_s : u"close"_s);
}

// Everything below \a folder, each path led by \a prefix.
void addTree(CutStage::Tree *tree, QLatin1StringView prefix, const QString &folder)
{
    const QStringList paths = FileTree::below(folder);
    for (const QString &path : paths)
        tree->insert(prefix + path,
                     path.endsWith(u'/') ? QByteArray() : FileTree::read(folder + u'/' + path));
}

// Runs the scene in the client's thread as soon as it is connected: a client whose connection was
// cut may be gone before another thread gets hold of it.
void direct(JailedClient &client, const CutStage::Scene &scene)
{
    QObject::connect(&client, &SClientFtp::connected, &client, [&client, &scene] {
        client.authenticate(u"alice"_s, u"secret"_s);
        if (scene.act)
            scene.act(client);
    });
    QObject::connect(&client, &SClientFtp::commandResult, &client,
                     [&client, left = kHandshakeExchanges + scene.exchanges](const SCommandId &id,
                                                                             bool) mutable {
                         if (!id.isNull() && --left == 0)
                             client.disconnect();
                     });
}

// The exchanges before a cut have succeeded, and at most the one that was cut has failed.
bool areResultsOfACut(const QStringList &results, const QStringList &whole)
{
    if (results.size() > whole.size())
        return false;
    for (qsizetype i = 0; i < results.size(); ++i) {
        const bool isLast = i + 1 == results.size();
        const QString failed = whole.at(i).section(u' ', 0, 0) + u" false"_s;
        if (results.at(i) != whole.at(i) && !(isLast && results.at(i) == failed))
            return false;
    }
    return results != whole;
}

QString firstWrongFile(const CutStage::Whole &whole, const CutStage::Tree &tree, bool mayEmptyFiles)
{
    const auto isAsIn = [&tree](const CutStage::Tree &other, const QString &path) {
        return tree.contains(path) == other.contains(path) && tree.value(path) == other.value(path);
    };
    const QSet<QString> paths = [&] {
        const auto keys = tree.keys() + whole.before.keys() + whole.after.keys();
        return QSet<QString>(keys.begin(), keys.end());
    }();
    for (const QString &path : paths) {
        if (isAsIn(whole.before, path) || isAsIn(whole.after, path))
            continue;
        if (!tree.contains(path))
            return path + u" is missing"_s;
        const bool isEmptied = path.startsWith(kClientPrefix) && tree.value(path).isEmpty();
        if (!isEmptied || !mayEmptyFiles)
            return path + u" has %1 bytes"_s.arg(tree.value(path).size());
    }
    return QString();
}

} // namespace

QString CutStage::playWhole(const Scene &scene, Whole *whole)
{
    const Outcome outcome = play(scene, {}, &whole->before);
    if (!outcome.problem.isEmpty())
        return outcome.problem;
    whole->toServer = outcome.record.toServer;
    whole->toClient = outcome.record.toClient;
    whole->results = outcome.results;
    whole->after = outcome.tree;
    if (whole->results.size() != kHandshakeExchanges + scene.exchanges)
        return u"%1 exchanges: "_s.arg(whole->results.size()) + whole->results.join(u", ");
    for (const QString &result : whole->results) {
        if (!result.endsWith(u" true"))
            return result;
    }
    return QString();
}

QString CutStage::playCut(const Scene &scene, const Whole &whole, const Cut &cut)
{
    const FlowPlan plan{.faultAt = cut.at, .fault = cut.fault};
    const Outcome outcome = play(scene, cut.toServer ? ConnectionPlan{.toServer = plan}
                                                     : ConnectionPlan{.toClient = plan});
    ++m_cuts;
    m_slowestMs = std::max(m_slowestMs, outcome.tookMs);

    QString problem = outcome.problem;
    if (!outcome.record.hadFault)
        problem += u"the cut did not come; "_s;
    if (outcome.tookMs > kInTimeMs)
        problem += u"took %1 ms; "_s.arg(outcome.tookMs);
    const bool allArrived = !cut.toServer && cut.at == whole.toClient;
    if (allArrived ? outcome.results != whole.results
                   : !areResultsOfACut(outcome.results, whole.results))
        problem += u"results: %1; "_s.arg(outcome.results.join(u", "_s));
    problem +=
        firstWrongFile(whole, outcome.tree, scene.mayEmptyFiles && scene.mayEmptyFiles(whole, cut));
    return problem.isEmpty() ? problem : describe(cut) + problem;
}

CutStage::Outcome CutStage::play(const Scene &scene, const ConnectionPlan &plan, Tree *before)
{
    Outcome outcome;
    const size_t connection = m_proxy.count();
    m_proxy.setPlan(plan);
    {
        FileClient client;
        client.configure = [&scene](JailedClient &made) { direct(made, scene); };
        QDir(m_server.home()).removeRecursively();
        QDir().mkpath(m_server.home());
        if (scene.prepare)
            scene.prepare(m_server.home(), client.folder());
        if (before)
            *before = trees(client);

        QElapsedTimer timer;
        timer.start();
        (void)client.connectTo(m_proxy.port()); // fails with a cut in the greeting
        if (!waitForEnd(&client, connection))
            outcome.problem = u"not at rest in time; "_s;
        outcome.tookMs = timer.elapsed();
        outcome.record = m_proxy.record(connection);
        outcome.results = client.results;
        outcome.tree = trees(client);
    }
    outcome.problem += leftovers();
    return outcome;
}

bool CutStage::waitForEnd(FileClient *client, size_t connection)
{
    return waitWithEvents([&] {
        return client->ended && client->controller().count() == 0 &&
               m_server.host().controller.count() == 0 && m_proxy.count() > connection &&
               !m_proxy.record(connection).isOpen;
    });
}

// A thread that has told of its end is about to leave the system.
QString CutStage::leftovers()
{
    if (m_threads < 0) {
        m_threads = ProcessFacts::threads();
        m_descriptors = ProcessFacts::descriptors();
    }
    const bool clean = waitWithEvents([this] {
        return ProcessFacts::threads() == m_threads && ProcessFacts::descriptors() == m_descriptors;
    });
    return clean
               ? QString()
               : u"%1 threads for %2 and %3 descriptors for %4; "_s.arg(
                     QString::number(ProcessFacts::threads()), QString::number(m_threads),
                     QString::number(ProcessFacts::descriptors()), QString::number(m_descriptors));
}

CutStage::Tree CutStage::trees(const FileClient &client) const
{
    Tree tree;
    addTree(&tree, kServerPrefix, m_server.home());
    addTree(&tree, kClientPrefix, client.folder());
    return tree;
}
