// SPDX-License-Identifier: MIT
#pragma once

#include <brixlib/foundation/senum.h>

#include <QtCore/QMetaType>

namespace Talverine::Compression {

//! Names an algorithm in stored data: the values are fixed. Not each has a compressor here.
// clang-format off
S_ENUM(CompressionAlgorithm,
    Uncompressed = 0,
    Packbits = 1,
    Lzw = 2,
    Deflate = 3,
    Zip = 4,
    Lzma = 5,
    BZip2 = 6,
    Lzss = 7,
    Lz4 = 8,
    UnicodeText = 9,
    Jpeg = 10,
    Jpeg2000 = 11,
    Unknown = 32000
)
S_ENUM_TRANSLATION(CompressionAlgorithm)
// clang-format on

} // namespace Talverine::Compression

Q_DECLARE_METATYPE(Talverine::Compression::CompressionAlgorithm)
