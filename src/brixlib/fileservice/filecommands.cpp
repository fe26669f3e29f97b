// SPDX-License-Identifier: MIT
#include "filecommands_p.h"

#include <brixlib/fileservice/scommandchangedir.h>
#include <brixlib/fileservice/scommandcopydir.h>
#include <brixlib/fileservice/scommandcopyfile.h>
#include <brixlib/fileservice/scommandexists.h>
#include <brixlib/fileservice/scommandfssensitivity.h>
#include <brixlib/fileservice/scommandgetdev.h>
#include <brixlib/fileservice/scommandgetdir.h>
#include <brixlib/fileservice/scommandgetfile.h>
#include <brixlib/fileservice/scommandgetfiles.h>
#include <brixlib/fileservice/scommandlistdir.h>
#include <brixlib/fileservice/scommandmakedir.h>
#include <brixlib/fileservice/scommandpwd.h>
#include <brixlib/fileservice/scommandremovedir.h>
#include <brixlib/fileservice/scommandremovefile.h>
#include <brixlib/fileservice/scommandrenamedir.h>
#include <brixlib/fileservice/scommandrenamefile.h>
#include <brixlib/fileservice/scommandsenddev.h>
#include <brixlib/fileservice/scommandsendfile.h>
#include <brixlib/fileservice/scommandsetpermissions.h>
#include <brixlib/fileservice/scommandstorageinfo.h>

namespace Talverine {

QList<SCommand *> newFileCommandPrototypes()
{
    return {
        new SCommandGetFile,       new SCommandSendFile,       new SCommandChangeDir,
        new SCommandMakeDir,       new SCommandRemoveDir,      new SCommandListDir,
        new SCommandRemoveFile,    new SCommandRenameFile,     new SCommandRenameDir,
        new SCommandCopyFile,      new SCommandCopyDir,        new SCommandPwd,
        new SCommandGetDir,        new SCommandStorageInfo,    new SCommandGetFiles,
        new SCommandSendDev,       new SCommandGetDev,         new SCommandExists,
        new SCommandFSSensitivity, new SCommandSetPermissions,
    };
}

QList<QString> filterPatterns(QString filters)
{
    return filters.remove(u' ').split(u';', Qt::SkipEmptyParts);
}

} // namespace Talverine
