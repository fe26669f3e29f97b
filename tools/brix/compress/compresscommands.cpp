// SPDX-License-Identifier: MIT
// brix compress and brix decompress: files of this machine in the library's compressed form.
#include "blockcounter.h"
#include "compressors.h"
#include <cli/liveprogress.h>
#include <cli/terminal.h>
#include <files/localstreams.h>
#include <files/placeoptions.h>
#include <process/blockingwork.h>
#include <process/interruption.h>
#include <tool.h>

#include <brixlib/compression/scompressordevice.h>

#include <brixrt/sfilehelper.h>

#include <QtCore/QFileInfo>
#include <QtCore/QLoggingCategory>
#include <QtCore/QtEndian>

namespace Brix {

using namespace Qt::StringLiterals;
using Compressors::Algorithm;
using Talverine::SFileHelper;
using Talverine::Compression::SCompressorDevice;

namespace {

constexpr auto kSuffix = ".brixz"_L1;
constexpr qint64 kHashBytes = 20;
constexpr qint64 kHeadBytes = kHashBytes + 4;
// What is compressed at once for each thread, as in a container.
constexpr int kPieceBytes = 131'072;
constexpr int kCopyBytes = 32'768;

// FILE and OUT.
struct Places
{
    LocalPlace input;
    LocalPlace output;
};

// FILE and OUT as they were given.
struct InputAndOutput
{
    PlaceOptions input;
    PlaceOptions output;
};

// Adds FILE and OUT, and returns OUT.
Argument &declarePlaces(Command *command, InputAndOutput *places, const std::string &outputHelp)
{
    declarePlace(command, "FILE", &places->input, "The file to read; \"-\" for stdin")
        .setRequired();
    return declarePlace(command, "OUT", &places->output, outputHelp);
}

// The name of OUT where none was given must not cost a file that is there.
LocalPlace unusedPlace(const QString &path)
{
    if (QFileInfo::exists(path))
        throw Failure{ExitCode::Refused, u"%1 is there already; name it to replace it"_s.arg(path)};
    return {path};
}

QString nameOf(const LocalPlace &place, QStringView standardStream)
{
    return place.isStandardStream() ? standardStream.toString() : place.path;
}

Failure damaged(const LocalPlace &input)
{
    return {ExitCode::Refused, u"%1 is damaged: it is cut short, or its content is not what its "
                               "checksum says"_s.arg(nameOf(input, u"stdin"))};
}

// Qt warns of each damaged block; the tool tells it in its own words, and once.
void leaveWarningsToTheTool()
{
    QLoggingCategory::setFilterRules(u"default.debug=false\ndefault.warning=false"_s);
}

// The work of either command, in a thread of its own.
void runWithProgress(const Output &output, bool hidden,
                     const std::function<void(LiveProgress *)> &work)
{
    const Interruption interruption;
    LiveProgress progress(output.quiet || hidden);
    runBlocking(interruption, [&] { work(&progress); });
}

//! Sizes of what was compressed or decompressed.
struct Sizes
{
    qint64 plain = 0;
    qint64 compressed = 0;
};

void report(const Output &output, const Places &places, const Algorithm &algorithm,
            const Sizes &sizes)
{
    if (places.output.isStandardStream())
        return;
    if (output.json) {
        output.object({{u"file"_s, places.output.path},
                       {u"algorithm"_s, algorithm.name},
                       {u"plain"_s, sizes.plain},
                       {u"compressed"_s, sizes.compressed}});
    } else if (!output.quiet) {
        output.line(u"%1: %2 plain, %3 compressed, %4"_s.arg(
            places.output.path, Output::bytes(sizes.plain), Output::bytes(sizes.compressed),
            algorithm.name));
    }
}

// compress

struct CompressOptions
{
    InputAndOutput places;
    QString algorithm;
    std::optional<int> level;
    int threads = 1;
    bool raw = false;
    bool list = false;
};

void declareCompress(Command *command, CompressOptions *options)
{
    std::vector<std::string> names;
    for (const QString &name : Compressors::names())
        names.push_back(name.toStdString());
    options->algorithm = Compressors::names().front();
    Argument &out =
        declarePlaces(command, &options->places,
                      "Where it goes; \"-\" for stdout. Default: FILE.brixz, or stdout for stdin");
    Argument &algorithm =
        command->addChoice("--algorithm", &options->algorithm, names, "How to compress");
    Argument &level = command->addNumber(
        "--level", &options->level,
        "How well: 0, the fastest, to 12 for lz4, 0 for not at all to 9 for zip. Default: 1",
        std::numeric_limits<int>::min());
    Argument &threads = command->addNumber("--threads", &options->threads,
                                           "Threads to use; 0 for half of those there are");
    Argument &raw = command->addFlag("--raw", &options->raw,
                                     "The compressed stream alone: no algorithm and no checksum in "
                                     "front");
    command->addFlag("--list", &options->list, "Tell what is in a compressed file")
        .setExcluded(out)
        .setExcluded(algorithm)
        .setExcluded(level)
        .setExcluded(threads)
        .setExcluded(raw);
}

LocalPlace compressedPlace(const CompressOptions &options)
{
    if (options.places.output.isNamed() || options.places.input.isStandardStream)
        return options.places.output.place();
    if (options.raw)
        throw Failure{ExitCode::Usage, u"say where the stream goes"_s};
    return unusedPlace(options.places.input.path + kSuffix);
}

int chosenLevel(const Algorithm &algorithm, std::optional<int> level)
{
    if (!level)
        return 1;
    if (algorithm.lowestLevel == algorithm.highestLevel)
        throw Failure{ExitCode::Usage, u"%1 has no levels"_s.arg(algorithm.name)};
    if (*level < algorithm.lowestLevel || *level > algorithm.highestLevel)
        throw Failure{ExitCode::Usage, u"the level of %1 is %2 to %3"_s.arg(
                                           algorithm.name, QString::number(algorithm.lowestLevel),
                                           QString::number(algorithm.highestLevel))};
    return *level;
}

bool compressRaw(LocalInput *source, LocalOutput *target,
                 std::unique_ptr<Compressors::ICompressor> compressor)
{
    SCompressorDevice device(target, compressor.release(), true);
    return device.open(QIODevice::WriteOnly) &&
           SFileHelper::copyDevice(&device, source, device.concurrence() * kPieceBytes) &&
           device.compressor()->finalize();
}

Sizes compressFile(const Places &places, const CompressOptions &options,
                   std::unique_ptr<Compressors::ICompressor> compressor, LiveProgress *progress)
{
    LocalInput source(places.input, &progress->done);
    progress->total = source.fileSize();
    LocalOutput target(places.output,
                       options.raw ? LocalOutput::Stdout::AtOnce : LocalOutput::Stdout::Whole);
    const bool written = options.raw
                             ? compressRaw(&source, &target, std::move(compressor))
                             : SCompressorDevice::compress(&source, &target, compressor.release());
    source.throwFailure();
    target.throwFailure();
    if (!written)
        throw Failure{ExitCode::LocalIo, u"cannot compress %1: there is no memory"_s.arg(
                                             nameOf(places.input, u"stdin"))};
    target.commit();
    return {progress->done, target.written()};
}

ExitCode list(const Output &output, const CompressOptions &options);

ExitCode compress(const Output &output, const CompressOptions &options)
{
    if (options.list)
        return list(output, options);
    const Algorithm algorithm = *Compressors::byName(options.algorithm);
    std::unique_ptr<Compressors::ICompressor> compressor =
        algorithm.make(chosenLevel(algorithm, options.level));
    compressor->setConcurrence(options.threads);
    const Places places{options.places.input.place(), compressedPlace(options)};
    Sizes sizes;
    runWithProgress(output, places.output.isStandardStream() && Terminal::isOutput(),
                    [&](LiveProgress *progress) {
                        sizes = compressFile(places, options, std::move(compressor), progress);
                    });
    report(output, places, algorithm, sizes);
    return ExitCode::Done;
}

// decompress

struct DecompressOptions
{
    InputAndOutput places;
};

void declareDecompress(Command *command, DecompressOptions *options)
{
    declarePlaces(command, &options->places,
                  "Where it goes; \"-\" for stdout. Default: FILE without .brixz, or stdout for "
                  "stdin");
}

LocalPlace plainPlace(const InputAndOutput &places)
{
    const QString &input = places.input.path;
    if (places.output.isNamed() || places.input.isStandardStream)
        return places.output.place();
    if (!input.endsWith(kSuffix) || QFileInfo(input).fileName() == kSuffix)
        throw Failure{ExitCode::Usage,
                      u"%1 does not end in %2; say where the content goes"_s.arg(input, kSuffix)};
    return unusedPlace(input.chopped(kSuffix.size()));
}

Algorithm algorithmOf(const LocalPlace &input, const QByteArray &head)
{
    const auto algorithm = Compressors::byHead(head);
    if (!algorithm)
        throw Failure{ExitCode::Refused,
                      u"%1 is not a compressed file"_s.arg(nameOf(input, u"stdin"))};
    return *algorithm;
}

ExitCode decompress(const Output &output, const DecompressOptions &options)
{
    const Places places{options.places.input.place(), plainPlace(options.places)};
    leaveWarningsToTheTool();
    Algorithm algorithm;
    Sizes sizes;
    runWithProgress(output, places.output.isStandardStream() && Terminal::isOutput(),
                    [&](LiveProgress *progress) {
                        LocalInput source(places.input, &progress->done);
                        progress->total = source.fileSize();
                        const QByteArray head = source.head(kHeadBytes);
                        algorithm = algorithmOf(places.input, head);
                        // The library takes a missing checksum for that of no content.
                        if (head.size() < kHeadBytes)
                            throw damaged(places.input);
                        LocalOutput target(places.output, LocalOutput::Stdout::AtOnce);
                        const bool whole = SCompressorDevice::decompress(
                            &source, &target, algorithm.make(algorithm.lowestLevel).release());
                        source.throwFailure();
                        target.throwFailure();
                        if (!whole)
                            throw damaged(places.input);
                        target.commit();
                        sizes = {target.written(), progress->done};
                    });
    report(output, places, algorithm, sizes);
    return ExitCode::Done;
}

// compress --list

//! What a compressed file holds.
struct Content
{
    Algorithm algorithm;
    quint32 crc = 0;
    Sizes sizes;
    qint64 blocks = 0;
    bool isWhole = false;
};

//! Counts and drops what is written to it.
class Counter final : public QIODevice
{
public:
    qint64 count() const { return m_count; }
    bool isSequential() const override { return true; }

protected:
    qint64 readData(char *, qint64) override { return -1; }
    qint64 writeData(const char *, qint64 size) override
    {
        m_count += size;
        return size;
    }

private:
    qint64 m_count = 0;
};

Content contentOf(const LocalPlace &input, LiveProgress *progress)
{
    LocalInput source(input, &progress->done);
    progress->total = source.fileSize();
    const QByteArray head = source.head(kHeadBytes);
    Content content;
    content.algorithm = algorithmOf(input, head);
    const QByteArray word = head.sliced(kHashBytes);
    content.crc = word.size() == sizeof content.crc ? qFromBigEndian<quint32>(word.constData()) : 0;

    BlockCounter blocks;
    qint64 headLeft = kHeadBytes;
    source.setObserver([&](QByteArrayView bytes) {
        const qint64 skipped = std::min<qint64>(headLeft, bytes.size());
        headLeft -= skipped;
        blocks.add(bytes.sliced(skipped));
    });
    Counter plain;
    content.isWhole =
        SCompressorDevice::decompress(
            &source, &plain, content.algorithm.make(content.algorithm.lowestLevel).release()) &&
        head.size() == kHeadBytes;
    // What lies behind the last block that could be read counts as well.
    source.drain();
    source.throwFailure();
    content.blocks = blocks.blocks();
    content.sizes = {plain.count(), progress->done};
    return content;
}

void write(const Output &output, const Content &content)
{
    const QString crc = QString::number(content.crc, 16).rightJustified(8, u'0');
    if (output.json) {
        QJsonObject object{{u"algorithm"_s, content.algorithm.name},
                           {u"crc"_s, crc},
                           {u"plain"_s, content.sizes.plain},
                           {u"compressed"_s, content.sizes.compressed},
                           {u"whole"_s, content.isWhole}};
        if (content.algorithm.hasBlocks)
            object.insert(u"blocks"_s, content.blocks);
        output.object(object);
        return;
    }
    QList<QStringList> rows{{u"algorithm"_s, content.algorithm.name},
                            {u"crc"_s, crc},
                            {u"plain"_s, QString::number(content.sizes.plain)},
                            {u"compressed"_s, QString::number(content.sizes.compressed)}};
    if (content.algorithm.hasBlocks)
        rows.append({u"blocks"_s, QString::number(content.blocks)});
    output.table(rows);
}

ExitCode list(const Output &output, const CompressOptions &options)
{
    leaveWarningsToTheTool();
    const LocalPlace input = options.places.input.place();
    Content content;
    runWithProgress(output, false,
                    [&](LiveProgress *progress) { content = contentOf(input, progress); });
    write(output, content);
    if (!content.isWhole)
        throw damaged(input);
    return ExitCode::Done;
}

} // namespace

void addCompressCommands(Command *root)
{
    addCommand<CompressOptions>(root, "compress", "Compress a file, or tell what is in one",
                                "brix compress --algorithm zip --level 9 log.txt\n"
                                "  brix compress --list log.txt.brixz",
                                declareCompress, compress);
    addCommand<DecompressOptions>(root, "decompress", "Get a compressed file's content back",
                                  "brix decompress log.txt.brixz", declareDecompress, decompress);
}

} // namespace Brix
