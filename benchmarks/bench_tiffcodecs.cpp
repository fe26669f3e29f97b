// SPDX-License-Identifier: MIT
// PackBits and LZW beside libtiff's on the same strips of the same rows, from memory to memory, and
// the decoder of PackBits beside memcpy.
//
// Both sides take turns on slices of the data, first the one, then the other, so that what else the
// machine does meets both. A row is the rates of both, in plain bytes, and the median of the
// slices' ratios. Measured is processor time.
//
//     bench_tiffcodecs [--size MIB] [--only TEXT]
#include "shared/compressiondata.h"
#include "shared/timedpairs.h"

#include <brixlib/compression/spackbits.h>
#include <brixlib/compression/stifflzw.h>

#include <shared/memorytiff.h>

#include <QtCore/QBuffer>
#include <QtCore/QCommandLineParser>
#include <QtCore/QCoreApplication>

#include <cstdio>
#include <cstdlib>
#include <cstring>

using namespace Talverine::Compression;
using namespace Qt::StringLiterals;
using CompressionData::Kind;
using CompressionData::kMiB;
using CompressionData::kRowBytes;
using CompressionData::kSliceBytes;
using CompressionData::Slices;
using Interfaces::ICompressor;
using TimedPairs::Pairs;

namespace {

constexpr int kRowsOfAStrip = 32;
constexpr qsizetype kStripBytes = kRowsOfAStrip * kRowBytes;
constexpr quint32 kStrips = kSliceBytes / kStripBytes;

using Strips = std::vector<QByteArray>;

[[noreturn]] void fail(const char *what)
{
    std::fprintf(stderr, "%s failed\n", what);
    std::exit(1);
}

struct Codec
{
    const char *name;
    int compression; // libtiff's number
    std::unique_ptr<ICompressor> (*make)();
    //! Writes a strip as libtiff would have its rows.
    bool (*encode)(ICompressor *compressor, const char *pixels, QIODevice *target);
};

std::unique_ptr<ICompressor> makePackBits()
{
    return std::make_unique<SPackBits>(PackBitsMode::PackBitsRaw);
}

std::unique_ptr<ICompressor> makeLzw()
{
    return std::make_unique<STiffLZW>();
}

// No packet crosses the end of a row.
bool encodeByRows(ICompressor *compressor, const char *pixels, QIODevice *target)
{
    for (int row = 0; row < kRowsOfAStrip; ++row) {
        if (compressor->compress(pixels + row * kRowBytes, kRowBytes, target) != kRowBytes)
            return false;
    }
    return true;
}

bool encodeWhole(ICompressor *compressor, const char *pixels, QIODevice *target)
{
    return compressor->compress(pixels, kStripBytes, target) == kStripBytes &&
           compressor->finalize();
}

constexpr Codec kCodecs[] = {
    {"packbits", COMPRESSION_PACKBITS, makePackBits, encodeByRows},
    {"lzw", COMPRESSION_LZW, makeLzw, encodeWhole},
};

std::unique_ptr<MemoryTiff> emptyTiff(int compression)
{
    auto tiff =
        std::make_unique<MemoryTiff>(compression, static_cast<int>(kRowBytes),
                                     static_cast<int>(kSliceBytes / kRowBytes), kRowsOfAStrip);
    tiff->reserve(2 * kSliceBytes);
    return tiff;
}

void writeTiff(const QByteArray &slice, MemoryTiff *tiff)
{
    for (quint32 strip = 0; strip < kStrips; ++strip) {
        if (!tiff->writeStrip(strip, slice.constData() + strip * kStripBytes, kStripBytes))
            fail("libtiff's encoder");
    }
}

void readTiff(MemoryTiff *tiff, char *plain)
{
    for (quint32 strip = 0; strip < kStrips; ++strip) {
        if (!tiff->readStrip(strip, plain + strip * kStripBytes, kStripBytes))
            fail("libtiff's decoder");
    }
}

Strips stripsOf(MemoryTiff *tiff)
{
    Strips strips;
    for (quint32 strip = 0; strip < kStrips; ++strip)
        strips.push_back(tiff->rawStrip(strip));
    return strips;
}

void write(const Codec &codec, const QByteArray &slice, ICompressor *compressor, QBuffer *target)
{
    target->seek(0);
    for (quint32 strip = 0; strip < kStrips; ++strip) {
        if (!codec.encode(compressor, slice.constData() + strip * kStripBytes, target))
            fail("encoder");
    }
}

QByteArray joined(const Strips &strips)
{
    QByteArray stream;
    for (const QByteArray &strip : strips)
        stream += strip;
    return stream;
}

// The strips stand one behind the other; calls have room for `piece` bytes.
void read(QBuffer *source, qint64 piece, ICompressor *compressor, char *plain)
{
    source->seek(0);
    const char *const end = plain + kSliceBytes;
    while (plain < end) {
        const char *const stripEnd = plain + kStripBytes;
        for (qint64 left = piece; plain<stripEnd; left = left> 0 ? left : piece) {
            const qint64 count = compressor->decompress(source, plain, left, 0);
            if (count <= 0)
                fail("decoder");
            plain += count;
            left -= count;
        }
        compressor->finalize();
    }
}

void readBlocks(const Strips &strips)
{
    for (const QByteArray &strip : strips) {
        if (SPackBits::decompress(strip).size() != kStripBytes)
            fail("decoder");
    }
}

QByteArray touched(qsizetype size)
{
    return QByteArray(size, 'x');
}

void beside(const Codec &codec, const Kind &kind, const Slices &slices)
{
    const std::unique_ptr<ICompressor> compressor = codec.make();
    QByteArray stream = touched(2 * kSliceBytes);
    QBuffer target(&stream);
    target.open(QIODevice::ReadWrite);
    QByteArray plain = touched(kSliceBytes);
    QByteArray theirs = touched(kSliceBytes);
    Pairs writing(CLOCK_THREAD_CPUTIME_ID);
    Pairs reading(CLOCK_THREAD_CPUTIME_ID);
    Pairs readingRows(CLOCK_THREAD_CPUTIME_ID);
    Pairs readingBlocks(CLOCK_THREAD_CPUTIME_ID);
    const bool isPackBits = codec.compression == COMPRESSION_PACKBITS;
    for (const QByteArray &slice : slices) {
        const std::unique_ptr<MemoryTiff> tiff = emptyTiff(codec.compression);
        writing.add([&] { write(codec, slice, compressor.get(), &target); },
                    [&] { writeTiff(slice, tiff.get()); });
        if (!tiff->startReading())
            fail("libtiff");
        const Strips strips = stripsOf(tiff.get());
        QByteArray allStrips = joined(strips);
        QBuffer source(&allStrips);
        source.open(QIODevice::ReadOnly);
        const auto base = [&] { readTiff(tiff.get(), theirs.data()); };
        reading.add([&] { read(&source, kStripBytes, compressor.get(), plain.data()); }, base);
        if (plain != slice || theirs != slice)
            fail("comparison");
        readingRows.add([&] { read(&source, kRowBytes, compressor.get(), plain.data()); }, base);
        if (isPackBits)
            readingBlocks.add([&] { readBlocks(strips); }, base);
        if (plain != slice || !tiff->complaints().isEmpty())
            fail("comparison");
    }
    const auto bytes = static_cast<double>(slices.size()) * kSliceBytes;
    writing.print(codec.name, kind.name, "encode, beside libtiff", bytes);
    reading.print(codec.name, kind.name, "decode strips, beside libtiff", bytes);
    readingRows.print(codec.name, kind.name, "decode row by row, beside libtiff", bytes);
    if (isPackBits)
        readingBlocks.print(codec.name, kind.name, "decode blocks, beside libtiff", bytes);
}

// Packets of 64 bytes and more, as many as make a strip.
struct LongPackets
{
    const char *name;
    bool hasRuns;
    bool hasLiterals;
};

constexpr LongPackets kLongPackets[] = {
    {"runs", true, false}, {"literals", false, true}, {"both", true, true}};

QByteArray longPackets(const LongPackets &kind, std::mt19937 &random)
{
    QByteArray packets;
    for (qsizetype left = kStripBytes; left > 0;) {
        auto length = std::min<qsizetype>(left, 64 + static_cast<qsizetype>(random() % 65));
        // What is left has to make a long packet too.
        if (left - length > 0 && left - length < 64)
            length = 64;
        const bool isRun = kind.hasRuns && (!kind.hasLiterals || random() % 2 == 0);
        packets += static_cast<char>(isRun ? 1 - length : length - 1);
        for (qsizetype stored = isRun ? 1 : length; stored > 0; --stored)
            packets += static_cast<char>(random());
        left -= length;
    }
    return packets;
}

void besideMemcpy(const LongPackets &kind, qsizetype size)
{
    std::mt19937 random(20261120);
    const std::unique_ptr<ICompressor> compressor = makePackBits();
    const QByteArray source = touched(kSliceBytes);
    QByteArray copy = touched(kSliceBytes);
    QByteArray plain = touched(kSliceBytes);
    Pairs reading(CLOCK_THREAD_CPUTIME_ID);
    Pairs readingBlocks(CLOCK_THREAD_CPUTIME_ID);
    for (qsizetype done = 0; done < size; done += kSliceBytes) {
        Strips strips;
        for (quint32 strip = 0; strip < kStrips; ++strip)
            strips.push_back(longPackets(kind, random));
        QByteArray allStrips = joined(strips);
        QBuffer stream(&allStrips);
        stream.open(QIODevice::ReadOnly);
        const auto base = [&] {
            for (qsizetype at = 0; at < kSliceBytes; at += kStripBytes)
                std::memcpy(copy.data() + at, source.constData() + at, kStripBytes);
        };
        reading.add([&] { read(&stream, kStripBytes, compressor.get(), plain.data()); }, base);
        readingBlocks.add([&] { readBlocks(strips); }, base);
    }
    reading.print("packbits", kind.name, "decode strips, beside memcpy", static_cast<double>(size));
    readingBlocks.print("packbits", kind.name, "decode blocks, beside memcpy",
                        static_cast<double>(size));
}

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication application(argc, argv);
    QCommandLineParser parser;
    parser.addOptions({{u"size"_s, u"MiB of each kind."_s, u"MIB"_s, u"256"_s},
                       {u"only"_s, u"Only codecs whose name begins so."_s, u"TEXT"_s}});
    parser.addHelpOption();
    parser.process(application);
    const qsizetype size = parser.value(u"size"_s).toInt() * kMiB;
    const QString only = parser.value(u"only"_s);

    std::printf("%-13s %-7s %-34s %8s %8s\n", "", "data", "", "measured", "beside");
    for (const Kind &kind : CompressionData::kKinds) {
        const Slices slices = makeSlices(kind, size);
        for (const Codec &codec : kCodecs) {
            if (QString::fromLatin1(codec.name).startsWith(only))
                beside(codec, kind, slices);
        }
    }
    if (u"packbits"_s.startsWith(only)) {
        for (const LongPackets &kind : kLongPackets)
            besideMemcpy(kind, size);
    }
    return 0;
}
