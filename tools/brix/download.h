// SPDX-License-Identifier: MIT
#pragma once

#include "lanes.h"
#include "progressbar.h"
#include "transferreport.h"

#include <QtCore/QSet>

namespace Brix {

/*!
 * Fetches files so that nothing here is harmed when one fails: a file that is to replace another
 * arrives under a temporary name and takes its place only after the server has called the whole
 * exchange good; a new one is taken away again if the server does not. A source is removed only
 * after its copy stands.
 */
class Download final
{
public:
    Download(Session &session, ProgressBar &progress, TransferReport &report, bool removeSource);

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
    QString targetOf(const File &file) const;
    void fetch(Session &lane, const File &file);
    void finish(Session &lane, const File &file, const QString &target, Outcome outcome,
                const Answer &answer);
    void reportNotTried(const File &file);
    bool moveIntoPlace(const File &file, const QString &staged);
    bool makeFolder(const QString &folder, const QString &name);
    void explainFailure(const File &file, const Answer &answer);
    void removeRemoteFile(Session &lane, const File &file);
    void removeRemoteFolders();

    Session &m_session;
    Lanes m_lanes;
    ProgressBar &m_progress;
    TransferReport &m_report;
    const bool m_removeSource;
    QString m_stagingFolder;
    QList<File> m_files;
    QStringList m_remoteFolders; // each after the one that it is in
    QSet<QString> m_madeFolders;
};

} // namespace Brix
