// SPDX-License-Identifier: MIT
// brix user: edits the file of a server's users.
#include "homeoverlap.h"
#include "userfile.h"
#include <cli/passwordsource.h>
#include <tool.h>

#include <brixlib/protocol/users/suserdata.h>

#include <QtCore/QFileInfo>

namespace Brix {

using namespace Qt::StringLiterals;
using Talverine::SAuthenticationDb;
using Talverine::SUserData;

namespace {

SUserData existingUser(const SAuthenticationDb &users, const QString &file, const QString &name)
{
    const auto user = users.sharedUser(name.toLower());
    if (!user)
        throw Failure{ExitCode::Refused, u"%1 has no user %2"_s.arg(file, name.toLower())};
    return SUserData(user.get());
}

Talverine::Security::SSecureString newPassword(const PasswordSource &source, const QString &name)
{
    QString error;
    const auto password = source.chosen(name, &error);
    if (!password)
        throw Failure{ExitCode::Usage, error};
    return *password;
}

void declarePassword(Command *command, PasswordSource *password)
{
    command->addFlag("--password-stdin", &password->fromStdin,
                     "Read the password from the first line of stdin");
}

// add

struct AddOptions
{
    QString file;
    QString name;
    QString home;
    QString fullname;
    QString email;
    bool disabled = false;
    bool replace = false;
    PasswordSource password;
};

void declareAdd(Command *command, AddOptions *options)
{
    command->addPath("FILE", &options->file, "The user file; made when it is missing")
        .setRequired();
    command->addText("NAME", &options->name, "Name to log in with; kept in lower case")
        .setRequired();
    command->addPath("--home", &options->home, "Directory on the server that the user is kept in")
        .setRequired();
    command->addText("--fullname", &options->fullname, "Name for people");
    command->addText("--email", &options->email, "Address for people");
    command->addFlag("--disabled", &options->disabled, "The user may not log in");
    command->addFlag("--replace", &options->replace,
                     "Replace a user of that name, with all that the file has about the user");
    declarePassword(command, &options->password);
}

void requireNewName(const SAuthenticationDb &users, const AddOptions &options)
{
    const QString name = options.name.toLower();
    if (!options.replace && users.contains(name))
        throw Failure{ExitCode::Refused,
                      u"%1 has a user %2 already; use --replace to replace all of it, or brix user "
                      "passwd, enable or disable to change one thing"_s.arg(options.file, name)};
}

void tellAboutHome(const Output &output, const SAuthenticationDb &users, const SUserData &user)
{
    if (!QFileInfo(user.homeFolder()).isDir())
        output.note(u"brix: %1 does not exist here; nobody can log in before it does"_s.arg(
            user.homeFolder()));
    for (const QString &warning : HomeOverlap::warningsAbout(users, user.username()))
        output.note(u"brix: "_s + warning);
}

ExitCode add(const Output &output, const AddOptions &options)
{
    if (options.name.isEmpty())
        throw Failure{ExitCode::Usage, u"the name is empty"_s};
    const UserFile file(options.file);
    // Before the caller is asked for a password in vain.
    requireNewName(file.readOrEmpty(), options);
    const auto password = newPassword(options.password, options.name);

    const SUserData user(options.name, SUserData::hashPassword(password), options.home,
                         options.fullname, options.email, options.disabled);
    bool replaced = false;
    SAuthenticationDb result;
    file.edit([&](SAuthenticationDb &users) {
        requireNewName(users, options);
        replaced = users.contains(user.username());
        users.insert(user.clone());
        result = users;
    });
    tellAboutHome(output, result, user);
    output.result((replaced ? u"replaced %1"_s : u"added %1"_s).arg(user.username()),
                  {{u"username"_s, user.username()}, {u"replaced"_s, replaced}});
    return ExitCode::Done;
}

// list

struct ListOptions
{
    QString file;
};

void declareList(Command *command, ListOptions *options)
{
    command->addPath("FILE", &options->file, "The user file").setRequired();
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

// passwd, enable, disable, remove

struct NamedUser
{
    QString file;
    QString name;
    PasswordSource password;
};

void declareNamedUser(Command *command, NamedUser *options)
{
    command->addPath("FILE", &options->file, "The user file").setRequired();
    command->addText("NAME", &options->name, "Name of the user").setRequired();
}

void declarePasswd(Command *command, NamedUser *options)
{
    declareNamedUser(command, options);
    declarePassword(command, &options->password);
}

// A missing file is not made, as an edit would.
void requireUser(const NamedUser &options)
{
    static_cast<void>(existingUser(UserFile(options.file).read(), options.file, options.name));
}

// Changes one user, and leaves all else that the file has about the user as it is.
ExitCode change(const Output &output, const NamedUser &options, const QString &text,
                const std::function<void(SUserData &)> &edit)
{
    requireUser(options);
    UserFile(options.file).edit([&](SAuthenticationDb &users) {
        SUserData user = existingUser(users, options.file, options.name);
        edit(user);
        users.insert(user.clone());
    });
    const QString name = options.name.toLower();
    output.result(text.arg(name), {{u"username"_s, name}});
    return ExitCode::Done;
}

ExitCode passwd(const Output &output, const NamedUser &options)
{
    // Before the caller is asked for a password in vain.
    static_cast<void>(existingUser(UserFile(options.file).read(), options.file, options.name));
    const auto password = newPassword(options.password, options.name);
    return change(output, options, u"changed the password of %1"_s, [&](SUserData &user) {
        user.setHashedPassword(SUserData::hashPassword(password));
    });
}

ExitCode enable(const Output &output, const NamedUser &options)
{
    return change(output, options, u"enabled %1"_s, [](SUserData &user) { user.setEnabled(true); });
}

ExitCode disable(const Output &output, const NamedUser &options)
{
    return change(output, options, u"disabled %1"_s,
                  [](SUserData &user) { user.setEnabled(false); });
}

ExitCode remove(const Output &output, const NamedUser &options)
{
    const QString name = options.name.toLower();
    requireUser(options);
    UserFile(options.file).edit([&](SAuthenticationDb &users) {
        static_cast<void>(existingUser(users, options.file, name));
        users.remove(name);
    });
    output.result(u"removed %1"_s.arg(name), {{u"username"_s, name}});
    return ExitCode::Done;
}

} // namespace

void addUserCommands(Command *root)
{
    Command &family = root->addCommand("user", "Edit the file of a server's users");
    family.setExample("brix user list users.json");
    addCommand<AddOptions>(&family, "add", "Add a user",
                           "brix user add users.json ann --home /srv/ann --fullname \"Ann Smith\"",
                           declareAdd, add);
    addCommand<ListOptions>(&family, "list", "List the users", "brix user list users.json",
                            declareList, list);
    addCommand<NamedUser>(&family, "passwd", "Change the password of a user",
                          "brix user passwd users.json ann", declarePasswd, passwd);
    addCommand<NamedUser>(&family, "enable", "Let a disabled user log in again",
                          "brix user enable users.json ann", declareNamedUser, enable);
    addCommand<NamedUser>(&family, "disable", "Keep a user from logging in",
                          "brix user disable users.json ann", declareNamedUser, disable);
    addCommand<NamedUser>(&family, "remove", "Remove a user", "brix user remove users.json ann",
                          declareNamedUser, remove);
}

} // namespace Brix
