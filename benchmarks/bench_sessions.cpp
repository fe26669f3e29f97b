// SPDX-License-Identifier: MIT
// Many sessions logged in at once on one server process: all are answered; prints what one session
// costs in resident memory, and the server's threads and descriptors before, during and after.
//
//     bench_sessions [--sessions N]
#include "shared/localserver.h"
#include "shared/procfs.h"

#include <brixlib/fileservice/sclientftp.h>
#include <brixlib/protocol/client/sclientcontroller.h>

#include <QtCore/QCommandLineParser>
#include <QtCore/QCoreApplication>
#include <QtCore/QElapsedTimer>
#include <QtCore/QEventLoop>
#include <QtCore/QProcess>
#include <QtCore/QTemporaryDir>
#include <QtCore/QTimer>

#include <cstdio>
#include <functional>

using namespace Talverine;
using namespace Qt::StringLiterals;

namespace {

constexpr int kDeadlineMs = 120000;

int serve(const QString &home)
{
    LocalServer server(home);
    std::printf("%d\n", server.listen());
    std::fflush(stdout);
    return QCoreApplication::exec();
}

bool waitUntil(const std::function<bool()> &condition)
{
    QElapsedTimer elapsed;
    elapsed.start();
    while (!condition()) {
        if (elapsed.hasExpired(kDeadlineMs))
            return false;
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents | QEventLoop::AllEvents, 50);
    }
    return true;
}

struct Figures
{
    qint64 rssKiB;
    qsizetype threads;
    qsizetype descriptors;

    static Figures of(qint64 pid)
    {
        return {ProcFs::memoryKiB(pid, "VmRSS"), ProcFs::count(pid, u"task"_s),
                ProcFs::count(pid, u"fd"_s)};
    }
    bool isBackAt(const Figures &start) const
    {
        return threads <= start.threads && descriptors <= start.descriptors;
    }
    void print(const char *when) const
    {
        std::printf("%s: %lld KiB resident, %lld threads, %lld descriptors\n", when,
                    static_cast<long long>(rssKiB), static_cast<long long>(threads),
                    static_cast<long long>(descriptors));
    }
};

int measure(int sessions)
{
    const QTemporaryDir home;
    QProcess server;
    server.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    server.start(QCoreApplication::applicationFilePath(), {u"server"_s, home.path()});
    while (!server.canReadLine()) {
        if (!server.waitForReadyRead(kDeadlineMs))
            return 1;
    }
    const auto port = static_cast<unsigned short>(server.readLine().trimmed().toUInt());

    int loggedIn = 0;
    int answered = 0;
    QList<SClientFtp *> clients;
    SClientController controller(nullptr);
    const auto connectOne = [&] {
        auto *client = new SClientFtp(QHostAddress(QHostAddress::LocalHost), port);
        QObject::connect(client,
                         qOverload<const QList<SCommandId> &>(&SClientFtp::commandListResult),
                         &controller, [&] { ++loggedIn; });
        QObject::connect(client, qOverload<bool>(&SClientFtp::exists), &controller,
                         [&](bool) { ++answered; });
        if (!controller.connectClient(client, true))
            return false;
        client->authenticate(u"bench"_s, u"bench"_s);
        clients.append(client);
        return true;
    };

    // One session comes and goes first, so that what a process sets up once is not counted.
    if (!connectOne() || !waitUntil([&] { return loggedIn == 1; }))
        return 1;
    controller.interruptWorkers();
    if (!waitUntil([&] { return controller.count() == 0; }))
        return 1;
    clients.clear();
    loggedIn = 0;
    waitUntil([&] { return ProcFs::count(server.processId(), u"task"_s) <= 2; });
    const Figures start = Figures::of(server.processId());
    start.print("before");

    QElapsedTimer elapsed;
    elapsed.start();
    for (int i = 0; i < sessions; ++i) {
        if (!connectOne())
            return 1;
    }
    if (!waitUntil([&] { return loggedIn == sessions; }))
        return 1;
    std::printf("%d sessions logged in after %.2f s\n", sessions,
                static_cast<double>(elapsed.elapsed()) / 1000);
    for (SClientFtp *client : std::as_const(clients))
        client->exists(u"/"_s);
    if (!waitUntil([&] { return answered == sessions; }))
        return 1;
    const Figures full = Figures::of(server.processId());
    full.print("during");
    std::printf("per session: %.0f KiB resident; answered %d of %d\n",
                static_cast<double>(full.rssKiB - start.rssKiB) / sessions, answered, sessions);

    controller.interruptWorkers();
    const bool back = waitUntil(
        [&] { return controller.count() == 0 && Figures::of(server.processId()).isBackAt(start); });
    Figures::of(server.processId()).print("after");
    server.terminate();
    server.waitForFinished(kDeadlineMs);
    return back ? 0 : 1;
}

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    if (app.arguments().value(1) == u"server")
        return serve(app.arguments().value(2));

    QCommandLineParser parser;
    parser.setApplicationDescription(u"Many sessions at once on one server process."_s);
    parser.addHelpOption();
    parser.addOption({u"sessions"_s, u"How many."_s, u"n"_s, u"500"_s});
    parser.process(app);
    const int status = measure(parser.value(u"sessions"_s).toInt());
    if (status != 0)
        std::fputs("bench_sessions: FAILED\n", stderr);
    return status;
}
