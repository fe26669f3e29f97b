// SPDX-License-Identifier: MIT
#include "filecommands_p.h"

#include <brixlib/fileservice/commands/scommandchangedir.h>
#include <brixlib/fileservice/commands/scommandcopydir.h>
#include <brixlib/fileservice/commands/scommandcopyfile.h>
#include <brixlib/fileservice/commands/scommandexists.h>
#include <brixlib/fileservice/commands/scommandfssensitivity.h>
#include <brixlib/fileservice/commands/scommandgetdev.h>
#include <brixlib/fileservice/commands/scommandgetdir.h>
#include <brixlib/fileservice/commands/scommandgetfile.h>
#include <brixlib/fileservice/commands/scommandgetfiles.h>
#include <brixlib/fileservice/commands/scommandlistdir.h>
#include <brixlib/fileservice/commands/scommandmakedir.h>
#include <brixlib/fileservice/commands/scommandpwd.h>
#include <brixlib/fileservice/commands/scommandremovedir.h>
#include <brixlib/fileservice/commands/scommandremovefile.h>
#include <brixlib/fileservice/commands/scommandrenamedir.h>
#include <brixlib/fileservice/commands/scommandrenamefile.h>
#include <brixlib/fileservice/commands/scommandsenddev.h>
#include <brixlib/fileservice/commands/scommandsendfile.h>
#include <brixlib/fileservice/commands/scommandsetpermissions.h>
#include <brixlib/fileservice/commands/scommandstorageinfo.h>

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
