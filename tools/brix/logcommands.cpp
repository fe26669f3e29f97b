// SPDX-License-Identifier: MIT
// brix log: logs in text databases of this machine.
#include "logcommands.h"

#include "databaseview.h"

#include <QtCore/QFileInfo>

namespace Brix {

using namespace Qt::StringLiterals;
using Talverine::RotateParameters;
using Talverine::SDBRecord;
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
