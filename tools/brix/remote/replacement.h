// SPDX-License-Identifier: MIT
#pragma once

#include "session.h"

#include <memory>
#include <optional>

namespace Brix {

/*!
 * Renames a file that arrived whole under a temporary name on the server to its own name, and
 * replaces an older file of that name. A server does not replace a file when it renames another, so
 * the older one is renamed to a second temporary name first, and removed only after the new file
 * has its place.
 *
 * The new file first gets the permissions of the older one from the server's listing, where the
 * server has the commands for it; a new file that does not get them does not replace the older one.
 *
 * Whichever exchange fails, both files are still on the server, and the failure names where.
 */
class Replacement final : public std::enable_shared_from_this<Replacement>
{
public:
    //! What to do with the temporary file when the server refuses its own name to it.
    enum class WhenRefused { RemoveTemporary, KeepTemporary };

    struct Result
    {
        bool isReplaced = false;        //!< the new file has its name
        std::optional<Failure> failure; //!< also set if the older file could not be removed
    };
    using Done = std::function<void(const Result &result)>;

    /*!
     * Begins to rename \a temporary to \a path. \a done is called as for Session::post().
     */
    static void begin(Session &session, const QString &temporary, const QString &path,
                      WhenRefused whenRefused, const Done &done);

    //! Returns a new temporary name in the directory of \a path.
    static QString temporaryName(const QString &path);

private:
    using Step = void (Replacement::*)(Outcome outcome, bool result);

    Replacement(Session &session, const QString &temporary, const QString &path,
                WhenRefused whenRefused, const Done &done);

    void rename(const QString &from, const QString &to, Step next);
    void askWhetherExists(Step next);
    void list(const Session::Done &done);
    void setPermissions(Talverine::FileEntryFlags permissions, Step next);
    void remove(const QString &path, Step next);
    Session::Done continueWith(Step next);

    void onRenamed(Outcome outcome, bool isRenamed);
    void onLookedForOlder(Outcome outcome, bool exists);
    void onListed(Outcome outcome, const QList<Talverine::SFileEntry> &entries);
    void onPermissionsSet(Outcome outcome, bool isSet);
    void onOlderMovedAside(Outcome outcome, bool isRenamed);
    void onRenamedAfterOlder(Outcome outcome, bool isRenamed);
    void onOlderMovedBack(Outcome outcome, bool isRenamed);
    void onOlderConfirmed(Outcome outcome, bool exists);
    void onOlderRemoved(Outcome outcome, bool isRemoved);
    void onTemporaryRemoved(Outcome outcome, bool isRemoved);

    void copyPermissions();
    void moveOlderAside();
    void refuse();
    void refuse(const QString &reason);
    void fail(Outcome outcome, const QString &whereFilesAre);
    void finish(const Result &result);

    Session &m_session;
    const QString m_temporary;
    const QString m_path;
    const QString m_aside; // the older file while the new one takes its place
    const WhenRefused m_whenRefused;
    const Done m_done;
    QString m_refusal;
};

} // namespace Brix
