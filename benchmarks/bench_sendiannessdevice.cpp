// SPDX-License-Identifier: MIT
// Arrays of numbers read and written in the other byte order, beside a plain loop of qbswap over
// the same bytes of the same device.
#include "shared/ratioreporter.h"

#include <brixlib/devices/sendiannessdevice.h>

#include <QtCore/QFile>
#include <QtCore/QTemporaryDir>
#include <QtCore/QtEndian>

#include <memory>

using namespace Talverine;
using namespace Qt::StringLiterals;

namespace {

constexpr qint64 kFileBytes = 16 << 20;

template<typename T>
void swapAll(char *bytes, qint64 size)
{
    T *elements = reinterpret_cast<T *>(bytes);
    for (qint64 i = 0; i < size / static_cast<qint64>(sizeof(T)); ++i)
        elements[i] = qbswap(elements[i]);
}

// Goes through the file in arrays of a size, `array` of which gives false when it fails.
template<typename Array>
void goThrough(benchmark::State &state, QFile *file, qint64 size, Array array)
{
    for (auto _ : state) {
        bool good = file->seek(0);
        for (qint64 done = 0; good && done < kFileBytes; done += size)
            good = array();
        if (!good) {
            state.SkipWithError("transfer failed");
            break;
        }
    }
    state.SetBytesProcessed(state.iterations() * kFileBytes);
}

template<typename T>
void readDevice(benchmark::State &state, QFile *file, qint64 size)
{
    SEndiannessDevice device(file, ByteOrder::BigEndian);
    const auto bytes = std::make_unique<char[]>(static_cast<std::size_t>(size));
    goThrough(state, file, size, [&] {
        return device.readEndianBytes(bytes.get(), sizeof(T),
                                      static_cast<quint64>(size) / sizeof(T));
    });
}

template<typename T>
void readPlain(benchmark::State &state, QFile *file, qint64 size)
{
    const auto bytes = std::make_unique<char[]>(static_cast<std::size_t>(size));
    goThrough(state, file, size, [&] {
        if (file->read(bytes.get(), size) != size)
            return false;
        swapAll<T>(bytes.get(), size);
        benchmark::ClobberMemory();
        return true;
    });
}

template<typename T>
void writeDevice(benchmark::State &state, QFile *file, qint64 size)
{
    SEndiannessDevice device(file, ByteOrder::BigEndian);
    const auto bytes = std::make_unique<char[]>(static_cast<std::size_t>(size));
    goThrough(state, file, size, [&] {
        return device.writeEndianBytes(bytes.get(), sizeof(T),
                                       static_cast<quint64>(size) / sizeof(T));
    });
}

// The array stays its owner's here too: a copy is turned.
template<typename T>
void writePlain(benchmark::State &state, QFile *file, qint64 size)
{
    const auto bytes = std::make_unique<char[]>(static_cast<std::size_t>(size));
    goThrough(state, file, size, [&] {
        const auto copy = std::make_unique<T[]>(static_cast<std::size_t>(size) / sizeof(T));
        std::memcpy(copy.get(), bytes.get(), static_cast<std::size_t>(size));
        swapAll<T>(reinterpret_cast<char *>(copy.get()), size);
        return file->write(reinterpret_cast<char *>(copy.get()), size) == size;
    });
}

using Row = void (*)(benchmark::State &, QFile *, qint64);

void addGroup(RatioReporter *reporter, const std::string &group, QFile *file, qint64 size,
              Row device, Row plain)
{
    reporter->addGroup(group, {"SEndiannessDevice", "plain loop"});
    const auto add = [&](const char *name, Row row) {
        benchmark::RegisterBenchmark((group + '/' + name).c_str(),
                                     [=](benchmark::State &state) { row(state, file, size); })
            ->Unit(benchmark::kMillisecond)
            ->MinTime(0.1);
    };
    add("SEndiannessDevice", device);
    add("plain loop", plain);
}

template<typename T>
void addGroups(RatioReporter *reporter, QFile *file)
{
    const std::string elements = " of " + std::to_string(sizeof(T)) + " bytes, ";
    for (const qint64 kib : {4, 64, 1024, 16384}) {
        const std::string rest = elements + std::to_string(kib) + " KiB";
        addGroup(reporter, "read" + rest, file, kib * 1024, readDevice<T>, readPlain<T>);
        addGroup(reporter, "write" + rest, file, kib * 1024, writeDevice<T>, writePlain<T>);
    }
}

} // namespace

int main(int argc, char **argv)
{
    const QTemporaryDir folder;
    QFile file(folder.filePath(u"file"_s));
    if (!file.open(QIODevice::ReadWrite | QIODevice::Unbuffered) ||
        file.write(QByteArray(kFileBytes, 'x')) != kFileBytes)
        return 1;

    RatioReporter reporter;
    addGroups<quint16>(&reporter, &file);
    addGroups<quint32>(&reporter, &file);
    addGroups<quint64>(&reporter, &file);
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    return 0;
}
