// SPDX-License-Identifier: MIT
#pragma once

#include <brixlib/brixlib_export.h>
#include <brixlib/foundation/fileentryflags.h>
#include <brixlib/foundation/sfileentry.h>
#include <brixlib/protocol/client/sclientbase.h>

#include <QtCore/QByteArray>
#include <QtCore/QList>
#include <QtCore/QString>

class QHostAddress;
class QIODevice;

namespace Talverine {

class FileTransfer;
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
 * The client of the remote file service. It sees two trees of files: its own, inside rootPath(),
 * and the server's, in network paths. A relative local path is taken from currentPath(), which is
 * the user's home at first and not the program's folder. Each operation queues a command and
 * returns at once; results come as signals from the worker thread.
 *
 *     auto *client = new SClientFtp(address, port);
 *     connect(client, &SClientFtp::getFileFinished, …);
 *     if (controller.connectClient(client, true)) {
 *         client->authenticate(u"ann"_s, password);
 *         client->getFile(u"reports/may.pdf"_s, u"/home/ann/may.pdf"_s);
 *     }
 *
 * A refusal by the server's file system is told by the result signal and the session goes on. A
 * failure of the exchange, a transfer that breaks off or a path outside the jail end the session;
 * nothing is retried or resumed. File dates and permissions do not travel: a file that is replaced
 * keeps its permissions, at both ends, and a new one has those of any new file.
 *
 * Thread: lives in its worker thread. The operations may be called from any thread; sendFiles() and
 * sendDir() read the local disk in the caller's. Call sendDir() with removal in the worker's thread
 * or through a requester.
 */
class BRIXLIB_EXPORT SClientFtp : public SClientBase
{
    Q_OBJECT

public:
    explicit SClientFtp(const QHostAddress &address, unsigned short port,
                        QObject *parent = nullptr);
    SClientFtp(const QString &host, unsigned short port, bool preferIPv4,
               QObject *parent = nullptr);
    ~SClientFtp() override;

public Q_SLOTS:
    // Folders and entries of the server

    //! Makes \a remote the server's current directory; empty goes to the top of the jail.
    void changeDir(const QString &remote);
    void homeDir();
    void pwd();
    //! Entries come in no order, with ".." below the top of the jail; a missing directory has no
    //! other.
    void listDir(const QString &remote);
    void makeDir(const QString &remote);
    //! Removes a directory with all that is in it.
    void removeDir(const QString &remote);
    void removeFile(const QString &remote);
    void exists(const QString &remote);
    void renameDir(const QString &from, const QString &to);
    void renameFile(const QString &from, const QString &to);
    void copyDir(const QString &from, const QString &to);
    void copyFile(const QString &from, const QString &to);
    //! Sets the permissions in the high half of \a flags; with none of them the session ends.
    void setFilePermissions(const QString &remote, const FileEntryFlags &flags);
    void storageInfo();
    void fileSystemSensitivity();

    // From the server

    /*!
     * Fetches a file to \a local, whose folder is made if need be; an empty \a local means the name
     * of the remote file in the current local directory. When the server cannot read the file, or
     * falls silent before it tells the size, \a local is replaced by an empty file, and then the
     * command fails: fetch to a name of its own what must not be lost. When the connection is lost,
     * \a local stays as it is.
     */
    void getFile(const QString &remote, const QString &local, bool removeSource = false);
    void getFile(const QString &remote, bool removeSource = false);
    /*!
     * Fetches the files in \a remote whose names match one of \a filters, wildcard patterns divided
     * by ";" (all if empty), into \a local. getFilesResult() comes when the list is there and each
     * file is queued, before the first has moved.
     */
    void getFiles(const QString &remote, const QString &filters, const QString &local,
                  bool recursive);
    /*!
     * Fetches a tree of files into \a local, by default a folder of the same name. With
     * \a removeSource the remote directory is removed after the files, also if one of them failed.
     */
    void getDir(const QString &remote, const QString &local, bool removeSource = false);
    //! Fetches a file into \a device, which is opened and closed in the worker thread and must live
    //! until the command has run. A transfer that fails leaves it open.
    void getDevice(const QString &remote, QIODevice *device);

    // To the server

    /*!
     * Sends a file; nothing happens when \a local lies outside the jail. An empty \a remote means
     * the file's name in the server's current directory. What is no regular file when its turn
     * comes, and a file whose size changes on the way, end the session.
     */
    void sendFile(const QString &local, const QString &remote, bool removeSource = false);
    void sendFile(const QString &local, bool removeSource = false);
    //! Queues a sendFile() for each file in \a local that matches \a filters, as in getFiles().
    void sendFiles(const QString &local, const QString &filters, const QString &remote,
                   bool recursive);
    /*!
     * Sends a tree of files to \a remote, by default a folder of the same name. Empty directories
     * do not arrive. With \a removeSource the local directory is removed when the queue has run
     * empty, whether or not its files arrived; a relative \a local is then taken from the local
     * directory that is the current one by that time.
     */
    void sendDir(const QString &local, const QString &remote, bool removeSource = false);
    //! Sends all that \a device holds; it is opened and closed in the worker thread and must live
    //! until the command has run. A transfer that fails leaves it open.
    void sendDevice(QIODevice *device, const QString &remote);

public:
    /*!
     * Why the last command failed at a file or directory of this machine that could not be opened,
     * read, written or put in its place: the reason of the system, for people. Empty when the
     * command succeeded or failed for another reason. Only in the worker thread; known when
     * commandResult() comes.
     */
    QString localError() const { return m_localError; }

    // A plain literal would turn into bool and pick the wrong overload.
    void exists(const char *) = delete;
    void getFile(const QString &, const char *) = delete;
    void sendFile(const QString &, const char *) = delete;

Q_SIGNALS:
    void changeDirResult(bool result);
    void makeDirResult(bool result);
    void removeDirResult(bool result);
    void removeFileResult(bool result);
    void renameDirResult(bool result);
    void renameFileResult(bool result);
    void copyDirResult(bool result);
    void copyFileResult(bool result);
    void exists(bool result);
    void setSetFilePermissionsResult(bool result);
    //! Whether the server's file names differ by case.
    void fileSystemSensitivity(bool sensitive);
    void pwdResult(const QString &path);
    void listDirResult(const QList<SFileEntry> &entries);
    //! Bytes of the storage that holds the server's current directory, and its file system's name.
    void storageInfoResult(qint64 available, qint64 total, qint64 free, const QByteArray &type);

    //! A file begins to arrive; \a local is its final name.
    void getFileStarted(const QString &local);
    //! At most ten times a second, and once at the end with both numbers equal.
    void getFileTransferredSize(qint64 done, qint64 total);
    //! The file stands under its final name.
    void getFileFinished(const QString &local);
    void sendFileStarted(const QString &local);
    void sendFileTransferredSize(qint64 done, qint64 total);
    //! \a removed tells that the removal of the local file was asked for.
    void sendFileFinished(const QString &local, bool removed);

    void getDeviceStarted(QIODevice *device);
    void getDeviceTransferredSize(qint64 done, qint64 total);
    void getDeviceFinished(QIODevice *device);
    void sendDeviceStarted(QIODevice *device);
    void sendDeviceTransferredSize(qint64 done, qint64 total);
    void sendDeviceFinished(QIODevice *device);

    //! The files of a getDir() are queued; comes before the getFilesResult() of the same list.
    void getDirResult(bool result);
    void getFilesResult(bool result);

protected:
    //! The client half of a command's reply phase; false ends the session.
    bool executeCommand(SCommand *command) override;

private Q_SLOTS:
    void executeDelayedLocalOperations();

private:
    void initClientFtp();
    void removeDirLocalLater(const QString &path);

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

    using ResultSignal = void (SClientFtp::*)(bool);
    using ProgressSignal = void (SClientFtp::*)(qint64, qint64);
    bool readResult(ResultSignal result);
    bool readResultOfCopy(SCommand &command, ResultSignal result);
    void keepAliveLoop(QIODevice *device);
    bool readBytes(QByteArray *bytes);
    bool readSize(qint64 *size);
    bool readFileSize(qint64 *size);
    bool failLocally(const QString &reason);
    bool failSending(const FileTransfer &content);
    void enqueueGetFiles(const QList<QString> &names, const QString &base, const QString &target);
    FileTransfer transfer(ProgressSignal moved);

    QList<QString> m_localDirsToRemove;
    QString m_localError;
};

} // namespace Talverine
