// SPDX-License-Identifier: MIT
#pragma once

#include "lanes.h"
#include "progressbar.h"
#include "transferreport.h"

namespace Brix {

/*!
 * Sends files, each under its own name: a server would change some characters of it, so such a file
 * goes under a temporary name first and is renamed there. What can be tried without costing the
 * session is tried first: whether a file can be read here, and whether its folder can be made
 * there. A source is removed only after the server has called the whole exchange good.
 */
class Upload final
{
public:
    Upload(Session &session, ProgressBar &progress, TransferReport &report, bool removeSource);

    //! Sends one file to \a remote, whose folder is made if need be; throws Failure.
    void sendFile(const QString &local, const QString &remote);
    //! Sends all below the folder \a local into the folder \a remote; throws Failure.
    void sendTree(const QString &local, const QString &remote);

private:
    struct File
    {
        QString local;
        QString remote;
        QString name; //!< as the report calls it
        qint64 size = 0;
    };
    struct Folder
    {
        QString local;
        QString remote;
        QString name;
    };

    void collect(const Folder &folder);
    void reportUnreadableNames(const Folder &folder);
    bool makeRemoteFolder(const QString &remote);
    void sendAll();
    void send(Session &lane, const File &file);
    void reportUnlessDone(const File &file, Outcome outcome, const Answer &answer);
    void finishFile(const File &file, qint64 bytes);
    void sendByDetour(Session &lane, const File &file);
    void moveIntoPlace(Session &lane, const File &file, const QString &staged, qint64 bytes);
    void replaceOlder(Session &lane, const File &file, const QString &staged, qint64 bytes);
    void explainFailure(const File &file, const Answer &answer);
    void removeLocalFolders();

    Session &m_session;
    Lanes m_lanes;
    ProgressBar &m_progress;
    TransferReport &m_report;
    const bool m_removeSource;
    QList<Folder> m_folders; // each after the one that it is in
    QList<File> m_files;
};

} // namespace Brix
