// SPDX-License-Identifier: MIT
// Registers at load what makes the values of this folder travel in queued signals.
#include <brixlib/fileservice/filefilterflags.h>

namespace Talverine {

namespace {

// Calls by name spell types without their namespace, so both spellings are registered.
[[maybe_unused]] const bool registered = [] {
    qRegisterMetaType<FileFilterFlags>("FileFilterFlags");
    return true;
}();

} // namespace

} // namespace Talverine
