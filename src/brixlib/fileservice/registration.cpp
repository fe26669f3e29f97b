// SPDX-License-Identifier: MIT
// Registers at load what makes the arguments of this folder's signals and calls travel in queues.
#include <brixlib/fileservice/commands/filefilterflags.h>

#include <QtCore/QIODevice>

namespace Talverine {

namespace {

// Calls by name spell types without their namespace, so both spellings are registered.
[[maybe_unused]] const bool registered = [] {
    qRegisterMetaType<FileFilterFlags>("FileFilterFlags");
    qRegisterMetaType<QIODevice *>();
    return true;
}();

} // namespace

} // namespace Talverine
