// SPDX-License-Identifier: MIT
// One exchange of the protocol over loopback, client thread to server thread, beside two bare
// sockets that send the same words in the same order; and the making of a command from bytes while
// other connections have their prototypes in the registry.
#include "shared/localserver.h"

#include <brixlib/fileservice/commands/scommandexists.h>
#include <brixlib/fileservice/device/sclientdevice.h>
#include <brixlib/fileservice/sclientftp.h>
#include <brixlib/foundation/scontexthelper.h>
#include <brixlib/protocol/client/sclientcontroller.h>
#include <brixlib/protocol/scommandhelper.h>
#include <brixlib/protocol/wire.h>

#include <brixsec/ssecurestring.h>

#include <QtCore/QCoreApplication>
#include <QtCore/QEventLoop>
#include <QtCore/QFile>
#include <QtCore/QSemaphore>
#include <QtCore/QTemporaryDir>
#include <QtCore/QThread>
#include <QtCore/QtEndian>
#include <QtNetwork/QTcpServer>
#include <QtNetwork/QTcpSocket>

#include <benchmark/benchmark.h>

#include <functional>
#include <random>

using namespace Talverine;
using namespace Qt::StringLiterals;

namespace {

constexpr int kExchanges = 2000;
constexpr int kWaitMs = 10000;

// Runs a function that makes objects in a thread of its own with an event loop.
class LoopThread : public QThread
{
public:
    explicit LoopThread(std::function<std::function<void()>()> setUp)
        : m_setUp(std::move(setUp))
    {
        start();
        m_ready.acquire();
    }
    ~LoopThread() override
    {
        quit();
        wait();
    }

protected:
    void run() override
    {
        const std::function<void()> tearDown = m_setUp();
        m_ready.release();
        exec();
        tearDown();
    }

private:
    std::function<std::function<void()>()> m_setUp;
    QSemaphore m_ready;
};

bool readExactly(QTcpSocket &socket, char *data, qint64 size)
{
    for (qint64 done = 0; done < size;) {
        if (socket.bytesAvailable() == 0 && !socket.waitForReadyRead(kWaitMs))
            return false;
        const qint64 count = socket.read(data + done, size - done);
        if (count < 1)
            return false;
        done += count;
    }
    return true;
}

bool writeExactly(QTcpSocket &socket, const char *data, qint64 size)
{
    if (socket.write(data, size) != size)
        return false;
    while (socket.bytesToWrite() > 0) {
        if (!socket.waitForBytesWritten(kWaitMs))
            return false;
    }
    return true;
}

bool writeWord(QTcpSocket &socket, quint32 word)
{
    const quint32_be bytes(word);
    return writeExactly(socket, reinterpret_cast<const char *>(&bytes), sizeof bytes);
}

bool readWord(QTcpSocket &socket, quint32 *word)
{
    quint32_be bytes;
    if (!readExactly(socket, reinterpret_cast<char *>(&bytes), sizeof bytes))
        return false;
    *word = bytes;
    return true;
}

QByteArray existsBody()
{
    QByteArray body;
    return SCommandExists(u"/file"_s).serializeArray(body) ? body : QByteArray();
}

// The server's half of one exchange; false when the peer is gone.
bool answerBare(QTcpSocket &socket)
{
    quint32 length = 0;
    if (!readWord(socket, &length) || length == 0)
        return false;
    QByteArray body(length, Qt::Uninitialized);
    const char result = 0;
    return readExactly(socket, body.data(), body.size()) && writeWord(socket, Wire::kAckWord) &&
           writeExactly(socket, &result, 1) && writeWord(socket, Wire::kAckWord);
}

bool askBare(QTcpSocket &socket, const QByteArray &body)
{
    quint32 accepted = 0;
    quint32 completed = 0;
    char result = 0;
    return writeWord(socket, static_cast<quint32>(body.size())) &&
           writeExactly(socket, body.constData(), body.size()) && readWord(socket, &accepted) &&
           readExactly(socket, &result, 1) && readWord(socket, &completed) &&
           accepted == Wire::kAckWord && completed == Wire::kAckWord;
}

void bareSockets(benchmark::State &state)
{
    QTcpServer listener;
    listener.listen(QHostAddress::LocalHost);
    QTcpSocket client;
    client.connectToHost(QHostAddress::LocalHost, listener.serverPort());
    if (!client.waitForConnected(kWaitMs) || !listener.waitForNewConnection(kWaitMs))
        return state.SkipWithError("no connection");
    client.setSocketOption(QAbstractSocket::LowDelayOption, 1);
    QTcpSocket *accepted = listener.nextPendingConnection();
    accepted->setParent(nullptr);

    QThread *server = QThread::create([accepted] {
        accepted->setSocketOption(QAbstractSocket::LowDelayOption, 1);
        while (answerBare(*accepted)) {
        }
        delete accepted;
    });
    accepted->moveToThread(server);
    server->start();

    const QByteArray body = existsBody();
    for (auto _ : state) {
        for (int i = 0; i < kExchanges; ++i) {
            if (!askBare(client, body)) {
                state.SkipWithError("exchange failed");
                break;
            }
        }
    }
    state.SetItemsProcessed(state.iterations() * kExchanges);
    client.disconnectFromHost();
    server->wait();
    delete server;
}
BENCHMARK(bareSockets)->UseRealTime()->Unit(benchmark::kMillisecond);

// A client logged in on a server of its own; both run in threads of their own.
class Session
{
public:
    Session()
        : m_serverThread([this] {
            m_server = std::make_unique<LocalServer>(m_home.path());
            m_port = m_server->listen();
            return [this] { m_server.reset(); };
        })
    {
        m_client = new SClientFtp(QHostAddress(QHostAddress::LocalHost), m_port);
        QObject::connect(m_client, &SClientFtp::commandResult, m_client,
                         [this](SCommandId id, bool success) { count(id, success); });
        m_runner = m_controller.connectClient(m_client, false);
        if (!m_runner)
            return;
        QEventLoop loop;
        QObject::connect(m_client,
                         qOverload<const QList<SCommandId> &>(&SClientFtp::commandListResult),
                         &loop, &QEventLoop::quit);
        m_client->authenticate(u"bench"_s, u"bench"_s);
        loop.exec();
    }
    ~Session()
    {
        m_controller.interruptWorkers();
        delete m_runner;
    }

    bool isReady() const { return m_runner; }

    bool exchange(int times)
    {
        m_failed = 0;
        for (int i = 0; i < times; ++i)
            m_client->exists(u"/file"_s);
        return m_done.tryAcquire(times, kWaitMs) && m_failed == 0;
    }

private:
    void count(SCommandId id, bool success)
    {
        if (id != SCommandExists().id())
            return;
        if (!success)
            ++m_failed;
        m_done.release();
    }

    QTemporaryDir m_home;
    std::unique_ptr<LocalServer> m_server;
    unsigned short m_port = 0;
    LoopThread m_serverThread;
    SClientController m_controller{nullptr};
    SClientFtp *m_client = nullptr;
    SSimpleBackgroundRunner *m_runner = nullptr;
    QSemaphore m_done;
    std::atomic<int> m_failed = 0;
};

void exchange(benchmark::State &state)
{
    Session session;
    if (!session.isReady())
        return state.SkipWithError("no session");
    for (auto _ : state) {
        if (!session.exchange(kExchanges)) {
            state.SkipWithError("exchange failed");
            break;
        }
    }
    state.SetItemsProcessed(state.iterations() * kExchanges);
}
BENCHMARK(exchange)->UseRealTime()->Unit(benchmark::kMillisecond);

// A server with a file of the given size; the remote device blocks the calling thread.
class DeviceHost
{
public:
    explicit DeviceHost(qint64 fileBytes)
        : m_thread([this] {
            m_server = std::make_unique<LocalServer>(m_home.path());
            m_port = m_server->listen();
            return [this] { m_server.reset(); };
        })
    {
        QFile file(m_home.filePath(u"file"_s));
        if (file.open(QIODevice::WriteOnly))
            file.write(QByteArray(fileBytes, 'x'));
    }

    std::unique_ptr<SClientDevice> open() const
    {
        auto device = std::make_unique<SClientDevice>(u"127.0.0.1"_s, u"file"_s, m_port, u"bench"_s,
                                                      Security::SSecureString(u"bench"_s));
        return device->open(QIODevice::ReadOnly) ? std::move(device) : nullptr;
    }

private:
    QTemporaryDir m_home;
    std::unique_ptr<LocalServer> m_server;
    unsigned short m_port = 0;
    LoopThread m_thread;
};

// A seek and a read of 4 KiB each, all over the file.
void randomReads(benchmark::State &state)
{
    constexpr int kReadBytes = 4096;
    constexpr qint64 kFileBytes = qint64(64) << 20;
    const DeviceHost host(kFileBytes);
    const auto device = host.open();
    if (!device)
        return state.SkipWithError("no device");
    std::minstd_rand random;
    char buffer[kReadBytes];
    for (auto _ : state) {
        for (int i = 0; i < kExchanges; ++i) {
            const auto position = static_cast<qint64>(random()) % (kFileBytes - kReadBytes);
            if (!device->seek(position) || device->read(buffer, kReadBytes) != kReadBytes) {
                state.SkipWithError("read failed");
                break;
            }
        }
    }
    state.SetItemsProcessed(state.iterations() * kExchanges);
}
BENCHMARK(randomReads)->UseRealTime()->Unit(benchmark::kMillisecond);

// Argument: how many connections have their prototypes in the registry.
void createCommand(benchmark::State &state)
{
    std::vector<std::unique_ptr<SClientFtp>> connections;
    for (int64_t i = 0; i < state.range(0); ++i)
        connections.push_back(std::make_unique<SClientFtp>(QHostAddress(), 0));

    // The newest context of all: the worst place in a list that is searched from the front.
    const unsigned int context = SContextHelper::newContextId();
    SCommandHelper::registerCommand(new SCommandExists, context);
    const QByteArray body = existsBody();
    for (auto _ : state) {
        const std::unique_ptr<SCommand> command(SCommandHelper::createCommand(body, context));
        benchmark::DoNotOptimize(command.get());
    }
    SCommandHelper::deregisterCommands(context);
}
BENCHMARK(createCommand)->Arg(1)->Arg(10)->Arg(100)->Arg(1000);

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
