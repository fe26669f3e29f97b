// SPDX-License-Identifier: MIT
// What the measuring and throttling socket costs over loopback, beside a bare QTcpSocket that does
// the same: the rate of writing and reading in blocks. Rows by the size of a block.
#include "../tests/shared/rawpeer.h"

#include <brixlib/protocol/socket/stcpsocket.h>

#include <QtCore/QCoreApplication>

#include <benchmark/benchmark.h>

#include <limits>
#include <thread>

using namespace Talverine;

namespace {

constexpr int kBufferBytes = 262144;
constexpr int kWaitMs = 10000;

void setOptions(QTcpSocket *socket)
{
    socket->setSocketOption(QAbstractSocket::SendBufferSizeSocketOption, kBufferBytes);
    socket->setSocketOption(QAbstractSocket::ReceiveBufferSizeSocketOption, kBufferBytes);
    socket->setSocketOption(QAbstractSocket::LowDelayOption, 1);
}

void setLimit(QTcpSocket *, qint64) {}

void setLimit(STcpSocket *socket, qint64 limit)
{
    socket->setOutcomingSpeed(limit);
    socket->setIncomingSpeed(limit);
}

// Blocks written and drained one by one, as a file transfer does.
template<typename Socket, qint64 Limit = 0>
void writeBlocks(benchmark::State &state)
{
    Socket socket;
    RawPeer peer;
    if (!peer.accept(&socket)) {
        state.SkipWithError("no connection");
        return;
    }
    setOptions(&socket);
    setLimit(&socket, Limit);
    std::thread reader([&] {
        while (peer.receiveSome(kBufferBytes) > 0) {
        }
    });
    const QByteArray block(state.range(0), 'x');
    for (auto _ : state) {
        bool written = socket.write(block) == block.size();
        while (written && socket.bytesToWrite() > 0)
            written = socket.waitForBytesWritten(kWaitMs);
        if (!written) {
            state.SkipWithError("write failed");
            break;
        }
    }
    state.SetBytesProcessed(state.iterations() * block.size());
    socket.abort();
    reader.join();
}

template<typename Socket, qint64 Limit = 0>
void readBlocks(benchmark::State &state)
{
    Socket socket;
    RawPeer peer;
    if (!peer.accept(&socket)) {
        state.SkipWithError("no connection");
        return;
    }
    setOptions(&socket);
    setLimit(&socket, Limit);
    std::thread writer([&] {
        const QByteArray block(kBufferBytes, 'x');
        while (peer.send(block)) {
        }
    });
    QByteArray block(state.range(0), Qt::Uninitialized);
    for (auto _ : state) {
        for (qint64 done = 0; done < block.size();) {
            if (socket.bytesAvailable() == 0 && !socket.waitForReadyRead(kWaitMs)) {
                state.SkipWithError("read failed");
                break;
            }
            done += socket.read(block.data() + done, block.size() - done);
        }
    }
    state.SetBytesProcessed(state.iterations() * block.size());
    socket.abort();
    writer.join();
}

constexpr qint64 kNeverReached = std::numeric_limits<qint64>::max();

void blocks(benchmark::internal::Benchmark *row)
{
    row->Arg(64)->Arg(4096)->Arg(65536)->Arg(262144)->Arg(1 << 20)->UseRealTime();
}

BENCHMARK(writeBlocks<QTcpSocket>)->Name("write/QTcpSocket")->Apply(blocks);
BENCHMARK(writeBlocks<STcpSocket>)->Name("write/STcpSocket")->Apply(blocks);
BENCHMARK(writeBlocks<STcpSocket, kNeverReached>)
    ->Name("write/STcpSocket, high limit")
    ->Apply(blocks);
BENCHMARK(readBlocks<QTcpSocket>)->Name("read/QTcpSocket")->Apply(blocks);
BENCHMARK(readBlocks<STcpSocket>)->Name("read/STcpSocket")->Apply(blocks);
BENCHMARK(readBlocks<STcpSocket, kNeverReached>)
    ->Name("read/STcpSocket, high limit")
    ->Apply(blocks);

} // namespace

int main(int argc, char **argv)
{
    const QCoreApplication application(argc, argv);
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
