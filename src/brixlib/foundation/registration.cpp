// SPDX-License-Identifier: MIT
// Registers at load what makes the values of this folder travel in queued signals.
#include <brixlib/foundation/sfileentry.h>

namespace Talverine {

namespace {

// Calls by name spell types without their namespace, so both spellings are registered.
[[maybe_unused]] const bool registered = [] {
    qRegisterMetaType<FileEntryFlags>("FileEntryFlags");
    qRegisterMetaType<SFileEntry>("SFileEntry");
    qRegisterMetaType<QList<SFileEntry>>("QList<SFileEntry>");
    return true;
}();

} // namespace

} // namespace Talverine
