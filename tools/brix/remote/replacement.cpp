// SPDX-License-Identifier: MIT
#include "replacement.h"

#include "listing.h"
#include "remotepath.h"

#include <brixlib/protocol/wire.h>

#include <QtCore/QUuid>

namespace Brix {

using namespace Qt::StringLiterals;
using namespace Talverine;

namespace {

// The text for a file that has one of two names, depending on whether the server completed an
// exchange whose answer did not arrive.
QString either(const QString &before, const QString &after, Outcome outcome)
{
    return outcome == Outcome::Failed ? u"%1 or %2"_s.arg(before, after) : before;
}

QString olderIs(const QString &name)
{
    return u"the older file is %1"_s.arg(name);
}

QString newIs(const QString &name)
{
    return u"the new file is %1"_s.arg(name);
}

// Without the user's bits, which depend on the process that makes the listing.
FileEntryFlags permissionsOf(const SFileEntry &entry)
{
    constexpr quint32 kOwnerGroupOthers = 0x70770000;
    constexpr int kFromOwnerToUser = 4;
    const quint32 permissions = quint32(entry.flags()) & kOwnerGroupOthers;
    const quint32 owner = permissions & 0x70000000;
    return FileEntryFlags(permissions | owner >> kFromOwnerToUser);
}

} // namespace

QString Replacement::temporaryName(const QString &path)
{
    return RemotePath::join(RemotePath::parent(path),
                            u".brix-"_s + QUuid::createUuid().toString(QUuid::WithoutBraces));
}

void Replacement::begin(Session &session, const QString &temporary, const QString &path,
                        WhenRefused whenRefused, const Done &done)
{
    // Each exchange that is waited for keeps the object alive.
    const std::shared_ptr<Replacement> replacement(
        new Replacement(session, temporary, path, whenRefused, done));
    replacement->rename(temporary, path, &Replacement::onRenamed);
}

Replacement::Replacement(Session &session, const QString &temporary, const QString &path,
                         WhenRefused whenRefused, const Done &done)
    : m_session(session)
    , m_temporary(temporary)
    , m_path(path)
    , m_aside(temporaryName(path))
    , m_whenRefused(whenRefused)
    , m_done(done)
    , m_refusal(u"the server does not store a file under the name %1"_s.arg(path))
{
}

// Exchanges

Session::Done Replacement::continueWith(Step next)
{
    return [self = shared_from_this(), next](Outcome outcome, const Answer &answer) {
        (self.get()->*next)(outcome, answer.result);
    };
}

void Replacement::rename(const QString &from, const QString &to, Step next)
{
    m_session.post(
        CommandIds::kRenameFile, [&](Session::Requester &server) { server.renameFile(from, to); },
        continueWith(next));
}

void Replacement::askWhetherExists(Step next)
{
    m_session.post(
        CommandIds::kExists, [&](Session::Requester &server) { server.exists(m_path); },
        continueWith(next));
}

void Replacement::list(const Session::Done &done)
{
    m_session.post(
        CommandIds::kListDir,
        [&](Session::Requester &server) { server.listDir(RemotePath::parent(m_path)); }, done);
}

void Replacement::setPermissions(FileEntryFlags permissions, Step next)
{
    m_session.post(
        CommandIds::kSetPermissions,
        [&](Session::Requester &server) { server.setFilePermissions(m_temporary, permissions); },
        continueWith(next));
}

void Replacement::remove(const QString &path, Step next)
{
    m_session.post(
        CommandIds::kRemoveFile, [&](Session::Requester &server) { server.removeFile(path); },
        continueWith(next));
}

// Steps

void Replacement::onRenamed(Outcome outcome, bool isRenamed)
{
    if (outcome != Outcome::Done)
        fail(outcome, newIs(either(m_temporary, m_path, outcome)));
    else if (isRenamed)
        finish({true, std::nullopt});
    else
        askWhetherExists(&Replacement::onLookedForOlder);
}

void Replacement::onLookedForOlder(Outcome outcome, bool exists)
{
    // A server without this command may have an older file all the same.
    if (outcome == Outcome::Unavailable || (outcome == Outcome::Done && exists))
        copyPermissions();
    else if (outcome == Outcome::Done)
        refuse();
    else
        fail(outcome, newIs(m_temporary));
}

void Replacement::copyPermissions()
{
    if (!m_session.commands().contains(CommandIds::kSetPermissions))
        return moveOlderAside();
    list([self = shared_from_this()](Outcome outcome, const Answer &answer) {
        self->onListed(outcome, answer.entries);
    });
}

void Replacement::onListed(Outcome outcome, const QList<SFileEntry> &entries)
{
    if (outcome == Outcome::Unavailable)
        return moveOlderAside();
    if (outcome != Outcome::Done)
        return fail(outcome, olderIs(m_path) + u" and "_s + newIs(m_temporary));
    const SFileEntry *const older = Listing::find(entries, RemotePath::name(m_path));
    const SFileEntry *const newer = Listing::find(entries, RemotePath::name(m_temporary));
    if (!older || !newer)
        return refuse(u"the server does not list the permissions of %1"_s.arg(m_path));
    const FileEntryFlags permissions = permissionsOf(*older);
    // The protocol cannot take all permissions away, and some servers list none. A directory is not
    // replaced.
    if (older->isDirectory() || permissions == FileEntryFlags::None ||
        permissions == permissionsOf(*newer))
        moveOlderAside();
    else
        setPermissions(permissions, &Replacement::onPermissionsSet);
}

void Replacement::onPermissionsSet(Outcome outcome, bool isSet)
{
    if (outcome != Outcome::Done && outcome != Outcome::Unavailable)
        fail(outcome, olderIs(m_path) + u" and "_s + newIs(m_temporary));
    else if (outcome == Outcome::Done && isSet)
        moveOlderAside();
    else
        refuse(u"the server does not set the permissions of %1 on the new file"_s.arg(m_path));
}

void Replacement::moveOlderAside()
{
    rename(m_path, m_aside, &Replacement::onOlderMovedAside);
}

void Replacement::onOlderMovedAside(Outcome outcome, bool isRenamed)
{
    if (outcome != Outcome::Done)
        fail(outcome, olderIs(either(m_path, m_aside, outcome)) + u" and "_s + newIs(m_temporary));
    else if (isRenamed)
        rename(m_temporary, m_path, &Replacement::onRenamedAfterOlder);
    else
        askWhetherExists(&Replacement::onOlderConfirmed);
}

void Replacement::onRenamedAfterOlder(Outcome outcome, bool isRenamed)
{
    if (outcome != Outcome::Done)
        fail(outcome, olderIs(m_aside) + u" and "_s + newIs(either(m_temporary, m_path, outcome)));
    else if (isRenamed)
        remove(m_aside, &Replacement::onOlderRemoved);
    else
        rename(m_aside, m_path, &Replacement::onOlderMovedBack);
}

void Replacement::onOlderMovedBack(Outcome outcome, bool isRenamed)
{
    if (outcome == Outcome::Done && isRenamed)
        askWhetherExists(&Replacement::onOlderConfirmed);
    else
        fail(outcome, olderIs(either(m_aside, m_path, outcome)) + u" and "_s + newIs(m_temporary));
}

// Only an older file that the server itself sees allows the new one to be removed.
void Replacement::onOlderConfirmed(Outcome outcome, bool exists)
{
    if (outcome == Outcome::Done && exists)
        refuse();
    else
        fail(outcome,
             olderIs(either(m_path, m_aside, Outcome::Failed)) + u" and "_s + newIs(m_temporary));
}

void Replacement::onOlderRemoved(Outcome outcome, bool isRemoved)
{
    if (outcome == Outcome::Done && isRemoved)
        return finish({true, std::nullopt});
    const ExitCode code =
        outcome == Outcome::Done ? ExitCode::Refused : m_session.failure(outcome).code;
    finish(
        {true, Failure{code, u"was replaced, but the server did not remove the older file %1"_s.arg(
                                 m_aside)}});
}

void Replacement::refuse(const QString &reason)
{
    m_refusal = reason;
    refuse();
}

void Replacement::refuse()
{
    if (m_whenRefused == WhenRefused::RemoveTemporary)
        remove(m_temporary, &Replacement::onTemporaryRemoved);
    else
        onTemporaryRemoved(Outcome::Done, false);
}

void Replacement::onTemporaryRemoved(Outcome outcome, bool isRemoved)
{
    fail(Outcome::Done, outcome == Outcome::Done && isRemoved ? QString() : newIs(m_temporary));
}

void Replacement::fail(Outcome outcome, const QString &whereFilesAre)
{
    const bool isRefused = outcome == Outcome::Done || outcome == Outcome::Unavailable;
    Failure failure =
        isRefused ? Failure{ExitCode::Refused, m_refusal} : m_session.failure(outcome);
    if (!whereFilesAre.isEmpty())
        failure.text += u"; "_s + whereFilesAre;
    finish({false, failure});
}

void Replacement::finish(const Result &result)
{
    m_done(result);
}

} // namespace Brix
