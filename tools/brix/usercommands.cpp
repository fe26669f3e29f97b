// SPDX-License-Identifier: MIT
// brix user: edits the file of a server's users.
#include "passwordsource.h"
#include "tool.h"
#include "userfile.h"

#include <brixlib/protocol/suserdata.h>

#include <QtCore/QFileInfo>

namespace Brix {

using namespace Qt::StringLiterals;
using Talverine::SAuthenticationDb;
using Talverine::SUserData;

namespace {

struct AddOptions
{
    QString file;
    QString name;
    QString home;
    QString fullname;
    QString email;
    bool disabled = false;
    PasswordSource password;
};

void declareAdd(CLI::App *command, AddOptions *options)
{
    addPath(command, "FILE", &options->file, "The user file; made when it is missing")->required();
    addText(command, "NAME", &options->name, "Name to log in with; kept in lower case")->required();
    addPath(command, "--home", &options->home, "Folder on the server that the user is kept in")
        ->required();
    addText(command, "--fullname", &options->fullname, "Name for people");
    addText(command, "--email", &options->email, "Address for people");
    command->add_flag("--disabled", options->disabled, "The user may not log in");
    command->add_flag("--password-stdin", options->password.fromStdin,
                      "Read the password from the first line of stdin");
}

ExitCode add(const Output &output, const AddOptions &options)
{
    if (options.name.isEmpty())
        throw Failure{ExitCode::Usage, u"the name is empty"_s};
    QString error;
    const auto password = options.password.chosen(options.name, &error);
    if (!password)
        throw Failure{ExitCode::Usage, error};

    const SUserData user(options.name, SUserData::hashPassword(*password), options.home,
                         options.fullname, options.email, options.disabled);
    bool replaced = false;
    UserFile(options.file).edit([&](SAuthenticationDb &users) {
        replaced = users.contains(user.username());
        users.insert(user.clone());
    });
    if (!QFileInfo(options.home).isDir())
        output.note(
            u"brix: %1 does not exist here; nobody can log in before it does"_s.arg(options.home));
    output.result((replaced ? u"replaced %1"_s : u"added %1"_s).arg(user.username()),
                  {{u"username"_s, user.username()}, {u"replaced"_s, replaced}});
    return ExitCode::Done;
}

struct ListOptions
{
    QString file;
};

void declareList(CLI::App *command, ListOptions *options)
{
    addPath(command, "FILE", &options->file, "The user file")->required();
}

QString state(const Talverine::Interfaces::ISUser &user)
{
    if (!user.enabled())
        return u"disabled"_s;
    return user.isValid() ? u"enabled"_s : u"incomplete"_s;
}

ExitCode list(const Output &output, const ListOptions &options)
{
    const SAuthenticationDb users = UserFile(options.file).read();
    QList<QStringList> rows;
    for (const auto &name : users.users()) {
        const auto user = users.sharedUser(name);
        if (output.json) {
            output.object({{u"username"_s, name},
                           {u"homeFolder"_s, user->homeFolder()},
                           {u"fullname"_s, user->fullname()},
                           {u"email"_s, user->email()},
                           {u"state"_s, state(*user)}});
        }
        rows.append({name, state(*user), user->homeFolder(), user->fullname(), user->email()});
    }
    if (!output.json)
        output.table(rows);
    return ExitCode::Done;
}

struct RemoveOptions
{
    QString file;
    QString name;
};

void declareRemove(CLI::App *command, RemoveOptions *options)
{
    addPath(command, "FILE", &options->file, "The user file")->required();
    addText(command, "NAME", &options->name, "Name of the user")->required();
}

ExitCode remove(const Output &output, const RemoveOptions &options)
{
    const QString name = options.name.toLower();
    UserFile(options.file).edit([&](SAuthenticationDb &users) {
        if (!users.remove(name))
            throw Failure{ExitCode::Refused, u"%1 has no user %2"_s.arg(options.file, name)};
    });
    output.result(u"removed %1"_s.arg(name), {{u"username"_s, name}});
    return ExitCode::Done;
}

} // namespace

void addUserCommands(CLI::App *cli, Tool *tool)
{
    auto *family = cli->add_subcommand("user", "Edit the file of a server's users");
    family->require_subcommand(1);
    family->footer("Example:\n  brix user list users.json");
    addCommand<AddOptions>(family, tool, "add", "Add a user, or replace the one of that name",
                           "brix user add users.json ann --home /srv/ann --fullname \"Ann Smith\"",
                           declareAdd, add);
    addCommand<ListOptions>(family, tool, "list", "List the users", "brix user list users.json",
                            declareList, list);
    addCommand<RemoveOptions>(family, tool, "remove", "Remove a user",
                              "brix user remove users.json ann", declareRemove, remove);
}

} // namespace Brix
