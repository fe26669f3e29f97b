// SPDX-License-Identifier: MIT
// brix db: text databases in files of this machine.
#include "dbcommands.h"

#include <process/blockingwork.h>
#include <process/interruption.h>

#include <brixrt/sfilehelper.h>

#include <QtCore/QThread>

namespace Brix {

using namespace Qt::StringLiterals;
using Talverine::SDBRecord;
using Talverine::SFileHelper;

void declareDatabase(Command *command, DatabaseOptions *options)
{
    command->addPath("FILE", &options->file, "The database file").setRequired();
    declareDatabaseUser(command, &options->user);
}

void declareDatabaseUser(Command *command, DatabaseUser *user)
{
    Argument &name =
        command->addText("--user", &user->name,
                         "Who uses the database. Default: nobody, with the rights that it grants "
                         "to anyone");
    name.setNonEmpty("the name is empty");
    command
        ->addFlag("--password-stdin", &user->password.fromStdin,
                  "Read the user's password from the first line of stdin")
        .setNeeded(name);
}

Argument &declareFields(Command *command, QStringList *texts)
{
    return command->addList("FIELDS", texts,
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

void addDbCommands(Command *root)
{
    Command &family = root->addCommand("db", "Use and look after a text database");
    family.setExample("brix db get inks.db cyan");
    addDbFileCommands(&family);
    addDbRecordCommands(&family);
    addDbJsonCommands(&family);
    addDbCheckCommand(&family);
    addDbBackupCommands(&family);
    addDbPairCommands(&family);
}

} // namespace Brix
