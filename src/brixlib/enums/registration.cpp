// SPDX-License-Identifier: MIT
// Registers at load what makes the shared enumerations travel in queued signals and turn to text.
#include <brixlib/enums/authenticationstatus.h>
#include <brixlib/enums/passwordtype.h>

#include <brixrt/svariantconvert.h>

namespace Talverine {

namespace {

// Calls by name spell types without their namespace, so both spellings are registered.
[[maybe_unused]] const bool registered = [] {
    qRegisterMetaType<AuthenticationStatus>("AuthenticationStatus");
    qRegisterMetaType<PasswordType>("PasswordType");
    SVariantConvert::sVariantToStringRegister<PasswordType, PasswordType_T>();
    return true;
}();

} // namespace

} // namespace Talverine
