// SPDX-License-Identifier: MIT
#pragma once

#include "lanes.h"
#include "transferreport.h"
#include <cli/progressbar.h>

#include <QtCore/QSet>

#include <filesystem>

namespace Brix {

/*!
 * Fetches files so that nothing here is harmed when one fails: a file arrives under a temporary
 * name beside its place and takes the place, from an older file too, only after the server has
 * called the whole exchange good. Until then nothing but the temporary name is ever removed. A
 * source is removed only after its copy is in place.
 *
 * A replaced file keeps its permissions. A link is followed, as cp does: the file that it leads to
 * is replaced.
 */
class Download final
{
public:
    //! How far a tree is followed that a server describes.
    struct TreeLimits
    {
        int depth = 200;
        qint64 entries = 1'000'000;
    };

    Download(Session &session, ProgressBar &progress, TransferReport &report, bool removeSource,
             const TreeLimits &limits);

    //! Fetches one file to \a local, whose folder is made if need be; throws Failure.
    void fetchFile(const QString &remote, const QString &local);
    //! Fetches all below the folder \a remote into the folder \a local; throws Failure.
    void fetchTree(const QString &remote, const QString &local);

private:
    struct File
    {
        QString remote;
        QString local;
        QString name; //!< as the report calls it
        qint64 size = 0;
    };

    void stageIn(const QString &folder);
    void collect(const QString &remote, const QString &local, const QString &name, int depth);
    void collectEntry(const Talverine::SFileEntry &entry, const QString &remote,
                      const QString &local, const QString &name, int depth);
    void fetchAll();
    QString problemOfPlace(const QString &local) const;
    QString stagedName(const QString &place) const;
    bool stagePrivately(const QString &staged, const QString &place) const;
    void fetch(Session &lane, const File &file);
    void finish(Session &lane, const File &file, const QString &staged, Outcome outcome,
                const Answer &answer);
    void reportNotTried(const File &file);
    bool moveIntoPlace(const File &file, const QString &staged);
    bool makeFolder(const QString &folder, const QString &name);
    void explainFailure(const File &file, Outcome outcome, const Answer &answer);
    void removeRemoteFile(Session &lane, const File &file);
    void removeRemoteFolders();

    Session &m_session;
    Lanes m_lanes;
    ProgressBar &m_progress;
    TransferReport &m_report;
    const bool m_removeSource;
    const TreeLimits m_limits;
    qint64 m_listed = 0; // entries so far
    QString m_stagingFolder;
    std::filesystem::perms m_newPermissions = std::filesystem::perms::none; // of any new file
    QList<File> m_files;
    QStringList m_remoteFolders; // each after the one that it is in
    QSet<QString> m_madeFolders;
};

} // namespace Brix
