// SPDX-License-Identifier: MIT
// brix db: text databases in files of this machine.
#include "dbcommands.h"

#include "blockingwork.h"
#include "interruption.h"

#include <brixrt/sfilehelper.h>

#include <QtCore/QThread>

namespace Brix {

using namespace Qt::StringLiterals;
using Talverine::SDBRecord;
using Talverine::SFileHelper;

CLI::Option *declarePlace(CLI::App *command, const std::string &name, PlaceOptions *options,
                          const std::string &description)
{
    // The path is stored when all arguments are known, and would be stored over one changed here.
    return addPath(command, name, &options->path, description)
        ->each([options](const std::string &text) { options->isStandardStream = text == "-"; });
}

void declareDatabase(CLI::App *command, DatabaseOptions *options)
{
    addPath(command, "FILE", &options->file, "The database file")->required();
    declareDatabaseUser(command, &options->user);
}

void declareDatabaseUser(CLI::App *command, DatabaseUser *user)
{
    auto *name = addText(command, "--user", &user->name,
                         "Who uses the database. Default: nobody, with the rights that it grants "
                         "to anyone");
    name->check([](const std::string &text) { return text.empty() ? "the name is empty" : ""; });
    command
        ->add_flag("--password-stdin", user->password.fromStdin,
                   "Read the user's password from the first line of stdin")
        ->needs(name);
}

CLI::Option *declareFields(CLI::App *command, QStringList *texts)
{
    // Newer releases of CLI11 take no "=" in a name.
    return addTexts(command, "FIELDS", texts,
                    "Each FIELD=VALUE; the same field twice makes it a list");
}

SDBRecord fieldsOf(const QStringList &texts)
{
    SDBRecord fields;
    for (const QString &text : texts) {
        const qsizetype equals = text.indexOf(u'=');
        if (equals < 1)
            throw Failure{ExitCode::Usage, u"not of the form FIELD=VALUE: %1"_s.arg(text)};
        // Never null, which would be no value at all.
        fields.append(text.first(equals), u""_s + text.sliced(equals + 1));
    }
    return fields;
}

DatabaseLogin loginOf(const DatabaseUser &user)
{
    if (user.name.isEmpty())
        return {};
    QString error;
    const auto password = user.password.existing(user.name, &error);
    if (!password)
        throw Failure{ExitCode::Usage, error};
    return {user.name, *password};
}

void runDatabaseWork(const std::function<void()> &work)
{
    const Interruption interruption;
    runBlocking(interruption, work);
}

void withDatabase(const DatabaseOptions &options, const std::function<void(OpenDatabase &)> &work)
{
    const DatabaseLogin login = loginOf(options.user);
    runDatabaseWork([&] {
        OpenDatabase database(options.file, login);
        work(database);
    });
}

void throwIfInterrupted()
{
    if (QThread::currentThread()->isInterruptionRequested())
        throw Failure{ExitCode::Interrupted, u"interrupted"_s};
}

void requireOtherFile(const QString &a, const QString &b)
{
    if (SFileHelper::isSameFile(a, b))
        throw Failure{ExitCode::Usage, u"both are the same file: %1"_s.arg(a)};
}

void requireOtherFile(const QString &file, const LocalPlace &place)
{
    if (!place.isStandardStream())
        requireOtherFile(file, place.path);
}

QString counted(qint64 count, const QString &one, const QString &many)
{
    return u"%1 %2"_s.arg(QString::number(count), count == 1 ? one : many);
}

void addDbCommands(CLI::App *cli, Tool *tool)
{
    auto *family = cli->add_subcommand("db", "Use and look after a text database");
    family->require_subcommand(1);
    family->footer("Example:\n  brix db get inks.db cyan");
    addDbFileCommands(family, tool);
    addDbRecordCommands(family, tool);
    addDbJsonCommands(family, tool);
    addDbCheckCommand(family, tool);
    addDbBackupCommands(family, tool);
    addDbPairCommands(family, tool);
}

} // namespace Brix
