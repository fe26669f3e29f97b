// SPDX-License-Identifier: MIT
// Registers at load what makes the workers' enumerations travel in queued signals and turn to text.
#include <brixlib/workers/simpleworkererror.h>

#include <brixrt/svariantconvert.h>

namespace Talverine {

namespace {

// Calls by name spell types without their namespace, so both spellings are registered.
[[maybe_unused]] const bool registered = [] {
    qRegisterMetaType<SimpleWorkerError>("SimpleWorkerError");
    SVariantConvert::sVariantToStringRegister<SimpleWorkerError, SimpleWorkerError_T>();
    return true;
}();

} // namespace

} // namespace Talverine
