// SPDX-License-Identifier: MIT
// One large file between two processes over loopback, get and put, beside a bare loop of read and
// write system calls with buffers of 262,144 bytes on plain sockets. The program starts itself
// again for each end, in turn with the bare pair, and prints medians, ratios and what each end's
// resident memory grew by.
//
//     bench_transfer [--size BYTES] [--rounds N] [--dir FOLDER] [--no-bare]
#include "shared/childpair.h"

#include <brixlib/fileservice/sclientftp.h>
#include <brixlib/protocol/client/sclientcontroller.h>

#include <QtCore/QCommandLineParser>
#include <QtCore/QCoreApplication>
#include <QtCore/QElapsedTimer>
#include <QtCore/QEventLoop>
#include <QtCore/QFile>
#include <QtCore/QFileInfo>
#include <QtCore/QTemporaryDir>
#include <QtCore/QTimer>

#include <algorithm>
#include <vector>

#include <fcntl.h>
#include <unistd.h>

using namespace ChildPair;
using namespace Talverine;
using namespace Qt::StringLiterals;

namespace {

constexpr std::size_t kBufferBytes = 262144;

// ---- The bare pair
// -------------------------------------------------------------------------------

bool copyBytes(int from, int to, qint64 size)
{
    std::vector<char> buffer(kBufferBytes);
    while (size > 0) {
        const ssize_t count =
            ::read(from, buffer.data(),
                   std::min<std::size_t>(kBufferBytes, static_cast<std::size_t>(size)));
        if (count < 1)
            return false;
        for (ssize_t done = 0; done < count;) {
            const ssize_t written =
                ::write(to, buffer.data() + done, static_cast<std::size_t>(count - done));
            if (written < 1)
                return false;
            done += written;
        }
        size -= count;
    }
    return true;
}

int openSource(const QString &path)
{
    return ::open(QFile::encodeName(path).constData(), O_RDONLY | O_CLOEXEC);
}

int openTarget(const QString &path)
{
    return ::open(QFile::encodeName(path).constData(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC,
                  0644);
}

struct BareRequest
{
    char direction;
    qint64 size;
};

int bareServer(const QString &file)
{
    const int listener = listenBare();
    const int peer = ::accept(listener, nullptr, nullptr);
    BareRequest request{};
    if (::read(peer, &request, sizeof request) != sizeof request)
        fail("bare request");
    const bool isGet = request.direction == 'g';
    const int fd = isGet ? openSource(file) : openTarget(file);
    if (fd < 0 || !(isGet ? copyBytes(fd, peer, request.size) : copyBytes(peer, fd, request.size)))
        fail("bare copy");
    ::close(fd);
    const char done = 1;
    if (::write(peer, &done, 1) != 1)
        fail("bare answer");
    return 0;
}

int bareClient(bool isGet, unsigned short port, const QString &file, qint64 size)
{
    const int peer = connectBare(port);
    QElapsedTimer timer;
    timer.start();
    const BareRequest request{isGet ? 'g' : 'p', size};
    if (::write(peer, &request, sizeof request) != sizeof request)
        fail("bare request");
    const int fd = isGet ? openTarget(file) : openSource(file);
    if (fd < 0 || !(isGet ? copyBytes(peer, fd, size) : copyBytes(fd, peer, size)))
        fail("bare copy");
    ::close(fd);
    char done = 0;
    if (::read(peer, &done, 1) != 1)
        fail("bare answer");
    return say({{u"seconds"_s, static_cast<double>(timer.nsecsElapsed()) / 1e9}});
}

// ---- The library's pair
// --------------------------------------------------------------------------

int libraryClient(bool isGet, unsigned short port, const QString &remote, const QString &local)
{
    SClientController controller(nullptr);
    auto *client = new SClientFtp(QHostAddress(QHostAddress::LocalHost), port);
    QEventLoop loop;
    bool succeeded = false;
    const SCommandId wanted(isGet ? 0x67657466 : 0x736E6466);
    QObject::connect(client, &SClientFtp::commandResult, &loop, [&](SCommandId id, bool success) {
        if (id == wanted || !success) {
            succeeded = success;
            loop.quit();
        }
    });
    SSimpleBackgroundRunner *runner = controller.connectClient(client, false);
    if (!runner)
        fail("connect");

    QEventLoop login;
    QObject::connect(client, qOverload<const QList<SCommandId> &>(&SClientFtp::commandListResult),
                     &login, &QEventLoop::quit);
    client->authenticate(u"bench"_s, u"bench"_s);
    login.exec();

    const qint64 before = ProcFs::memoryKiB(getpid(), "VmRSS");
    QElapsedTimer timer;
    timer.start();
    if (isGet)
        client->getFile(remote, local, false);
    else
        client->sendFile(local, remote, false);
    loop.exec();
    const double seconds = static_cast<double>(timer.nsecsElapsed()) / 1e9;
    const qint64 grown = ProcFs::memoryKiB(getpid(), "VmHWM") - before;
    delete runner;
    if (!succeeded)
        fail("transfer");
    return say({{u"seconds"_s, seconds}, {u"grownKiB"_s, grown}});
}

// ---- The parent
// ----------------------------------------------------------------------------------

struct Series
{
    QList<double> seconds;
    qint64 clientGrownKiB = 0;
    qint64 serverGrownKiB = 0;

    void add(const Run &run)
    {
        seconds.append(run.said.value(u"seconds"_s).toDouble());
        clientGrownKiB = std::max(clientGrownKiB, run.said.value(u"grownKiB"_s).toInteger());
        serverGrownKiB = std::max(serverGrownKiB, run.serverGrownKiB);
    }
};

void measure(bool isGet, const QString &folder, qint64 size, int rounds, bool withBare)
{
    const QString source = folder + u"/source"_s;
    const QString target = folder + u"/target"_s;
    const QString direction = isGet ? u"get"_s : u"put"_s;
    Series library;
    Series bare;
    QList<double> ratios;
    for (int round = 0; round < rounds; ++round) {
        if (withBare) {
            QFile::remove(target);
            bare.add(run({u"bare-server"_s, isGet ? source : target}, u"bare-"_s + direction,
                         {isGet ? target : source, QString::number(size)}));
        }
        QFile::remove(target);
        library.add(run({u"server"_s, folder}, direction,
                        {isGet ? source : target, isGet ? target : source}));
        if (QFileInfo(target).size() != size)
            fail("the target is not whole");
        if (withBare)
            ratios.append(bare.seconds.last() / library.seconds.last());
    }
    const double mib = static_cast<double>(size) / (1 << 20);
    std::printf("%s of %.0f MiB: library %.0f MiB/s", qPrintable(direction), mib,
                mib / median(library.seconds));
    if (withBare)
        std::printf(", bare loop %.0f MiB/s, ratio %.2f (median of %d pairs)",
                    mib / median(bare.seconds), median(ratios), rounds);
    std::printf("; memory grew by at most %lld KiB (client), %lld KiB (server)\n",
                static_cast<long long>(library.clientGrownKiB),
                static_cast<long long>(library.serverGrownKiB));
    std::fflush(stdout);
    QFile::remove(target);
}

int parent(const QCoreApplication &app)
{
    QCommandLineParser parser;
    parser.setApplicationDescription(u"Transfers of one large file beside a bare loop."_s);
    parser.addHelpOption();
    parser.addOption({u"size"_s, u"Bytes of the file."_s, u"bytes"_s, u"1073741824"_s});
    parser.addOption({u"rounds"_s, u"Pairs of runs."_s, u"n"_s, u"5"_s});
    parser.addOption({u"dir"_s, u"Folder to work in."_s, u"folder"_s, u"/dev/shm"_s});
    parser.addOption({u"no-bare"_s, u"Leave the bare loop out."_s});
    parser.process(app);

    const QTemporaryDir folder(parser.value(u"dir"_s) + u"/bench-transfer-XXXXXX"_s);
    const qint64 size = parser.value(u"size"_s).toLongLong();
    makeFile(folder.path() + u"/source"_s, size);
    for (const bool isGet : {true, false})
        measure(isGet, folder.path(), size, parser.value(u"rounds"_s).toInt(),
                !parser.isSet(u"no-bare"_s));
    return 0;
}

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    const QList<QString> arguments = app.arguments();
    const QString mode = arguments.value(1);
    const auto port = static_cast<unsigned short>(arguments.value(2).toUInt());
    if (mode == u"server")
        return serve(arguments.value(2));
    if (mode == u"bare-server")
        return bareServer(arguments.value(2));
    if (mode == u"get" || mode == u"put") {
        const bool isGet = mode == u"get";
        return libraryClient(isGet, port, arguments.value(3), arguments.value(4));
    }
    if (mode == u"bare-get" || mode == u"bare-put")
        return bareClient(mode == u"bare-get", port, arguments.value(3),
                          arguments.value(4).toLongLong());
    return parent(app);
}
