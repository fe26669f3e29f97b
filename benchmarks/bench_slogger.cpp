// SPDX-License-Identifier: MIT
// What an entry costs, beside a bare write of its bytes, and what opening a log costs that is
// rotated by it, beside one that isn't.
#include <brixlib/database/log/slogger.h>

#include <QtCore/QCoreApplication>
#include <QtCore/QFile>
#include <QtCore/QLoggingCategory>
#include <QtCore/QTemporaryDir>

#include <benchmark/benchmark.h>

using namespace Talverine;
using namespace Qt::StringLiterals;

namespace {

constexpr int kEntries = 10001;
constexpr RotateParameters kUnlimited{.maxLogs = 100000000, .keepLogs = 300, .maxBytes = 1LL << 40};
constexpr RotateParameters kRotating{.maxLogs = 10000, .keepLogs = 300, .maxBytes = 1LL << 30};

const QString kUser = u"ada"_s;
const QString kPassword = u"secret"_s;

SDBRecord details()
{
    SDBRecord record;
    record.insert(u"head"_s, 3);
    record.insert(u"level"_s, 12.5);
    record.insert(u"remark"_s, u"cleaned, no drops missing"_s);
    return record;
}

// Entries of the same time are carried together, so each has one of its own here.
QList<SDBRecord> datedEntries(int count)
{
    constexpr qint64 kYear2024 = 5250082658427387904; // UTC
    constexpr qint64 kTicksPerSecond = 10'000'000;
    QList<SDBRecord> entries;
    for (int second = 0; second < count; ++second) {
        SDBRecord entry = details();
        entry.insert(SLogger::logDate(), kYear2024 + second * kTicksPerSecond);
        entries.append(entry);
    }
    return entries;
}

struct Place
{
    QTemporaryDir folder;
    QString file = folder.filePath(u"machine.log"_s);
};

void append(benchmark::State &state, bool searchedBefore)
{
    const Place place;
    SLogger log(place.file, kUnlimited);
    if (!log.open(kUser, kPassword)) {
        state.SkipWithError("open failed");
        return;
    }
    const SDBRecord record = details();
    // An index that is in use follows each entry.
    if (searchedBefore && (!log.append(u"HeadCleaned"_s, record) ||
                           !log.contains(SLogger::logId(), u"HeadCleaned"_s))) {
        state.SkipWithError("search failed");
        return;
    }
    for (auto _ : state) {
        if (!log.append(u"HeadCleaned"_s, record)) {
            state.SkipWithError("append failed");
            break;
        }
    }
    state.SetItemsProcessed(state.iterations());
    state.SetBytesProcessed(log.bytes());
}

void appendList(benchmark::State &state)
{
    const Place place;
    SLogger log(place.file, kUnlimited);
    const QList<SDBRecord> records(state.range(0), details());
    if (!log.open(kUser, kPassword)) {
        state.SkipWithError("open failed");
        return;
    }
    for (auto _ : state) {
        if (!log.append(u"HeadCleaned"_s, records)) {
            state.SkipWithError("append failed");
            break;
        }
    }
    state.SetItemsProcessed(state.iterations() * records.size());
}

void writeBytes(benchmark::State &state)
{
    const Place place;
    QFile file(place.file);
    const QByteArray entry(state.range(0), 'x');
    if (!file.open(QIODevice::WriteOnly | QIODevice::Unbuffered)) {
        state.SkipWithError("open failed");
        return;
    }
    for (auto _ : state) {
        if (file.write(entry) != entry.size()) {
            state.SkipWithError("write failed");
            break;
        }
    }
    state.SetItemsProcessed(state.iterations());
    state.SetBytesProcessed(file.size());
}

// Each time the same log, as it was before the first rotation.
void open(benchmark::State &state, const RotateParameters &limits, int expected)
{
    const Place place;
    const QString prepared = place.folder.filePath(u"prepared"_s);
    SLogger log(place.file, limits);
    SLogger source(prepared, kUnlimited);
    if (!source.open(kUser, kPassword) ||
        !source.append(u"HeadCleaned"_s, datedEntries(kEntries))) {
        state.SkipWithError("preparing failed");
        return;
    }
    source.close();
    for (auto _ : state) {
        state.PauseTiming();
        log.close();
        QFile::remove(place.file);
        QFile::copy(prepared, place.file);
        state.ResumeTiming();
        if (!log.open(kUser, kPassword) || log.count() < expected) {
            state.SkipWithError("open failed");
            break;
        }
    }
    state.SetItemsProcessed(state.iterations());
}

BENCHMARK_CAPTURE(append, one, false)->UseRealTime();
BENCHMARK_CAPTURE(append, one of a searched log, true)->UseRealTime();
BENCHMARK(appendList)->Name("append/list")->Arg(1000)->UseRealTime();
BENCHMARK(writeBytes)->Name("write/QFile")->Arg(350)->UseRealTime();
BENCHMARK_CAPTURE(open, 10001 entries, kUnlimited, kEntries)
    ->UseRealTime()
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(open, 10001 entries and rotate, kRotating, 2)
    ->UseRealTime()
    ->Unit(benchmark::kMillisecond);

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication application(argc, argv);
    QLoggingCategory::setFilterRules(u"*.debug=false"_s);
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
