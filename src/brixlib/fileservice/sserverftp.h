// SPDX-License-Identifier: MIT
#pragma once

#include <brixlib/brixlib_export.h>
#include <brixlib/protocol/server/sserverbase.h>

#include <QtCore/QList>
#include <QtCore/QString>

#include <concepts>

class QElapsedTimer;

namespace Talverine {

class FileTransfer;
class ListingReply;
class SCommandChangeDir;
class SCommandCopyDir;
class SCommandCopyFile;
class SCommandExists;
class SCommandFSSensitivity;
class SCommandGetDev;
class SCommandGetDir;
class SCommandGetFile;
class SCommandGetFiles;
class SCommandListDir;
class SCommandMakeDir;
class SCommandPwd;
class SCommandRemoveDir;
class SCommandRemoveFile;
class SCommandRenameDir;
class SCommandRenameFile;
class SCommandSendDev;
class SCommandSendFile;
class SCommandSetPermissions;
class SCommandStorageInfo;

/*!
 * One session of the remote file service, at the server's end. It carries out the file commands of
 * a client inside the jail, rootPath(); within it a logged-in client may do everything. What the
 * jail keeps out and what not is told at SCommunicatorBase.
 *
 *     connect(&controller, &SServerController::newConnection, this, [&](qint64 descriptor) {
 *         auto *session = new SServerFtp(descriptor);
 *         session->setAuthenticationDb(&users);
 *         controller.serveNewConnection(session, true);
 *     });
 *
 * An operation that the file system refuses, or whose path leads outside the jail, is answered as
 * failed and the session goes on. A transfer that cannot be made ends the session, and so does a
 * search outside the jail. What has arrived of a file that broke off does not stay.
 *
 * In the names of the signals "get" and "send" are the client's: getFile is a file that leaves.
 *
 * Thread: lives in its worker thread.
 */
class BRIXLIB_EXPORT SServerFtp : public SServerBase
{
    Q_OBJECT

public:
    //! Takes over an accepted socket's descriptor; 0 stands for none.
    explicit SServerFtp(qint64 socketDescriptor = 0, QObject *parent = nullptr);
    //! A database would be taken for the parent, and the session would have no users: call
    //! setAuthenticationDb().
    template<std::derived_from<Interfaces::ISAuthenticationDb> Database>
    SServerFtp(qint64 socketDescriptor, Database *db, QObject *parent = nullptr) = delete;
    ~SServerFtp() override;

    /*!
     * Whether a directory that is there but cannot be opened or read, for want of descriptors for
     * instance, ends a listing with a failure, and the session with it, also the listing of all
     * files below a directory. Off by default: it is listed like an empty one. Set before the
     * session runs.
     */
    void setStrictListings(bool strict) { m_strictListings = strict; }

Q_SIGNALS:
    //! A file begins to leave for the client; \a local is its path here.
    void getFileStarted(const QString &local);
    //! At most ten times a second, and once at the end with both numbers equal.
    void getFileTransferredSize(qint64 done, qint64 total);
    //! All bytes have gone out. \a removed tells that the removal of the file was asked for, not
    //! whether it worked.
    void getFileFinished(const QString &local, bool removed);
    //! A file begins to arrive; \a local is its final name.
    void sendFileStarted(const QString &local);
    //! At most ten times a second, and once at the end with both numbers equal.
    void sendFileTransferredSize(qint64 done, qint64 total);
    //! The file stands under its final name.
    void sendFileFinished(const QString &local);
    //! An operation that is answered with one byte has been carried out; \a result is the answer.
    //! Emitted before the client is told.
    void operationFinished(bool result);
    //! Comes just before the client is told how file names compare.
    void fileSystemSensitivityCheck();

protected:
    //! The server half of a command's reply phase; false ends the session.
    bool executeCommand(SCommand *command) override;

private:
    bool executeCommandSendFile(SCommandSendFile &command);
    bool executeCommandGetFile(SCommandGetFile &command);
    bool executeCommandChangeDir(SCommandChangeDir &command);
    bool executeCommandMakeDir(SCommandMakeDir &command);
    bool executeCommandRemoveDir(SCommandRemoveDir &command);
    bool executeCommandListDir(SCommandListDir &command);
    bool executeCommandRemoveFile(SCommandRemoveFile &command);
    bool executeCommandRenameFile(SCommandRenameFile &command);
    bool executeCommandRenameDir(SCommandRenameDir &command);
    bool executeCommandCopyFile(SCommandCopyFile &command);
    bool executeCommandCopyDir(SCommandCopyDir &command);
    bool executeCommandPwd(SCommandPwd &command);
    bool executeCommandGetDir(SCommandGetDir &command);
    bool executeCommandGetFiles(SCommandGetFiles &command);
    bool executeCommandStorageInfo(SCommandStorageInfo &command);
    bool executeCommandSendDev(SCommandSendDev &command);
    bool executeCommandGetDev(SCommandGetDev &command);
    bool executeCommandExists(SCommandExists &command);
    bool executeCommandFSSensitivity(SCommandFSSensitivity &command);
    bool executeCommandSetPermissions(SCommandSetPermissions &command);

    using ProgressSignal = void (SServerFtp::*)(qint64, qint64);
    QString toLocal(const QString &networkPath) const;
    QString toNetwork(const QString &localPath) const;
    bool keepsAlive(SCommand &command) const;
    bool writeResult(bool result);
    template<typename Operation>
    bool replyOn(const QString &path, Operation operation);
    template<typename Operation>
    bool replyOn(const QString &first, const QString &second, Operation operation);
    FileTransfer transfer(ProgressSignal moved);
    bool isStillWanted(QElapsedTimer *sinceLook) const;
    ListingReply listingReply();

    bool m_strictListings = false;
};

} // namespace Talverine
