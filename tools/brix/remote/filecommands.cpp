// SPDX-License-Identifier: MIT
// brix ls, mkdir, rm, mv, cp, chmod, df, pwd, exists: one command on the server's files each.
#include "copycheck.h"
#include "remotecommand.h"
#include "remotepath.h"
#include "replacement.h"

#include <brixlib/protocol/wire.h>

#include <QtCore/QRegularExpression>

#include <optional>

namespace Brix {

using namespace Qt::StringLiterals;
using namespace Talverine;

namespace {

using Server = Session::Requester;

[[noreturn]] void refuse(const QString &text)
{
    throw Failure{ExitCode::Refused, text};
}

// Tells why an operation on a path was refused, as far as that can still be found out.
[[noreturn]] void refusePath(Session &session, const QString &path, const QString &operation)
{
    if (!session.exists(path))
        refuse(u"the server has no %1"_s.arg(path));
    refuse(u"the server does not %1 %2"_s.arg(operation, path));
}

void requireExisting(Session &session, const QString &path)
{
    if (!session.exists(path))
        refuse(u"the server has no %1"_s.arg(path));
}

// ls

struct ListOptions
{
    RemoteOptions remote;
    bool isLong = false;
};

void declareList(Command *command, ListOptions *options)
{
    declareRemote(command, &options->remote);
    command->addFlag("-l,--long", &options->isLong,
                     "Flags, permissions, size in bytes and date (UTC) before each name");
}

QString shownName(const SFileEntry &entry)
{
    return entry.isDirectory() ? entry.fileName() + u'/' : entry.fileName();
}

QString date(const SFileEntry &entry)
{
    return entry.lastModified().toUTC().toString(Qt::ISODateWithMs);
}

QJsonObject toJson(const SFileEntry &entry)
{
    return {{u"name"_s, entry.fileName()},
            {u"folder"_s, entry.isDirectory()},
            {u"link"_s, entry.isSymbolic()},
            {u"size"_s, entry.size()},
            {u"modified"_s, date(entry)},
            {u"flags"_s, entry.baseFlagsString()},
            {u"permissions"_s, entry.advancedFlagsString()}};
}

// The entries of a folder, or the one that a file has in its own.
QList<SFileEntry> entriesOf(Session &session, const QString &path)
{
    if (session.isFolder(path))
        return session.list(path);
    QList<SFileEntry> entries = session.list(RemotePath::parent(path));
    entries.removeIf([name = RemotePath::name(path)](const SFileEntry &entry) {
        return entry.fileName() != name;
    });
    if (entries.isEmpty())
        refuse(u"the server has no %1"_s.arg(path));
    return entries;
}

ExitCode list(const Output &output, const ListOptions &options)
{
    return withSession(options.remote, [&](Session &session, const RemoteUrl &url) {
        QList<QStringList> rows;
        for (const auto &entry : entriesOf(session, RemotePath::withoutSlash(url.path))) {
            if (output.json)
                output.object(toJson(entry));
            else if (!options.isLong)
                output.line(shownName(entry));
            else
                rows.append({entry.baseFlagsString(), entry.advancedFlagsString(),
                             QString::number(entry.size()).rightJustified(12), date(entry),
                             shownName(entry)});
        }
        output.table(rows);
        return ExitCode::Done;
    });
}

// mkdir

ExitCode makeFolder(const Output &, const RemoteOptions &options)
{
    return withSession(options, [&](Session &session, const RemoteUrl &url) {
        const QString path = requiredPath(url);
        if (!session.ask(CommandIds::kMakeDir, [&](Server &server) { server.makeDir(path); })
                 .result)
            refuse(u"the server does not make %1"_s.arg(path));
        return ExitCode::Done;
    });
}

// rm

struct RecursiveOptions
{
    RemoteOptions remote;
    QString target;
    bool recursive = false;
};

void declareRemove(Command *command, RecursiveOptions *options)
{
    declareRemote(command, &options->remote);
    command->addFlag("-r,--recursive", &options->recursive, "A folder with all that is in it");
}

ExitCode remove(const Output &, const RecursiveOptions &options)
{
    return withSession(options.remote, [&](Session &session, const RemoteUrl &url) {
        const QString path = requiredPath(url);
        requireExisting(session, path);
        const bool isFolder = session.isFolder(path);
        if (isFolder && !options.recursive)
            refuse(u"%1 is a folder; give -r"_s.arg(path));
        const bool isRemoved = isFolder ? session
                                              .ask(CommandIds::kRemoveDir,
                                                   [&](Server &server) { server.removeDir(path); })
                                              .result
                                        : session
                                              .ask(CommandIds::kRemoveFile,
                                                   [&](Server &server) { server.removeFile(path); })
                                              .result;
        if (!isRemoved)
            refusePath(session, path, u"remove"_s);
        return ExitCode::Done;
    });
}

// mv, cp

struct MoveOptions
{
    RemoteOptions remote;
    QString target;
};

constexpr auto targetHelp =
    "Where it goes on the same server: a URL, or a path from the home folder or, with a slash "
    "in front, absolute; with a slash at its end a folder";

void declareMove(Command *command, MoveOptions *options)
{
    declareRemote(command, &options->remote);
    command->addText("TARGET", &options->target, targetHelp).setRequired();
}

ExitCode move(const Output &, const MoveOptions &options)
{
    return withSession(options.remote, [&](Session &session, const RemoteUrl &url) {
        const QString from = requiredPath(url);
        const QString to = targetPath(url, options.target);
        requireExisting(session, from);
        if (session.exists(to))
            refuse(u"there is a %1 already"_s.arg(to));
        const bool isMoved = session.isFolder(from)
                                 ? session
                                       .ask(CommandIds::kRenameDir,
                                            [&](Server &server) { server.renameDir(from, to); })
                                       .result
                                 : session
                                       .ask(CommandIds::kRenameFile,
                                            [&](Server &server) { server.renameFile(from, to); })
                                       .result;
        if (!isMoved)
            refuse(u"the server does not move %1 to %2"_s.arg(from, to));
        return ExitCode::Done;
    });
}

void declareCopy(Command *command, RecursiveOptions *options)
{
    declareRemote(command, &options->remote);
    command->addText("TARGET", &options->target, targetHelp).setRequired();
    command->addFlag("-r,--recursive", &options->recursive, "A folder with all that is in it");
}

void copyFolder(Session &session, const QString &from, const QString &to)
{
    if (session.exists(to))
        refuse(u"there is a %1 already"_s.arg(to));
    CopyCheck check(session, from, to);
    check.noteTree();
    if (!session.ask(CommandIds::kCopyDir, [&](Server &server) { server.copyDir(from, to); })
             .result)
        refuse(u"the server does not copy all of %1 to %2"_s.arg(from, to));
    check.compareTree();
}

// Copies to \a place, which refusals call \a to.
void copyFileTo(Session &session, const QString &from, const QString &place, const QString &to)
{
    CopyCheck check(session, from, place);
    check.noteFile();
    if (!session.ask(CommandIds::kCopyFile, [&](Server &server) { server.copyFile(from, place); })
             .result)
        refuse(u"the server does not copy %1 to %2"_s.arg(from, to));
    check.compareFile();
}

// Removes a copy that is not whole, on a session of its own, since the first may be over. Returns
// what is to be added to the message: nothing if the server confirms that the copy is not there.
QString removedCopy(const Login &login, const QString &temporary)
{
    try {
        Session session(login);
        session.open();
        if (session
                .ask(CommandIds::kRemoveFile, [&](Server &server) { server.removeFile(temporary); })
                .result ||
            !session.exists(temporary))
            return {};
    } catch (const Failure &) {
        // The first failure is the one to report.
    }
    return u"; an incomplete copy may be left as %1"_s.arg(temporary);
}

void moveIntoPlace(Session &session, const QString &temporary, const QString &to)
{
    std::optional<Replacement::Result> result;
    Replacement::begin(session, temporary, to, Replacement::WhenRefused::RemoveTemporary,
                       [&](const Replacement::Result &ended) { result = ended; });
    session.waitWhile([&] { return !result; });
    if (result->failure)
        throw Failure{result->failure->code, u"%1: %2"_s.arg(to, result->failure->text)};
}

// A server empties the target before it copies to it. So the copy is made beside the older file,
// which stays until the copy is whole.
void replaceByCopy(Session &session, const QString &from, const QString &to)
{
    session.require(CommandIds::kRenameFile);
    const QString temporary = Replacement::temporaryName(to);
    try {
        copyFileTo(session, from, temporary, to);
    } catch (const Failure &failure) {
        throw Failure{failure.code, failure.text + removedCopy(session.login(), temporary)};
    }
    moveIntoPlace(session, temporary, to);
}

void copyFile(Session &session, const QString &from, const QString &to)
{
    if (session.isFolder(to))
        refuse(u"%1 is a folder; write %1/ to copy into it"_s.arg(to));
    if (session.exists(to))
        replaceByCopy(session, from, to);
    else
        copyFileTo(session, from, to, to);
}

ExitCode copy(const Output &, const RecursiveOptions &options)
{
    return withSession(options.remote, [&](Session &session, const RemoteUrl &url) {
        const QString from = requiredPath(url);
        const QString to = targetPath(url, options.target);
        // A server takes a missing file for an empty one and would empty the target.
        requireExisting(session, from);
        const bool isFolder = session.isFolder(from);
        if (isFolder && !options.recursive)
            refuse(u"%1 is a folder; give -r"_s.arg(from));
        if (isFolder)
            copyFolder(session, from, to);
        else
            copyFile(session, from, to);
        return ExitCode::Done;
    });
}

// chmod

struct ModeOptions
{
    RemoteOptions remote;
    QString mode;
};

void declareMode(Command *command, ModeOptions *options)
{
    command->addText("MODE", &options->mode, "Three octal digits: user, group, others")
        .setRequired();
    declareRemote(command, &options->remote);
}

// The permissions of three octal digits as they travel.
FileEntryFlags flagsOfMode(const QString &mode)
{
    static const QRegularExpression pattern(u"^0?[0-7]{3}$"_s);
    if (!pattern.match(mode).hasMatch())
        throw Failure{ExitCode::Usage, u"\"%1\" is not a mode such as 640"_s.arg(mode)};
    const uint digits = mode.toUInt(nullptr, 8);
    if (digits == 0)
        throw Failure{ExitCode::Usage, u"the protocol cannot take all permissions away"_s};
    const uint user = digits >> 6 & 7;
    const uint group = digits >> 3 & 7;
    const uint others = digits & 7;
    // The owner is the same as the user everywhere but on some servers' disks.
    return FileEntryFlags((user << 12 | user << 8 | group << 4 | others) << 16);
}

ExitCode changeMode(const Output &, const ModeOptions &options)
{
    const FileEntryFlags flags = flagsOfMode(options.mode);
    return withSession(options.remote, [&](Session &session, const RemoteUrl &url) {
        const QString path = requiredPath(url);
        if (!session
                 .ask(CommandIds::kSetPermissions,
                      [&](Server &server) { server.setFilePermissions(path, flags); })
                 .result)
            refusePath(session, path, u"change the permissions of"_s);
        return ExitCode::Done;
    });
}

// df, pwd, exists

void enter(Session &session, const QString &path)
{
    if (path.isEmpty())
        return;
    if (!session.ask(CommandIds::kChangeDir, [&](Server &server) { server.changeDir(path); })
             .result)
        refuse(u"the server has no folder %1"_s.arg(path));
}

ExitCode storage(const Output &output, const RemoteOptions &options)
{
    return withSession(options, [&](Session &session, const RemoteUrl &url) {
        enter(session, url.path);
        const Storage storage =
            session.ask(CommandIds::kStorageInfo, [](Server &server) { server.storageInfo(); })
                .storage;
        if (output.json) {
            output.object({{u"available"_s, storage.available},
                           {u"total"_s, storage.total},
                           {u"free"_s, storage.free},
                           {u"type"_s, QString::fromUtf8(storage.type)}});
        } else {
            output.table({{u"available"_s, Output::bytes(storage.available)},
                          {u"free"_s, Output::bytes(storage.free)},
                          {u"total"_s, Output::bytes(storage.total)},
                          {u"type"_s, QString::fromUtf8(storage.type)}});
        }
        return ExitCode::Done;
    });
}

ExitCode currentFolder(const Output &output, const RemoteOptions &options)
{
    return withSession(options, [&](Session &session, const RemoteUrl &url) {
        enter(session, url.path);
        const QString path =
            session.ask(CommandIds::kPwd, [](Server &server) { server.pwd(); }).text;
        output.result(path, {{u"path"_s, path}});
        return ExitCode::Done;
    });
}

ExitCode exists(const Output &output, const RemoteOptions &options)
{
    return withSession(options, [&](Session &session, const RemoteUrl &url) {
        const bool exists = session.exists(requiredPath(url));
        output.result(exists ? u"yes"_s : u"no"_s, {{u"exists"_s, exists}});
        return exists ? ExitCode::Done : ExitCode::Refused;
    });
}

} // namespace

void addFileCommands(Command *root)
{
    addCommand<ListOptions>(root, "ls", "List a folder", "brix ls -l brix://ann@press:7000/jobs",
                            declareList, list);
    addCommand<RemoteOptions>(root, "mkdir", "Make a folder and those that it lies in",
                              "brix mkdir brix://ann@press:7000/jobs/may", declareRemote,
                              makeFolder);
    addCommand<RecursiveOptions>(root, "rm", "Remove a file or, with -r, a folder",
                                 "brix rm -r brix://ann@press:7000/jobs/may", declareRemove,
                                 remove);
    addCommand<MoveOptions>(root, "mv", "Rename or move a file or folder on the server",
                            "brix mv brix://ann@press:7000/a.pdf jobs/b.pdf", declareMove, move);
    addCommand<RecursiveOptions>(root, "cp", "Copy a file or, with -r, a folder on the server",
                                 "brix cp -r brix://ann@press:7000/jobs old-jobs", declareCopy,
                                 copy);
    addCommand<ModeOptions>(root, "chmod", "Set the permissions of a file or folder",
                            "brix chmod 640 brix://ann@press:7000/a.pdf", declareMode, changeMode);
    addCommand<RemoteOptions>(root, "df", "Show the room on the storage of a folder",
                              "brix df brix://ann@press:7000", declareRemote, storage);
    addCommand<RemoteOptions>(root, "pwd", "Show a folder's path as the server tells it",
                              "brix pwd brix://ann@press:7000", declareRemote, currentFolder);
    addCommand<RemoteOptions>(root, "exists", "Tell whether there is such a file or folder",
                              "brix exists brix://ann@press:7000/a.pdf", declareRemote, exists);
}

} // namespace Brix
