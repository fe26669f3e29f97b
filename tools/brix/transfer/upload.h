// SPDX-License-Identifier: MIT
#pragma once

#include "lanes.h"
#include "transferreport.h"
#include <cli/progressbar.h>
#include <remote/replacement.h>

#include <QtCore/QDateTime>

#include <deque>

namespace Brix {

/*!
 * Sends files, each under its own name. A server changes some characters of a name, so such a file
 * is sent under a temporary name and renamed. What can be checked without losing the session is
 * checked first: whether a file can be read here, whether its directory can be made on the server,
 * and whether the server can store a file under that name.
 *
 * An old server is not told the name of the target and stores each file under the file's own name
 * in the session's current directory. It gets the files directory by directory, on one session.
 *
 * A source is removed only after the server's listing shows the file with its size.
 */
class Upload final
{
public:
    Upload(Session &session, ProgressBar &progress, TransferReport &report, bool removeSource);

    //! Sends one file to \a remote, whose directory is made if need be; throws Failure.
    void sendFile(const QString &local, const QString &remote);
    //! Sends all below the directory \a local into the directory \a remote; throws Failure.
    void sendTree(const QString &local, const QString &remote);

private:
    struct File
    {
        QString local;
        QString remote;
        QString name; //!< as the report calls it
        qint64 size = 0;
        QDateTime modified = {};
    };
    struct Folder
    {
        QString local;
        QString remote;
        QString name;
        QList<File> files = {};
        qsizetype unfinished = 0;
        QList<File> arrived = {}; //!< the sources to remove
    };
    struct Broken
    {
        File file;
        Answer answer;
    };

    void requireCommands() const;
    bool tellsTarget() const;
    QString problemOfName(const File &file) const;

    void collect(Folder folder);
    void reportUnreadableNames(const Folder &folder);
    bool makeRemoteFolder(const QString &remote);

    void sendAll();
    void sendSideBySide();
    void sendFolderByFolder();
    bool enter(const Folder &folder);
    bool returnHome(Folder &folder);
    bool changeDir(const QString &remote);
    void sendFiles(Folder &folder);
    void send(Session &lane, Folder &folder, File file);
    void sendUnderItsName(Session &lane, Folder &folder, const File &file);
    void sendByDetour(Session &lane, Folder &folder, const File &file);
    void rename(Session &lane, Folder &folder, const File &file, const QString &temporary,
                qint64 bytes);
    void reportUnlessDone(const File &file, Outcome outcome, const Answer &answer);
    void reportArrived(Folder &folder, const File &file, qint64 bytes);
    void endFile(Session &lane, Folder &folder);

    void removeSources(Session &lane, Folder &folder);
    void removeSource(const File &file, qint64 sizeOnServer);
    void reportKeptSources(Folder &folder, Outcome outcome);
    void removeLocalFolders();

    void explainBroken();
    Failure explanation(const Broken &broken) const;

    Session &m_session;
    Lanes m_lanes;
    ProgressBar &m_progress;
    TransferReport &m_report;
    const bool m_removeSource;
    std::deque<Folder> m_folders; // each after the one that contains it
    QList<Broken> m_broken;       // explained once no exchange runs
};

} // namespace Brix
