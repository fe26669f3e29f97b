// SPDX-License-Identifier: MIT
// The link test over loopback beside a bare loop of read and write system calls with the same
// blocks on plain sockets. The program starts itself again for each end, takes turns, and prints
// medians and ratios.
//
//     bench_linktest [--seconds N] [--rounds N]
#include "shared/childpair.h"

#include <brixlib/protocol/client/sclientbase.h>
#include <brixlib/protocol/client/sclientcontroller.h>
#include <brixlib/protocol/wire.h>

#include <QtCore/QCommandLineParser>
#include <QtCore/QElapsedTimer>
#include <QtCore/QEventLoop>
#include <QtCore/QTemporaryDir>

#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

using namespace ChildPair;
using namespace Talverine;
using namespace Qt::StringLiterals;

namespace {

constexpr std::size_t kBlockBytes = 1048576;

// ---- The bare pair: the client sends, says so by shutting its half, and then receives

// As every socket of the protocol has them.
void setOptions(int peer)
{
    const int bytes = 262144;
    const int on = 1;
    ::setsockopt(peer, SOL_SOCKET, SO_SNDBUF, &bytes, sizeof bytes);
    ::setsockopt(peer, SOL_SOCKET, SO_RCVBUF, &bytes, sizeof bytes);
    ::setsockopt(peer, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
}

double receiveBare(int peer)
{
    const auto block = std::make_unique<char[]>(kBlockBytes);
    QElapsedTimer timer;
    timer.start();
    qint64 received = 0;
    for (ssize_t count = 1; count > 0; received += count) {
        count = ::read(peer, block.get(), kBlockBytes);
        if (count < 0)
            fail("bare read");
    }
    return static_cast<double>(received) * 1e9 / static_cast<double>(timer.nsecsElapsed());
}

double sendBare(int peer, int seconds)
{
    const auto block = std::make_unique<char[]>(kBlockBytes);
    QElapsedTimer timer;
    timer.start();
    qint64 sent = 0;
    while (timer.elapsed() < qint64(seconds) * 1000) {
        for (std::size_t done = 0; done < kBlockBytes;) {
            const ssize_t count = ::write(peer, block.get() + done, kBlockBytes - done);
            if (count < 1)
                fail("bare write");
            done += static_cast<std::size_t>(count);
        }
        sent += qint64(kBlockBytes);
    }
    ::shutdown(peer, SHUT_WR);
    return static_cast<double>(sent) * 1e9 / static_cast<double>(timer.nsecsElapsed());
}

int bareServer(int seconds)
{
    const int peer = ::accept(listenBare(), nullptr, nullptr);
    setOptions(peer);
    receiveBare(peer);
    sendBare(peer, seconds);
    return 0;
}

int bareClient(unsigned short port, int seconds)
{
    const int peer = connectBare(port);
    setOptions(peer);
    const double up = sendBare(peer, seconds);
    const double down = receiveBare(peer);
    return say({{u"up"_s, up}, {u"down"_s, down}});
}

// ---- The library's client

int libraryClient(unsigned short port, int seconds)
{
    SClientController controller(nullptr);
    auto *client = new SClientBase(QHostAddress(QHostAddress::LocalHost), port);
    QEventLoop loop;
    QJsonObject rates;
    QObject::connect(client, &SClientBase::linkTestFinished, &loop, [&](double up, double down) {
        rates = {{u"up"_s, up}, {u"down"_s, down}};
    });
    QObject::connect(client, &SClientBase::commandResult, &loop, [&](SCommandId id, bool success) {
        if (id == CommandIds::kLinkTest || !success)
            loop.quit();
    });
    const std::unique_ptr<SSimpleBackgroundRunner> runner(controller.connectClient(client, false));
    if (!runner)
        fail("connect");
    client->authenticate(u"bench"_s, u"bench"_s);
    client->linkTest(seconds, seconds);
    loop.exec();
    if (rates.isEmpty())
        fail("link test");
    return say(rates);
}

// ---- The parent

void measure(int seconds, int rounds)
{
    const QTemporaryDir home;
    const QString length = QString::number(seconds);
    QList<QJsonObject> bare;
    QList<QJsonObject> library;
    for (int round = 0; round < rounds; ++round) {
        bare.append(run({u"bare-server"_s, length}, u"bare"_s, {length}).said);
        library.append(run({u"server"_s, home.path()}, u"library"_s, {length}).said);
    }
    for (const QString &direction : {u"up"_s, u"down"_s}) {
        const auto rate = [&](const QJsonObject &said) { return said.value(direction).toDouble(); };
        QList<double> ofBare;
        QList<double> ofLibrary;
        QList<double> ratios;
        for (int round = 0; round < rounds; ++round) {
            ofBare.append(rate(bare.at(round)));
            ofLibrary.append(rate(library.at(round)));
            ratios.append(ofLibrary.last() / ofBare.last());
        }
        constexpr double kMiB = 1 << 20;
        std::printf("link test, %s: library %.0f MiB/s, bare loop %.0f MiB/s, ratio %.2f (median "
                    "of %d pairs)\n",
                    qPrintable(direction), median(ofLibrary) / kMiB, median(ofBare) / kMiB,
                    median(ratios), rounds);
    }
}

int parent(const QCoreApplication &app)
{
    QCommandLineParser parser;
    parser.setApplicationDescription(u"The link test beside a bare loop."_s);
    parser.addHelpOption();
    parser.addOption({u"seconds"_s, u"Length of each direction."_s, u"n"_s, u"2"_s});
    parser.addOption({u"rounds"_s, u"Pairs of runs."_s, u"n"_s, u"5"_s});
    parser.process(app);
    measure(parser.value(u"seconds"_s).toInt(), parser.value(u"rounds"_s).toInt());
    return 0;
}

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    const QList<QString> arguments = app.arguments();
    const QString mode = arguments.value(1);
    if (mode == u"server")
        return serve(arguments.value(2));
    if (mode == u"bare-server")
        return bareServer(arguments.value(2).toInt());
    const auto port = static_cast<unsigned short>(arguments.value(2).toUInt());
    if (mode == u"bare")
        return bareClient(port, arguments.value(3).toInt());
    if (mode == u"library")
        return libraryClient(port, arguments.value(3).toInt());
    return parent(app);
}
