// SPDX-License-Identifier: MIT
// Registers at load what makes the enumeration of algorithms travel in queued signals and turn to
// text.
#include <brixlib/compression/compressionalgorithm.h>

#include <brixrt/svariantconvert.h>

namespace Talverine::Compression {

namespace {

// Calls by name spell types without their namespace, so both spellings are registered.
[[maybe_unused]] const bool registered = [] {
    qRegisterMetaType<CompressionAlgorithm>("CompressionAlgorithm");
    SVariantConvert::sVariantToStringRegister<CompressionAlgorithm, CompressionAlgorithm_T>();
    return true;
}();

} // namespace

} // namespace Talverine::Compression
