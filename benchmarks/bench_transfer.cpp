// SPDX-License-Identifier: MIT
// One large file between two processes over loopback, get and put, beside a bare loop of read and
// write system calls with buffers of 262,144 bytes on plain sockets. The program starts itself
// again for each end, in turn with the bare pair, and prints medians, ratios and what each end's
// resident memory grew by.
//
//     bench_transfer [--size BYTES] [--rounds N] [--dir FOLDER] [--no-bare] [--json]
#include "shared/localserver.h"
#include "shared/procfs.h"

#include <brixlib/fileservice/sclientftp.h>
#include <brixlib/protocol/sclientcontroller.h>

#include <QtCore/QCommandLineParser>
#include <QtCore/QCoreApplication>
#include <QtCore/QElapsedTimer>
#include <QtCore/QEventLoop>
#include <QtCore/QFile>
#include <QtCore/QFileInfo>
#include <QtCore/QJsonDocument>
#include <QtCore/QJsonObject>
#include <QtCore/QProcess>
#include <QtCore/QTemporaryDir>
#include <QtCore/QTimer>

#include <algorithm>
#include <cstdio>
#include <vector>

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

using namespace Talverine;
using namespace Qt::StringLiterals;

namespace {

constexpr std::size_t kBufferBytes = 262144;

[[noreturn]] void fail(const char *what)
{
    std::perror(what);
    std::_Exit(1);
}

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
    const int listener = ::socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof address;
    if (::bind(listener, reinterpret_cast<sockaddr *>(&address), length) != 0 ||
        ::listen(listener, 1) != 0 ||
        ::getsockname(listener, reinterpret_cast<sockaddr *>(&address), &length) != 0)
        fail("bare server");
    std::printf("%d\n", ntohs(address.sin_port));
    std::fflush(stdout);

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
    const int peer = ::socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (::connect(peer, reinterpret_cast<sockaddr *>(&address), sizeof address) != 0)
        fail("bare connect");

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
    std::printf("{\"seconds\":%.9f,\"grownKiB\":0}\n",
                static_cast<double>(timer.nsecsElapsed()) / 1e9);
    return 0;
}

// ---- The library's pair
// --------------------------------------------------------------------------

int libraryServer(const QString &home)
{
    LocalServer server(home);
    const unsigned short port = server.listen();
    if (port == 0)
        fail("listen");
    std::printf("%d\n", port);
    std::fflush(stdout);
    return QCoreApplication::exec();
}

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
    std::printf("{\"seconds\":%.9f,\"grownKiB\":%lld}\n", seconds, static_cast<long long>(grown));
    return 0;
}

// ---- The parent
// ----------------------------------------------------------------------------------

struct Run
{
    double seconds = 0;
    qint64 clientGrownKiB = 0;
    qint64 serverGrownKiB = 0;
};

QByteArray firstLine(QProcess &process)
{
    while (!process.canReadLine()) {
        if (!process.waitForReadyRead(60000))
            fail("child says nothing");
    }
    return process.readLine().trimmed();
}

Run runPair(const QList<QString> &serverArguments, const QString &clientMode,
            const QList<QString> &clientArguments)
{
    QProcess server;
    server.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    server.start(QCoreApplication::applicationFilePath(), serverArguments);
    const QString port = QString::fromLatin1(firstLine(server));
    const qint64 before = ProcFs::memoryKiB(server.processId(), "VmRSS");

    QProcess client;
    client.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    client.start(QCoreApplication::applicationFilePath(),
                 QList<QString>{clientMode, port} + clientArguments);
    if (!client.waitForFinished(-1) || client.exitCode() != 0)
        fail("client");
    const QJsonObject said = QJsonDocument::fromJson(client.readAllStandardOutput()).object();

    Run run;
    run.seconds = said.value(u"seconds"_s).toDouble();
    run.clientGrownKiB = said.value(u"grownKiB"_s).toInteger();
    run.serverGrownKiB = ProcFs::memoryKiB(server.processId(), "VmHWM") - before;
    server.terminate();
    server.waitForFinished(10000);
    return run;
}

template<typename Value>
Value median(QList<Value> values)
{
    std::sort(values.begin(), values.end());
    return values.at(values.size() / 2);
}

struct Series
{
    QList<double> seconds;
    qint64 clientGrownKiB = 0;
    qint64 serverGrownKiB = 0;

    void add(const Run &run)
    {
        seconds.append(run.seconds);
        clientGrownKiB = std::max(clientGrownKiB, run.clientGrownKiB);
        serverGrownKiB = std::max(serverGrownKiB, run.serverGrownKiB);
    }
};

void makeFile(const QString &path, qint64 size)
{
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Unbuffered))
        fail("source");
    QByteArray block(qsizetype(1) << 20, Qt::Uninitialized);
    quint32 state = 1;
    for (char &byte : block) {
        state = state * 1664525u + 1013904223u;
        byte = static_cast<char>(state >> 24);
    }
    for (qint64 done = 0; done < size; done += block.size()) {
        const qint64 count = std::min<qint64>(block.size(), size - done);
        if (file.write(block.constData(), count) != count)
            fail("source");
    }
}

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
            bare.add(runPair({u"bare-server"_s, isGet ? source : target}, u"bare-"_s + direction,
                             {isGet ? target : source, QString::number(size)}));
        }
        QFile::remove(target);
        library.add(runPair({u"server"_s, folder}, direction,
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
        return libraryServer(arguments.value(2));
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
