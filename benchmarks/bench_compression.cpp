// SPDX-License-Identifier: MIT
// LZ4 and Zip through the device and through the compressed file, beside the bare calls of the two
// libraries on blocks of the same size, from memory to memory; and two threads beside one.
//
// Both sides take turns on slices of the data, first the one, then the other, so that what else the
// machine does meets both. A row is the rates of both and the median of the slices' ratios. One
// thread is measured in its processor time, two in time that passes: those need an idle machine.
//
//     bench_compression [--size MIB] [--only TEXT]
#include "shared/compressiondata.h"
#include "shared/timedpairs.h"

#include <brixlib/compression/slz4.h>
#include <brixlib/compression/szip.h>

#include <QtCore/QBuffer>
#include <QtCore/QCommandLineParser>
#include <QtCore/QCoreApplication>
#include <QtCore/QThread>

#include <cstdio>
#include <cstdlib>
#include <functional>
#include <vector>

#include <lz4.h>
#include <lz4hc.h>
#include <zlib.h>

using namespace CompressionData;
using namespace Talverine::Compression;
using namespace Qt::StringLiterals;
using Interfaces::ICompressor;
using TimedPairs::Pairs;

namespace {

constexpr qsizetype kBlockBytes = 131072; // what a compressed file has for one thread

[[noreturn]] void fail(const char *what)
{
    std::fprintf(stderr, "%s failed\n", what);
    std::exit(1);
}

// ---- The bare libraries

struct Codec
{
    const char *name;
    int level;
    std::unique_ptr<ICompressor> (*make)(int level);
    qsizetype bound; // of a block
    //! Both give the size of what they write.
    qsizetype (*encode)(const char *data, qsizetype size, char *out, qsizetype room, int level);
    qsizetype (*decode)(const char *block, qsizetype length, char *out, qsizetype room);
};

std::unique_ptr<ICompressor> makeLz4(int level)
{
    return std::make_unique<SLz4>(level);
}

std::unique_ptr<ICompressor> makeZip(int level)
{
    return std::make_unique<SZip>(level);
}

qsizetype encodeLz4(const char *data, qsizetype size, char *out, qsizetype room, int level)
{
    return level < 1
               ? LZ4_compress_default(data, out, static_cast<int>(size), static_cast<int>(room))
               : LZ4_compress_HC(data, out, static_cast<int>(size), static_cast<int>(room), level);
}

qsizetype decodeLz4(const char *block, qsizetype length, char *out, qsizetype room)
{
    return LZ4_decompress_safe(block, out, static_cast<int>(length), static_cast<int>(room));
}

qsizetype encodeZip(const char *data, qsizetype size, char *out, qsizetype room, int level)
{
    auto length = static_cast<uLongf>(room);
    const int result =
        compress2(reinterpret_cast<Bytef *>(out), &length, reinterpret_cast<const Bytef *>(data),
                  static_cast<uLong>(size), level);
    return result == Z_OK ? static_cast<qsizetype>(length) : 0;
}

qsizetype decodeZip(const char *block, qsizetype length, char *out, qsizetype room)
{
    auto size = static_cast<uLongf>(room);
    const int result =
        uncompress(reinterpret_cast<Bytef *>(out), &size, reinterpret_cast<const Bytef *>(block),
                   static_cast<uLong>(length));
    return result == Z_OK ? static_cast<qsizetype>(size) : 0;
}

std::vector<Codec> codecs()
{
    const auto lz4Bound = static_cast<qsizetype>(LZ4_compressBound(kBlockBytes));
    const auto zipBound = static_cast<qsizetype>(compressBound(kBlockBytes));
    return {{"lz4, level 1", 1, makeLz4, lz4Bound, encodeLz4, decodeLz4},
            {"lz4, level 0", 0, makeLz4, lz4Bound, encodeLz4, decodeLz4},
            {"zip, level 1", 1, makeZip, zipBound, encodeZip, decodeZip}};
}

// The blocks of a slice one behind the other.
struct Blocks
{
    QByteArray bytes;
    std::vector<qsizetype> lengths;
};

quint32 checksum(quint32 crc, const char *data, qsizetype size)
{
    return static_cast<quint32>(
        crc32_z(crc, reinterpret_cast<const Bytef *>(data), static_cast<z_size_t>(size)));
}

// A sink for checksums that nobody looks at.
volatile quint32 g_checksum;

void encodeBare(const Codec &codec, const QByteArray &slice, bool withChecksum, Blocks *blocks)
{
    blocks->lengths.clear();
    char *out = blocks->bytes.data();
    quint32 crc = 0;
    for (qsizetype at = 0; at < slice.size(); at += kBlockBytes) {
        const char *data = slice.constData() + at;
        const qsizetype length = codec.encode(data, kBlockBytes, out, codec.bound, codec.level);
        if (length < 1)
            fail("bare encoder");
        if (withChecksum)
            crc = checksum(crc, data, kBlockBytes);
        out += length;
        blocks->lengths.push_back(length);
    }
    g_checksum = crc;
}

void decodeBare(const Codec &codec, const Blocks &blocks, bool withChecksum, QByteArray *plain)
{
    const char *block = blocks.bytes.constData();
    char *out = plain->data();
    quint32 crc = 0;
    for (const qsizetype length : blocks.lengths) {
        if (codec.decode(block, length, out, kBlockBytes) != kBlockBytes)
            fail("bare decoder");
        if (withChecksum)
            crc = checksum(crc, out, kBlockBytes);
        block += length;
        out += kBlockBytes;
    }
    g_checksum = crc;
}

// ---- The library

// Memory to write to, which has been touched already.
class Target
{
public:
    explicit Target(qsizetype room)
    {
        m_bytes.resize(room);
        m_bytes.fill('x');
    }

    //! Empty, with all of its room.
    QBuffer *empty()
    {
        m_buffer.close();
        m_bytes.resize(0);
        return &m_buffer;
    }
    const QByteArray &bytes() const { return m_bytes; }

private:
    QByteArray m_bytes;
    QBuffer m_buffer{&m_bytes};
};

void writeDevice(const Codec &codec, const QByteArray &slice, int threads, qsizetype piece,
                 QBuffer *target)
{
    SCompressorDevice device(target, codec.make(codec.level).release(), false);
    device.setConcurrence(threads);
    if (!device.open(QIODevice::WriteOnly))
        fail("device");
    for (qsizetype at = 0; at < slice.size(); at += piece) {
        if (device.write(slice.constData() + at, piece) != piece)
            fail("device write");
    }
    device.close();
}

void readDevice(const Codec &codec, QByteArray *stream, QByteArray *plain)
{
    QBuffer source(stream);
    SCompressorDevice device(&source, codec.make(codec.level).release(), false);
    if (!device.open(QIODevice::ReadOnly))
        fail("device");
    for (qsizetype at = 0; at < plain->size(); at += kBlockBytes) {
        if (device.read(plain->data() + at, kBlockBytes) != kBlockBytes)
            fail("device read");
    }
}

void writeContainer(const Codec &codec, QByteArray *slice, int threads, QBuffer *target)
{
    QBuffer source(slice);
    std::unique_ptr<ICompressor> compressor = codec.make(codec.level);
    compressor->setConcurrence(threads);
    if (!SCompressorDevice::compress(&source, target, compressor.release()))
        fail("container");
}

void readContainer(const Codec &codec, QByteArray *container, QBuffer *target)
{
    QBuffer source(container);
    if (!SCompressorDevice::decompress(&source, target, codec.make(codec.level).release()))
        fail("container read");
}

// All of one algorithm on data of one kind.
class Bench
{
public:
    Bench(const Codec &codec, const Kind &kind, Slices *slices)
        : m_codec(codec)
        , m_kind(kind)
        , m_slices(*slices)
        , m_target(kRoom)
    {
        m_blocks.bytes = QByteArray(kRoom, 'x');
        m_plain = QByteArray(kSliceBytes, 'x');
    }

    void oneThread()
    {
        pairs("write, device", [this](QByteArray *slice, Pairs *pairs) {
            pairs->add([&] { writeDevice(m_codec, *slice, 1, kBlockBytes, m_target.empty()); },
                       [&] { encodeBare(m_codec, *slice, false, &m_blocks); });
        });
        pairs("write, compressed file", [this](QByteArray *slice, Pairs *pairs) {
            pairs->add([&] { writeContainer(m_codec, slice, 1, m_target.empty()); },
                       [&] { encodeBare(m_codec, *slice, true, &m_blocks); });
        });
        pairs("read, device", [this](QByteArray *slice, Pairs *pairs) {
            encodeBare(m_codec, *slice, false, &m_blocks);
            writeDevice(m_codec, *slice, 1, kBlockBytes, m_target.empty());
            QByteArray stream = m_target.bytes();
            stream.detach();
            pairs->add([&] { readDevice(m_codec, &stream, &m_plain); },
                       [&] { decodeBare(m_codec, m_blocks, false, &m_plain); });
            if (m_plain != *slice)
                fail("comparison");
        });
        pairs("read, compressed file", [this](QByteArray *slice, Pairs *pairs) {
            encodeBare(m_codec, *slice, false, &m_blocks);
            writeContainer(m_codec, slice, 1, m_target.empty());
            QByteArray container = m_target.bytes();
            container.detach();
            pairs->add([&] { readContainer(m_codec, &container, m_target.empty()); },
                       [&] { decodeBare(m_codec, m_blocks, true, &m_plain); });
            if (m_target.bytes() != *slice)
                fail("comparison");
        });
    }

    // The larger a call, the less often the threads wait for one another.
    void twoThreads()
    {
        for (const qsizetype piece : {kBlockBytes, 4 * kMiB}) {
            const QByteArray way =
                "two threads, pieces of " + QByteArray::number(piece / 1024) + " KiB";
            pairs(
                way.constData(),
                [this, piece](QByteArray *slice, Pairs *pairs) {
                    QByteArray alone;
                    pairs->add(
                        [&] { writeDevice(m_codec, *slice, 2, 2 * piece, m_target.empty()); },
                        [&] { writeDevice(m_codec, *slice, 1, piece, m_other.empty()); });
                    if (m_target.bytes() != m_other.bytes())
                        fail("comparison");
                },
                CLOCK_MONOTONIC);
        }
        pairs(
            "two threads, compressed file",
            [this](QByteArray *slice, Pairs *pairs) {
                pairs->add([&] { writeContainer(m_codec, slice, 2, m_target.empty()); },
                           [&] { writeContainer(m_codec, slice, 1, m_other.empty()); });
                if (m_target.bytes() != m_other.bytes())
                    fail("comparison");
            },
            CLOCK_MONOTONIC);
    }

private:
    static constexpr qsizetype kRoom = kSliceBytes + kMiB;

    void pairs(const char *way, const std::function<void(QByteArray *, Pairs *)> &run,
               clockid_t clock = CLOCK_THREAD_CPUTIME_ID)
    {
        Pairs pairs(clock);
        for (QByteArray &slice : m_slices)
            run(&slice, &pairs);
        pairs.print(m_codec.name, m_kind.name, way,
                    static_cast<double>(m_slices.size()) * kSliceBytes);
    }

    const Codec &m_codec;
    const Kind &m_kind;
    Slices &m_slices;
    Target m_target;
    Target m_other{kRoom};
    Blocks m_blocks;
    QByteArray m_plain;
};

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
    for (const Kind &kind : kKinds) {
        Slices slices = makeSlices(kind, size);
        for (const Codec &codec : codecs()) {
            if (!QString::fromLatin1(codec.name).startsWith(only))
                continue;
            Bench bench(codec, kind, &slices);
            bench.oneThread();
            bench.twoThreads();
        }
    }
    return 0;
}
