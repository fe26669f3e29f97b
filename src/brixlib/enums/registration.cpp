// SPDX-License-Identifier: MIT
// Registers at load what makes the shared enumerations travel in queued signals and turn to text.
#include <brixlib/enums/authenticationstatus.h>
#include <brixlib/enums/binaryunit.h>
#include <brixlib/enums/bool.h>
#include <brixlib/enums/byteorder.h>
#include <brixlib/enums/concurrencemode.h>
#include <brixlib/enums/cpufeatureflags.h>
#include <brixlib/enums/metadataflags.h>
#include <brixlib/enums/operatingsystemtype.h>
#include <brixlib/enums/passwordtype.h>
#include <brixlib/enums/scslengthunit.h>
#include <brixlib/enums/silengthunit.h>
#include <brixlib/enums/siprefix.h>
#include <brixlib/enums/specialfolder.h>
#include <brixlib/enums/stringcase.h>

#include <brixrt/svariantconvert.h>

namespace Talverine {

namespace {

// Calls by name spell types without their namespace, so that spelling is registered beside the full
// one.
template<typename E, typename Companion>
void registerEnum(const char *name)
{
    qRegisterMetaType<E>(name);
    SVariantConvert::sVariantToStringRegister<E, Companion>();
}

[[maybe_unused]] const bool registered = [] {
    qRegisterMetaType<AuthenticationStatus>("AuthenticationStatus");
    registerEnum<BinaryUnit, BinaryUnit_T>("BinaryUnit");
    registerEnum<Bool, Bool_T>("Bool");
    registerEnum<ByteOrder, ByteOrder_T>("ByteOrder");
    registerEnum<ConcurrenceMode, ConcurrenceMode_T>("ConcurrenceMode");
    registerEnum<CpuFeatureFlags, CpuFeatureFlags_T>("CpuFeatureFlags");
    registerEnum<MetadataFlags, MetadataFlags_T>("MetadataFlags");
    registerEnum<OperatingSystemType, OperatingSystemType_T>("OperatingSystemType");
    registerEnum<PasswordType, PasswordType_T>("PasswordType");
    registerEnum<SCSLengthUnit, SCSLengthUnit_T>("SCSLengthUnit");
    registerEnum<SILengthUnit, SILengthUnit_T>("SILengthUnit");
    registerEnum<SIPrefix, SIPrefix_T>("SIPrefix");
    registerEnum<SpecialFolder, SpecialFolder_T>("SpecialFolder");
    registerEnum<StringCase, StringCase_T>("StringCase");
    return true;
}();

} // namespace

} // namespace Talverine
