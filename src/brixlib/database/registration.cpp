// SPDX-License-Identifier: MIT
// Registers at load what makes the types of the database travel in queued signals and its
// enumerations turn to text.
#include <brixlib/compression/compressionalgorithm.h>
#include <brixlib/database/databasespecialrecordfield.h>
#include <brixlib/database/dbauthgrants.h>
#include <brixlib/database/dberror.h>
#include <brixlib/database/records/dbrecordspecialfield.h>
#include <brixlib/database/records/sdbfield.h>
#include <brixlib/database/records/sdbrecord.h>

#include <brixrt/svariantconvert.h>

namespace Talverine {

namespace {

// Calls by name spell types without their namespace, so both spellings are registered.
template<typename E, typename Companion>
void registerEnum(const char *name)
{
    qRegisterMetaType<E>(name);
    SVariantConvert::sVariantToStringRegister<E, Companion>();
}

[[maybe_unused]] const bool registered = [] {
    registerEnum<DatabaseSpecialRecordField, DatabaseSpecialRecordField_T>(
        "DatabaseSpecialRecordField");
    registerEnum<DBAuthGrants, DBAuthGrants_T>("DBAuthGrants");
    registerEnum<DBError, DBError_T>("DBError");
    registerEnum<DBRecordSpecialField, DBRecordSpecialField_T>("DBRecordSpecialField");
    // The second signature of SDBText::setBackupCompressor() spells it this way.
    qRegisterMetaType<Compression::CompressionAlgorithm>("Compression::CompressionAlgorithm");
    qRegisterMetaType<SDBField>("SDBField");
    qRegisterMetaType<SDBRecord>("SDBRecord");
    return true;
}();

} // namespace

} // namespace Talverine
