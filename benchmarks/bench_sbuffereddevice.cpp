// SPDX-License-Identifier: MIT
// Small reads and writes of a file through the buffered device, beside the same on the bare file,
// unbuffered and with the buffer of QFile. Each row goes once through a whole file.
#include "shared/ratioreporter.h"

#include <brixlib/devices/sbuffereddevice.h>

#include <QtCore/QFile>
#include <QtCore/QTemporaryDir>

#include <array>
#include <functional>
#include <random>

using namespace Talverine;
using namespace Qt::StringLiterals;

namespace {

constexpr qint64 kFileBytes = 1 << 20;
constexpr int kLargestPiece = 64;

enum class Kind { Device, Unbuffered, Buffered };

const std::vector<std::string> kRows = {"SBufferedDevice", "unbuffered QFile", "buffered QFile"};

// A file, opened as a row wants it.
class Target
{
public:
    Target(const QString &path, Kind kind)
        : m_file(path)
        , m_kind(kind)
    {
    }

    //! Null when it does not open.
    QIODevice *open(QIODevice::OpenMode mode)
    {
        if (m_kind != Kind::Buffered)
            mode |= QIODevice::Unbuffered;
        QIODevice *device = &m_file;
        if (m_kind == Kind::Device)
            device = &m_device;
        return device->open(mode) ? device : nullptr;
    }

private:
    QFile m_file;
    SBufferedDevice m_device{&m_file};
    Kind m_kind;
};

// Sizes of the pieces, a fixed sequence; one size, or 0 for each from 1 to 64.
std::array<qint64, 4096> pieceSizes(int size)
{
    std::mt19937 random(20261120);
    std::array<qint64, 4096> sizes;
    for (qint64 &each : sizes)
        each = size > 0 ? size : static_cast<qint64>(random() % kLargestPiece + 1);
    return sizes;
}

// Calls transfer(pieceSize) until the bytes of a file have gone; false when one falls short.
template<typename Transfer>
bool goThrough(const std::array<qint64, 4096> &sizes, Transfer transfer)
{
    std::size_t next = 0;
    for (qint64 left = kFileBytes; left > 0;) {
        const qint64 size = std::min(left, sizes[next++ % sizes.size()]);
        for (qint64 done = 0; done < size;) {
            const qint64 count = transfer(size - done);
            if (count < 1)
                return false;
            done += count;
        }
        left -= size;
    }
    return true;
}

void readPieces(benchmark::State &state, const QString &path, Kind kind, int size)
{
    const auto sizes = pieceSizes(size);
    char piece[kLargestPiece];
    for (auto _ : state) {
        Target target(path, kind);
        QIODevice *device = target.open(QIODevice::ReadOnly);
        if (!device ||
            !goThrough(sizes, [&](qint64 count) { return device->read(piece, count); })) {
            state.SkipWithError("read failed");
            break;
        }
        benchmark::DoNotOptimize(piece);
    }
    state.SetBytesProcessed(state.iterations() * kFileBytes);
}

void writePieces(benchmark::State &state, const QString &path, Kind kind, int size)
{
    const auto sizes = pieceSizes(size);
    const char piece[kLargestPiece] = {};
    for (auto _ : state) {
        Target target(path, kind);
        QIODevice *device = target.open(QIODevice::ReadWrite);
        if (!device ||
            !goThrough(sizes, [&](qint64 count) { return device->write(piece, count); })) {
            state.SkipWithError("write failed");
            break;
        }
        device->close();
    }
    state.SetBytesProcessed(state.iterations() * kFileBytes);
}

void addGroup(RatioReporter *reporter, const QString &path, bool reading, int size)
{
    const std::string group = std::string(reading ? "read " : "write ") +
                              (size > 0 ? std::to_string(size) : std::string("1 to 64"));
    reporter->addGroup(group, kRows);
    const auto run = reading ? readPieces : writePieces;
    for (const Kind kind : {Kind::Device, Kind::Unbuffered, Kind::Buffered}) {
        const std::string name = group + '/' + kRows[static_cast<std::size_t>(kind)];
        benchmark::RegisterBenchmark(name.c_str(),
                                     [=](benchmark::State &state) { run(state, path, kind, size); })
            ->Unit(benchmark::kMillisecond)
            ->MinTime(0.1);
    }
}

} // namespace

int main(int argc, char **argv)
{
    const QTemporaryDir folder;
    const QString path = folder.filePath(u"file"_s);
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(QByteArray(kFileBytes, 'x')) != kFileBytes)
        return 1;
    file.close();

    RatioReporter reporter;
    for (const bool reading : {true, false}) {
        for (const int size : {0, 1, 2, 4, 8, 16, 32, 64})
            addGroup(&reporter, path, reading, size);
    }
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    return 0;
}
