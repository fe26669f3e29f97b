// SPDX-License-Identifier: MIT
// The reader of compressed files. The first byte of an input is the algorithm that is asked for,
// then comes the file.
#include "../fuzztarget.h"
#include "../targets.h"

#include <brixlib/compression/scompressordevice.h>
#include <brixlib/compression/slz4.h>
#include <brixlib/compression/snullcompressor.h>
#include <brixlib/compression/spackbits.h>
#include <brixlib/compression/stifflzw.h>
#include <brixlib/compression/szip.h>

#include <QtCore/QBuffer>

#include <memory>

using namespace Talverine::Compression;
using Interfaces::ICompressor;

namespace Fuzz {

namespace {

constexpr qint64 kLargestYield = 4096;

std::unique_ptr<ICompressor> compressor(int algorithm)
{
    switch (algorithm % 4) {
    case 0:
        return std::make_unique<SNullCompressor>();
    case 1:
        return std::make_unique<SLz4>();
    case 2:
        return std::make_unique<SPackBits>();
    default:
        return std::make_unique<STiffLZW>();
    }
}

} // namespace

bool compressedFile(const QByteArray &input)
{
    Input bytes(input);
    const int algorithm = bytes.byte();
    QBuffer file;
    file.setData(bytes.rest());
    QBuffer plain;
    const bool isWhole =
        SCompressorDevice::decompress(&file, &plain, compressor(algorithm).release());
    require(plain.size() <= file.size() * kLargestYield, "a file makes bytes of nothing");
    if (!isWhole)
        return false;

    QBuffer again;
    require(SCompressorDevice::compress(&plain, &again, compressor(algorithm).release()),
            "a content can't be compressed");
    QBuffer same;
    require(SCompressorDevice::decompress(&again, &same, compressor(algorithm).release()) &&
                same.data() == plain.data(),
            "a content changes on its way");
    return true;
}

} // namespace Fuzz
