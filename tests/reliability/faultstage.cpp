// SPDX-License-Identifier: MIT
#include "faultstage.h"

#include <fileservice/filetree.h>
#include <shared/eventwait.h>

#include <QtCore/QElapsedTimer>
#include <QtCore/QSet>
#include <QtCore/QThread>

using namespace Talverine;
using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

namespace {

// Half of the usual time-out: who comes to it has waited for a peer that had gone.
constexpr qint64 kCutInTimeMs = 5000;
// A client that waits for several words one after the other waits for each.
constexpr int kWaitsOfAnExchange = 3;
constexpr qint64 kSlackMs = 3000;
constexpr auto kPatience = 60s;

constexpr int kHandshakeExchanges = 3;
constexpr auto kServerPrefix = "server: "_L1;
constexpr auto kClientPrefix = "client: "_L1;

QString nameOf(FlowFault kind)
{
    switch (kind) {
    case FlowFault::Reset:
        return u"reset"_s;
    case FlowFault::Close:
        return u"close"_s;
    case FlowFault::HalfClose:
        return u"half a close"_s;
    case FlowFault::Stall:
        return u"stall"_s;
    }
    return QString();
}

QString describe(const FaultStage::Fault &fault)
{
    return u"%1 at %2 to the %3: "_s.arg(nameOf(fault.kind), QString::number(fault.at),
                                         fault.toServer ? u"server"_s : u"client"_s);
}

bool isStalling(const FlowPlan &plan)
{
    return plan.faultAt >= 0 && plan.fault == FlowFault::Stall;
}

// Everything below \a folder, each path led by \a prefix.
void addTree(FaultStage::Tree *tree, QLatin1StringView prefix, const QString &folder)
{
    const QStringList paths = FileTree::below(folder);
    for (const QString &path : paths)
        tree->insert(prefix + path,
                     path.endsWith(u'/') ? QByteArray() : FileTree::read(folder + u'/' + path));
}

// Runs the scene in the client's thread as soon as it is connected: a client whose connection was
// cut may be gone before another thread gets hold of it.
void direct(JailedClient &client, const FaultStage::Scene &scene)
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

// What came before a fault has succeeded, and at most what it struck has failed.
bool areBrokenOff(const QStringList &results, const QStringList &whole)
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

bool areExpected(const QStringList &results, const FaultStage::Whole &whole,
                 const FaultStage::Fault &fault)
{
    const bool isWhole = results == whole.results;
    // The client had everything by then.
    if (!fault.toServer && fault.at == whole.toClient)
        return isWhole;
    // The server had everything, and may or may not have answered before it met the end.
    if (fault.toServer && fault.at == whole.toServer && fault.kind == FlowFault::HalfClose)
        return isWhole || areBrokenOff(results, whole.results);
    return areBrokenOff(results, whole.results);
}

QString firstWrongFile(const FaultStage::Whole &whole, const FaultStage::Tree &tree)
{
    const auto isAsIn = [&tree](const FaultStage::Tree &other, const QString &path) {
        return tree.contains(path) == other.contains(path) && tree.value(path) == other.value(path);
    };
    const auto paths = tree.keys() + whole.before.keys() + whole.after.keys();
    for (const QString &path : QSet<QString>(paths.begin(), paths.end())) {
        if (isAsIn(whole.before, path) || isAsIn(whole.after, path))
            continue;
        if (!tree.contains(path))
            return path + u" is missing"_s;
        return path + u" has %1 bytes"_s.arg(tree.value(path).size());
    }
    return QString();
}

} // namespace

void FaultStage::setTimeouts(int clientMs, int serverMs)
{
    m_timeoutMs = clientMs;
    m_server.host().timeoutMs = serverMs;
}

QString FaultStage::playWhole(const Scene &scene, Whole *whole)
{
    const Outcome outcome = play(scene, {}, &whole->before);
    if (!outcome.problem.isEmpty())
        return outcome.problem;
    whole->toServer = outcome.record.toServer;
    whole->toClient = outcome.record.toClient;
    whole->results = outcome.results;
    whole->after = outcome.tree;
    const int expected = scene.exchanges + (scene.drive ? 0 : kHandshakeExchanges);
    const bool allTrue =
        std::all_of(outcome.results.begin(), outcome.results.end(),
                    [](const QString &result) { return result.endsWith(u" true"); });
    return allTrue && outcome.results.size() == expected
               ? QString()
               : u"results: "_s + outcome.results.join(u", ");
}

QString FaultStage::playUnder(const Scene &scene, const Whole &whole, const ConnectionPlan &plan)
{
    const Outcome outcome = play(scene, plan);
    if (!outcome.problem.isEmpty())
        return outcome.problem;
    if (outcome.results != whole.results)
        return u"results: "_s + outcome.results.join(u", ");
    if (outcome.record.toServer != whole.toServer || outcome.record.toClient != whole.toClient)
        return u"other numbers of bytes"_s;
    return outcome.tree == whole.after ? QString() : u"other files"_s;
}

QString FaultStage::playFault(const Scene &scene, const Whole &whole, const Fault &fault)
{
    const FlowPlan plan{.faultAt = fault.at, .fault = fault.kind};
    const Outcome outcome = play(scene, fault.toServer ? ConnectionPlan{.toServer = plan}
                                                       : ConnectionPlan{.toClient = plan});
    ++m_faults;
    m_slowestMs = std::max(m_slowestMs, outcome.tookMs);

    QString problem = outcome.problem;
    if (!outcome.record.hadFault)
        problem += u"the fault did not come; "_s;
    if (takesTooLong(outcome.tookMs, fault.kind))
        problem += u"took %1 ms; "_s.arg(outcome.tookMs);
    if (!areExpected(outcome.results, whole, fault))
        problem += u"results: %1; "_s.arg(outcome.results.join(u", "_s));
    problem += firstWrongFile(whole, outcome.tree);
    return problem.isEmpty() ? problem : describe(fault) + problem;
}

QString FaultStage::playCuts(const Scene &scene, const Whole &first, Whole *whole)
{
    QString problem = playWhole(scene, whole);
    for (const bool toServer : {true, false}) {
        const qint64 last = toServer ? whole->toServer : whole->toClient;
        for (qint64 at = 1 + (toServer ? first.toServer : first.toClient);
             at <= last && problem.isEmpty(); ++at) {
            // So mixed that all bytes of a word meet both.
            const FlowFault kind = ((at ^ at >> 2) & 1) != 0 ? FlowFault::Reset : FlowFault::Close;
            problem = playFault(scene, *whole, {toServer, at, kind});
        }
    }
    return problem.isEmpty() ? playWhole(scene, whole) : problem;
}

bool FaultStage::takesTooLong(qint64 msec, FlowFault kind) const
{
    return msec >
           (kind == FlowFault::Stall ? kWaitsOfAnExchange * m_timeoutMs + kSlackMs : kCutInTimeMs);
}

FaultStage::Outcome FaultStage::play(const Scene &scene, const ConnectionPlan &plan, Tree *before)
{
    Outcome outcome;
    const size_t connection = m_proxy.count();
    m_proxy.setPlan(plan);
    {
        FileClient client;
        QDir(m_server.home()).removeRecursively();
        QDir().mkpath(m_server.home());
        if (scene.prepare)
            scene.prepare(m_server.home(), client.folder());
        if (before)
            *before = trees(client.folder());

        QElapsedTimer timer;
        timer.start();
        outcome.results = scene.drive ? playDrive(scene) : playClient(scene, &client);
        // What is held up would stay until the system asks whether the client is still there.
        if (isStalling(plan.toServer) || isStalling(plan.toClient))
            m_proxy.resetAll();
        if (!waitForRest(connection))
            outcome.problem = u"not at rest in time; "_s;
        outcome.tookMs = timer.elapsed();
        outcome.record = m_proxy.record(connection);
        outcome.tree = trees(client.folder());
    }
    outcome.problem += leftovers();
    return outcome;
}

QStringList FaultStage::playClient(const Scene &scene, FileClient *client)
{
    client->timeout = m_timeoutMs;
    client->configure = [&scene](JailedClient &made) { direct(made, scene); };
    (void)client->connectTo(m_proxy.port()); // fails with a fault in the greeting
    const bool ended = waitWithEvents(
        [client] { return client->ended && client->controller().count() == 0; }, kPatience);
    return ended ? client->results : QStringList{u"the client does not end"_s};
}

QStringList FaultStage::playDrive(const Scene &scene)
{
    QStringList results;
    const std::unique_ptr<QThread> thread(
        QThread::create([&] { results = scene.drive(m_proxy.port(), m_timeoutMs); }));
    thread->start();
    // The session at the other end is begun in this thread.
    const bool ended = waitWithEvents([&] { return thread->isFinished(); }, kPatience);
    if (!ended)
        m_proxy.resetAll();
    thread->wait();
    return ended ? results : QStringList{u"the client does not end"_s};
}

bool FaultStage::waitForRest(size_t connection)
{
    return waitWithEvents(
        [&] {
            return m_server.host().controller.count() == 0 && m_proxy.count() > connection &&
                   !m_proxy.record(connection).isOpen;
        },
        kPatience);
}

// A thread that has told of its end is about to leave the system.
QString FaultStage::leftovers()
{
    const bool clean = waitWithEvents([this] {
        return ProcessFacts::threads() == m_threads && ProcessFacts::descriptors() == m_descriptors;
    });
    return clean
               ? QString()
               : u"%1 threads for %2 and %3 descriptors for %4; "_s.arg(
                     QString::number(ProcessFacts::threads()), QString::number(m_threads),
                     QString::number(ProcessFacts::descriptors()), QString::number(m_descriptors));
}

FaultStage::Tree FaultStage::trees(const QString &folder) const
{
    Tree tree;
    addTree(&tree, kServerPrefix, m_server.home());
    addTree(&tree, kClientPrefix, folder);
    return tree;
}
