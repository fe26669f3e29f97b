// SPDX-License-Identifier: MIT
// One large file read and written through a remote device behind a buffer, beside getFile and
// sendFile on the same file: read into memory, read into a file as getFile does, and written from a
// file. The program starts itself again for the server and for the client of each run, takes turns,
// and prints medians and ratios.
//
//     bench_clientdevice [--size BYTES] [--rounds N] [--dir FOLDER]
#include "shared/childpair.h"

#include <brixlib/devices/sbuffereddevice.h>
#include <brixlib/fileservice/device/sclientdevice.h>
#include <brixlib/fileservice/sclientftp.h>
#include <brixlib/protocol/client/sclientcontroller.h>
#include <brixlib/protocol/wire.h>
#include <brixsec/ssecurestring.h>

#include <QtCore/QCommandLineParser>
#include <QtCore/QElapsedTimer>
#include <QtCore/QEventLoop>
#include <QtCore/QFileInfo>
#include <QtCore/QTemporaryDir>

using namespace ChildPair;
using namespace Talverine;
using namespace Qt::StringLiterals;

namespace {

double secondsOf(const QElapsedTimer &timer)
{
    return static_cast<double>(timer.nsecsElapsed()) / 1e9;
}

// ---- The client of one run

int transfer(bool isGet, unsigned short port, const QString &remote, const QString &local)
{
    SClientController controller(nullptr);
    auto *client = new SClientFtp(QHostAddress(QHostAddress::LocalHost), port);
    QEventLoop loop;
    bool succeeded = false;
    const SCommandId wanted = isGet ? CommandIds::kGetFile : CommandIds::kSendFile;
    QObject::connect(client, &SClientFtp::commandResult, &loop, [&](SCommandId id, bool success) {
        if (id == CommandIds::kStreamVersion || id == wanted || !success) {
            succeeded = success;
            loop.quit();
        }
    });
    const std::unique_ptr<SSimpleBackgroundRunner> runner(controller.connectClient(client, false));
    if (!runner)
        fail("connect");
    client->authenticate(u"bench"_s, u"bench"_s);
    loop.exec();
    if (!succeeded)
        fail("login");

    QElapsedTimer timer;
    timer.start();
    if (isGet)
        client->getFile(remote, local, false);
    else
        client->sendFile(local, remote, false);
    loop.exec();
    if (!succeeded)
        fail("transfer");
    return say({{u"seconds"_s, secondsOf(timer)}});
}

// Block for block, as a program does that works on the bytes. Without a target they are dropped.
bool copyBlocks(QIODevice &from, QIODevice *to)
{
    const qint64 blockBytes = SBufferedDevice::networkFSBufferSize();
    const auto block = std::make_unique_for_overwrite<char[]>(static_cast<std::size_t>(blockBytes));
    for (;;) {
        const qint64 count = from.read(block.get(), blockBytes);
        if (count < 1)
            return count == 0;
        for (qint64 done = 0; to && done < count;) {
            const qint64 written = to->write(block.get() + done, count - done);
            if (written < 1)
                return false;
            done += written;
        }
    }
}

int throughDevice(const QString &mode, unsigned short port, const QString &remote,
                  const QString &local)
{
    const bool isRead = mode != u"write";
    const QIODevice::OpenMode access = isRead ? QIODevice::ReadOnly : QIODevice::WriteOnly;
    const QIODevice::OpenMode opposite = isRead ? QIODevice::WriteOnly : QIODevice::ReadOnly;
    SClientDevice device(u"127.0.0.1"_s, remote, port, u"bench"_s,
                         Security::SSecureString(u"bench"_s));
    SBufferedDevice buffered(&device, SBufferedDevice::networkFSBufferSize());
    QFile file(local);
    const bool hasFile = mode != u"look";
    if (!device.open(access) || !buffered.open(access) ||
        (hasFile && !file.open(opposite | QIODevice::Unbuffered)))
        fail("open");

    QElapsedTimer timer;
    timer.start();
    bool ok =
        isRead ? copyBlocks(buffered, hasFile ? &file : nullptr) : copyBlocks(file, &buffered);
    ok = buffered.flush() && ok;
    const qint64 bytes = buffered.pos();
    bool closed = false;
    device.close(&closed);
    if (!ok || !closed)
        fail("device");
    return say({{u"seconds"_s, secondsOf(timer)}, {u"bytes"_s, bytes}});
}

// ---- The parent

//! A way through the device and the transfer that it is compared with.
struct Way
{
    QString device;
    QString transfer;
    const char *title;
};

const QList<Way> &ways()
{
    static const QList<Way> list{{u"look"_s, u"get"_s, "read into memory"},
                                 {u"read"_s, u"get"_s, "read into a file"},
                                 {u"write"_s, u"send"_s, "written from a file"}};
    return list;
}

void measure(const Way &way, const QString &folder, qint64 size, int rounds)
{
    const bool isWrite = way.device == u"write";
    const QString source = folder + u"/source"_s;
    const QString target = folder + u"/target"_s;
    const QList<QString> files{isWrite ? target : source, isWrite ? source : target};
    QList<double> ofTransfer;
    QList<double> ofDevice;
    QList<double> ratios;
    const auto takeTurn = [&](const QString &mode, QList<double> *seconds) {
        QFile::remove(target);
        const QJsonObject said = run({u"server"_s, folder}, mode, files).said;
        seconds->append(said.value(u"seconds"_s).toDouble());
        const qint64 bytes =
            mode == u"look" ? said.value(u"bytes"_s).toInteger() : QFileInfo(target).size();
        if (bytes != size)
            fail("the target is not whole");
    };
    for (int round = 0; round < rounds; ++round) {
        takeTurn(way.transfer, &ofTransfer);
        takeTurn(way.device, &ofDevice);
        ratios.append(ofTransfer.last() / ofDevice.last());
    }
    const double mib = static_cast<double>(size) / (1 << 20);
    std::printf("%.0f MiB %s: device %.0f MiB/s, %sFile %.0f MiB/s, ratio %.2f (median of %d "
                "pairs)\n",
                mib, way.title, mib / median(ofDevice), qPrintable(way.transfer),
                mib / median(ofTransfer), median(ratios), rounds);
    std::fflush(stdout);
    QFile::remove(target);
}

int parent(const QCoreApplication &app)
{
    QCommandLineParser parser;
    parser.setApplicationDescription(u"A remote device beside whole transfers."_s);
    parser.addHelpOption();
    parser.addOption({u"size"_s, u"Bytes of the file."_s, u"bytes"_s, u"1073741824"_s});
    parser.addOption({u"rounds"_s, u"Pairs of runs."_s, u"n"_s, u"5"_s});
    parser.addOption({u"dir"_s, u"Folder to work in."_s, u"folder"_s, u"/dev/shm"_s});
    parser.process(app);

    const QTemporaryDir folder(parser.value(u"dir"_s) + u"/bench-clientdevice-XXXXXX"_s);
    const qint64 size = parser.value(u"size"_s).toLongLong();
    makeFile(folder.path() + u"/source"_s, size);
    for (const Way &way : ways())
        measure(way, folder.path(), size, parser.value(u"rounds"_s).toInt());
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
    const auto port = static_cast<unsigned short>(arguments.value(2).toUInt());
    if (mode == u"get" || mode == u"send")
        return transfer(mode == u"get", port, arguments.value(3), arguments.value(4));
    if (mode == u"look" || mode == u"read" || mode == u"write")
        return throughDevice(mode, port, arguments.value(3), arguments.value(4));
    return parent(app);
}
