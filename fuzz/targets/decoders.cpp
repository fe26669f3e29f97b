// SPDX-License-Identifier: MIT
// The decoders of the compression algorithms. The first byte of an input is the mode, in its lower
// half, and whether the size of the stream is told, above; the second how much is asked for at
// once; then comes the stream.
#include "../fuzztarget.h"
#include "../targets.h"

#include <brixlib/compression/slz4.h>
#include <brixlib/compression/spackbits.h>
#include <brixlib/compression/stifflzw.h>
#include <brixlib/compression/szip.h>

#include <QtCore/QBuffer>

#include <memory>
#include <new>

using namespace Talverine::Compression;
using Interfaces::ICompressor;

namespace Fuzz {

namespace {

constexpr int kSizeIsTold = 0x80;
constexpr int kModeBits = 0x0F;

// What a byte of a stream may stand for at most.
constexpr qint64 kLz4Yield = 255;
constexpr qint64 kZipYield = 1032;
constexpr qint64 kPackBitsYield = 64;
constexpr qint64 kLzwYield = 4096;

// Qt warns of each damaged stream, which is nothing that a program could have avoided.
class ZlibWarningsDropped
{
public:
    ZlibWarningsDropped() { s_before = qInstallMessageHandler(handle); }
    ~ZlibWarningsDropped() { qInstallMessageHandler(s_before); }
    Q_DISABLE_COPY_MOVE(ZlibWarningsDropped)

private:
    static void handle(QtMsgType type, const QMessageLogContext &context, const QString &text)
    {
        if (!text.startsWith(QLatin1String("qUncompress")))
            s_before(type, context, text);
    }

    static inline QtMessageHandler s_before = nullptr;
};

struct Form
{
    int mode;
    bool sizeIsTold;
    qint64 pieceBytes;
};

Form takeForm(Input *bytes)
{
    const quint8 first = bytes->byte();
    const quint8 second = bytes->byte();
    return {first & kModeBits, (first & kSizeIsTold) != 0, second == 0 ? 65536 : second};
}

struct Plain
{
    QByteArray bytes;
    bool isWhole = false; // no call has failed, and nothing of the stream is left
};

// Decoders read a QBuffer where it stands, and copy what any other device has.
class OtherDevice final : public QBuffer
{
};

// Asks for pieces, into blocks of just their size, until nothing comes any more.
Plain decoded(ICompressor &compressor, QBuffer &&source, const QByteArray &stream, const Form &form,
              qint64 yield)
{
    source.setData(stream);
    source.open(QIODevice::ReadOnly);
    const auto block = std::make_unique_for_overwrite<char[]>(static_cast<size_t>(form.pieceBytes));
    Plain plain;
    for (;;) {
        const qint64 before = source.pos();
        const qint64 told = form.sizeIsTold ? source.size() - before : 0;
        const qint64 count = compressor.decompress(&source, block.get(), form.pieceBytes, told);
        require(count >= -1 && count <= form.pieceBytes, "a decoder gives more than asked for");
        if (count < 0)
            return plain;
        plain.bytes.append(block.get(), count);
        require(plain.bytes.size() <= stream.size() * yield, "a decoder makes bytes of nothing");
        if (count == 0 && source.pos() == before)
            break;
    }
    plain.isWhole = source.atEnd();
    return plain;
}

// What was decoded can be encoded, and decodes to the same.
void requireRoundTrip(ICompressor &compressor, const QByteArray &plain, const Form &form,
                      qint64 yield)
{
    if (plain.isEmpty())
        return;
    QBuffer target;
    target.open(QIODevice::WriteOnly);
    require(compressor.compress(plain.constData(), plain.size(), &target) == plain.size() &&
                compressor.finalize(),
            "plain bytes can't be encoded");
    Form whole = form;
    whole.pieceBytes = plain.size();
    require(decoded(compressor, QBuffer(), target.data(), whole, yield).bytes == plain,
            "plain bytes change on their way");
}

bool run(ICompressor &&compressor, const QByteArray &stream, const Form &form, qint64 yield)
{
    const Plain plain = decoded(compressor, QBuffer(), stream, form, yield);
    require(compressor.finalize(), "a decoder cannot be ended");
    const Plain copied = decoded(compressor, OtherDevice(), stream, form, yield);
    require(copied.bytes == plain.bytes && copied.isWhole == plain.isWhole,
            "a stream tells another device otherwise");
    require(compressor.finalize(), "a decoder cannot be ended");
    requireRoundTrip(compressor, plain.bytes, form, yield);
    return plain.isWhole && !plain.bytes.isEmpty();
}

} // namespace

bool lz4(const QByteArray &input)
{
    Input bytes(input);
    const Form form = takeForm(&bytes);
    return run(SLz4(Lz4Mode(form.mode % 2)), bytes.rest(), form, kLz4Yield);
}

bool zip(const QByteArray &input)
{
    const ZlibWarningsDropped dropped;
    Input bytes(input);
    const Form form = takeForm(&bytes);
    return run(SZip(ZipMode(form.mode % 3)), bytes.rest(), form, kZipYield);
}

bool packBits(const QByteArray &input)
{
    Input bytes(input);
    const Form form = takeForm(&bytes);
    return run(SPackBits(PackBitsMode(form.mode % 2)), bytes.rest(), form, kPackBitsYield);
}

bool lzw(const QByteArray &input)
{
    Input bytes(input);
    const Form form = takeForm(&bytes);
    return run(STiffLZW(), bytes.rest(), form, kLzwYield);
}

} // namespace Fuzz
