// SPDX-License-Identifier: MIT
// brix log: logs in text databases of this machine.
#include "logcommands.h"

#include <database/databaseview.h>
#include <database/newdatabase.h>

#include <brixrt/slocale.h>

#include <QtCore/QFileInfo>

namespace Brix {

using namespace Qt::StringLiterals;
using Talverine::DBAuthGrants;
using Talverine::RotateParameters;
using Talverine::SDBRecord;
using Talverine::SLocale;
using Talverine::SLogger;

namespace {

// Its backups lie beside the file, not beside a link to it.
QString pathOf(const QString &file)
{
    return QFileInfo::exists(file) ? QFileInfo(file).canonicalFilePath() : file;
}

// Before it is opened, which may rotate it.
void requireLog(const QString &file)
{
    if (!QFileInfo::exists(file))
        return;
    OpenDatabase::requireFile(file);
    DatabaseView view(file);
    view.open();
    if (view->key() != SDBRecord::uniqueIncKey())
        throw Failure{ExitCode::Refused, u"%1 is a database, but not a log"_s.arg(file)};
}

void openLog(SLogger &log, const QString &file, const DatabaseLogin &login)
{
    if (!log.open(login.user, login.password.toInsecureString()))
        throw OpenDatabase::failure(file, log.error());
    if (!log.isWriteable())
        throw Failure{ExitCode::Refused,
                      u"%1 belongs to another user, or has another password"_s.arg(file)};
}

} // namespace

std::unique_ptr<SLogger> openLog(const QString &file, const DatabaseLogin &owner,
                                 const RotateParameters &limits)
{
    requireLog(file);
    auto log = std::make_unique<SLogger>(pathOf(file), limits);
    openLog(*log, file, owner);
    return log;
}

// A log of the logger's own making could be read by anyone, with the hash of its password.
void makeLogIfMissing(const QString &file, const DatabaseLogin &owner)
{
    if (QFileInfo::exists(file))
        return;
    const SLocale culture(u"en-US"_s, QLocale::OmitGroupSeparator);
    // Another program may have made it meanwhile, which is as good.
    static_cast<void>(writeNewDatabase(
        {file, SDBRecord::uniqueIncKey(), DBAuthGrants::ReadOnly, culture, u"2"_s}, owner));
}

void withLog(const Output &output, const QString &file, const DatabaseLogin &login,
             const RotateParameters &limits, const std::function<void(SLogger &)> &work)
{
    bool wasRotated = false;
    runDatabaseWork([&] {
        requireLog(file);
        SLogger log(pathOf(file), limits);
        const auto connection =
            QObject::connect(&log, &SLogger::rotated, [&] { wasRotated = true; });
        openLog(log, file, login);
        QObject::disconnect(connection);
        work(log);
    });
    if (wasRotated)
        output.note(u"brix: the log was rotated; brix log backups tells where it is"_s);
}

void withExistingLog(const Output &output, const DatabaseOptions &options,
                     const std::function<void(SLogger &)> &work)
{
    OpenDatabase::requireFile(options.file);
    withLog(output, options.file, loginOf(options.user), kNoLimits, work);
}

void addLogCommands(Command *root)
{
    Command &family = root->addCommand("log", "Write, read and look after a log");
    family.setExample("brix log tail -f machine.log");
    addLogWriteCommands(&family);
    addLogReadCommands(&family);
    addDbBackupCommand(&family, "brix log backup machine.log machine.backup --compress lz4");
}

} // namespace Brix
