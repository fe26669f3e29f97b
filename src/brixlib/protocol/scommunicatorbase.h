// SPDX-License-Identifier: MIT
#pragma once

#include <brixlib/brixlib_export.h>
#include <brixlib/enums/authenticationstatus.h>
#include <brixlib/foundation/fileentryflags.h>
#include <brixlib/foundation/sfileentry.h>
#include <brixlib/protocol/scommandid.h>
#include <brixlib/workers/ssimpleworker.h>

#include <QtCore/QDeadlineTimer>
#include <QtCore/QList>
#include <QtCore/QPointer>
#include <QtCore/QStorageInfo>
#include <QtCore/QString>
#include <QtCore/QUuid>

#include <functional>
#include <memory>

class QIODevice;

namespace Talverine {

class BlockingIo;
class SCommand;
class STcpSocket;
class STcpSocketSpeedController;

/*!
 * What both ends of a connection share: the socket and its time-out, the context in the command
 * registry, the session's uuid, the state of the login, and a *path jail* with a current directory,
 * on top of which a set of local file operations works. "Local" means on the machine where this end
 * runs; a server carries out remote requests through the same operations.
 *
 * An instance is made without a parent, moved to a worker thread of its own and used there only.
 * Other threads reach it through a requester, signals and slots, or a command queue.
 *
 * The jail is a plain test of the path's beginning, without regard to case and without looking at
 * symbolic links: with the root `/data/root`, `/data/root2/x` passes too. Whoever may make links
 * below the root, or owns a neighbour of that name, can leave it. setStrictJail() prevents both.
 */
class BRIXLIB_EXPORT SCommunicatorBase : public SSimpleWorker
{
    Q_OBJECT

public:
    explicit SCommunicatorBase(QObject *parent = nullptr);
    //! Removes this object's prototypes from the command registry.
    ~SCommunicatorBase() override;

    //! True while there is no socket: before the connection exists and after it is gone.
    virtual bool isNull() const;

    /*!
     * With a strict jail, which is off by default, a path must also be inside the root after all
     * links are resolved, by the file system's own rule for names. A link that leads outside, or to
     * nothing, cannot be used, renamed or removed, and is left out of lists; a directory with one
     * that leads to a file outside is not copied whole. A program on this machine that makes a link
     * at the very moment of a command can still lead that command outside.
     *
     * Call it before the worker's thread is started, or in that thread.
     */
    void setStrictJail(bool strict);
    bool isJailStrict() const;

    // Reached by name from other threads; the order is fixed. A path outside the jail is answered
    // as a missing file is: false, or an empty list, and no signal but that of existsLocal().

    //! The current directory, absolute.
    Q_INVOKABLE QString currentPath() const;
    //! The jail, absolute; empty when there is none.
    Q_INVOKABLE QString rootPath() const;
    /*!
     * Makes \a path the current directory. Empty means the jail, or without one the default home
     * directory. False when it does not exist or lies outside the jail; then nothing changes.
     */
    Q_INVOKABLE bool changeDirLocal(const QString &path);
    //! changeDirLocal() with an empty path.
    Q_INVOKABLE bool homeDirLocal();
    //! Makes a directory and its parents; true also when it exists already, then without a signal.
    Q_INVOKABLE bool makeDirLocal(const QString &path);
    //! Removes a directory, with all below it if \a recursive. A symbolic link is removed as a
    //! file.
    Q_INVOKABLE bool removeDirLocal(const QString &path, bool recursive);
    /*!
     * The entries of a directory, hidden ones included, whose names match one of \a filters (all
     * when it is empty), in the order of the file system. ".." comes first unless the directory is
     * the jail or a root of the file system. Empty when \a path lies outside the jail.
     */
    Q_INVOKABLE QList<SFileEntry> listDirLocal(const QString &path,
                                               const QList<QString> &filters = {});
    Q_INVOKABLE bool removeFileLocal(const QString &path);
    //! Renames a file; false when \a from is a directory or \a to is empty.
    Q_INVOKABLE bool renameFileLocal(const QString &from, const QString &to);
    //! Renames a directory; false when \a from is a file or \a to is empty.
    Q_INVOKABLE bool renameDirLocal(const QString &from, const QString &to);
    //! removeDirLocal() for a directory, else removeFileLocal().
    Q_INVOKABLE bool removeLocal(const QString &path, bool recursive);
    //! renameDirLocal() for a directory, else renameFileLocal().
    Q_INVOKABLE bool renameLocal(const QString &from, const QString &to);
    /*!
     * Copies a file over \a to. A missing source gives an empty target and true; a file copied onto
     * itself or a link to it stays as it is. False for a named pipe on either side, which could
     * block for ever. With \a keepAliveOnSocket the waiting peer is sent keep-alive words, and the
     * copy fails once the peer has gone.
     */
    Q_INVOKABLE bool copyFileLocal(const QString &from, const QString &to,
                                   bool keepAliveOnSocket = false);
    /*!
     * Copies the files below a directory into a new directory \a to. False when \a to exists; true
     * at once when both are the same. The first failure ends the copy, and what was copied stays.
     * Directories that hold nothing do not arrive.
     */
    Q_INVOKABLE bool copyDirLocal(const QString &from, const QString &to,
                                  bool keepAliveOnSocket = false);
    //! The storage that holds the current directory.
    Q_INVOKABLE QStorageInfo storageInfoLocal() const;
    //! Milliseconds that a wait on the socket may last; 0 does not wait, negative has no limit.
    Q_INVOKABLE int timeout() const;
    //! Moves the socket from the old controller to \a controller (null for none), which must
    //! outlive the connection or be taken off before it dies.
    Q_INVOKABLE void setSpeedController(STcpSocketSpeedController *controller);
    //! The default home directory. (The spelling is part of the interface.)
    Q_INVOKABLE QString defaulHomeDirLocal() const;
    //! Whether \a path is a file or a directory; a link counts as what it leads to.
    Q_INVOKABLE bool existsLocal(const QString &path);
    //! Whether changes on removable media are flushed at once.
    Q_INVOKABLE bool autoSync() const;
    //! Sets the permissions held in the high half of \a flags.
    Q_INVOKABLE bool changePermissionsLocal(const QString &path, const FileEntryFlags &flags);

public Q_SLOTS:
    void setTimeout(int milliseconds);
    void setDefaultHomeDirLocal(const QString &path);
    void setAutoSync(bool enabled);

Q_SIGNALS:
    //! Nothing is being worked on.
    void idle();
    //! Work has begun.
    void busy();
    //! One exchange has ended; a null id stands for a step that found no command.
    void commandResult(SCommandId id, bool success);

    // Local operations that succeeded. What is called a folder is an absolute path; all other
    // arguments are as the caller passed them.

    void localDirChanged(const QString &folder);
    //! Not for a directory that exists already.
    void localDirCreated(const QString &folder);
    void localDirRemoved(const QString &folder, bool recursive);
    void localDirRenamed(const QString &fromDir, const QString &toDir);
    void localDirListed(const QString &folder);
    //! Also for a symbolic link that removeDirLocal() was given.
    void localFileRemoved(const QString &fileName);
    void localFileRenamed(const QString &fromFileName, const QString &toFileName);
    void localFileCopied(const QString &fromFileName, const QString &toFileName);
    void localDirCopied(const QString &fromDir, const QString &toDir);
    //! setRootPath() got a directory that does not exist; as it was passed.
    void invalidRootDir(const QString &path);
    //! existsLocal() was asked, whatever the answer.
    void localExistsCheck(const QString &pathName);
    void localPermissionChanged(const QString &pathName);

    //! A transfer moved on; progress() follows in percent.
    void transferredBytes(qint64 bytes, qint64 total);

protected Q_SLOTS:
    //! Flushes the storage of \a path if it is removable and autoSync() is on.
    void syncIf(const QString &path);
    void syncIf(const QString &first, const QString &second);
    //! Closes the socket.
    void close();
    //! Emits progress() in percent; a total below 1 counts as complete.
    void progressFromSize(qint64 size, qint64 totalSize);

protected:
    AuthenticationStatus authenticationStatus() const;
    void setAuthenticationStatus(AuthenticationStatus status);
    //! Key of this object's prototypes in the command registry.
    unsigned int contextId() const;
    void setContextId(unsigned int context);
    //! The session's uuid, null until it is known: the salt of the password's hash.
    QUuid uuid() const;
    void setUuid(const QUuid &uuid);
    STcpSocket *socket() const;
    //! Keeps a weak reference and adds the socket to the speed controller, if there is one.
    void setSocket(STcpSocket *socket);

    //! Sets the jail and goes there; empty lifts it and goes home. False leaves the old jail.
    bool setRootPath(const QString &path);
    //! Sets the current directory (empty: the jail), making it first if \a create.
    bool setCurrentPath(const QString &path, bool create);
    /*!
     * \a path made absolute against the current directory, or empty when it does not begin with
     * \a root (compared without case; an empty root lets all pass), has a zero in it, or is outside
     * \a root by the rule of setStrictJail().
     */
    QString absoluteChildPath(const QString &path, const QString &root) const;
    //! Where \a path, below \a sourceBase, lands when that is moved to \a targetBase.
    QString absoluteMovePath(const QString &path, const QString &sourceBase,
                             const QString &targetBase, const QString &root) const;
    /*!
     * Calls \a visit for each entry that listDirLocal() returns, in its order, until \a visit
     * returns false. Returns false then, and true otherwise.
     */
    bool visitDirLocal(const QString &path, const QList<QString> &filters,
                       const std::function<bool(const SFileEntry &entry)> &visit);
    //! Copies between two absolute paths, with keep-alive words on the socket if asked.
    bool copyFile(const QString &from, const QString &to, bool keepAliveOnSocket);
    //! With a strict jail, whether \a path, which lies in the jail by its name, is a link that
    //! leads outside; false without one.
    bool leadsOutside(const QString &path) const;
    bool isSyncRequired(const QString &path) const;

    //! Lower-case hexadecimal SHA-512 of \a hash followed by the text of the session's uuid.
    QByteArray generateHashedPassword(const QByteArray &hash) const;

    /*!
     * Reads \a size bytes, waiting up to timeout() for each piece. Gives the number read, which is
     * short when the device has come to its end, or -1 on an error or a wait that failed. Once an
     * interruption is requested, all waits together last no longer than timeout().
     */
    qint64 readAll(QIODevice *device, char *buffer, qint64 size);
    qint64 readAll(QIODevice *device, QByteArray &buffer);
    //! Writes \a size bytes and waits until they have left. Gives the number written, or -1.
    qint64 writeAll(QIODevice *device, const char *data, qint64 size);
    qint64 writeAll(QIODevice *device, const QByteArray &data);

    /*!
     * Waits up to timeout() by waitForReadyRead() or waitForBytesWritten(), in slices, so that the
     * waits after a request to stop stay within the bound told above.
     */
    bool waitFor(QIODevice *device, bool (QIODevice::*wait)(int));

    //! No wait on the socket lasts beyond \a deadline; by default there is none.
    void setWaitDeadline(const QDeadlineTimer &deadline);
    //! Bytes per second at which the bodies of frames must move, counted from one timeout() after
    //! the begin of each; 0, the default, for no minimum.
    void setMinimumRate(qint64 bytesPerSecond);
    //! Whether the peer has ended the connection, or it is lost. Looks at the system's socket.
    bool isPeerGone() const;

    //! Reads one big-endian word; 0 on any failure.
    quint32 readWord(QIODevice *device);
    bool readWord64(QIODevice *device, quint64 *value);
    //! Writes one big-endian word and waits until it has left.
    bool writeWord(QIODevice *device, quint32 word);
    bool writeWord64(QIODevice *device, quint64 word);
    /*!
     * Reads exactly \a length bytes into \a body, which grows only as bytes arrive, so that a false
     * length costs no memory. False on a short read.
     */
    bool readBody(QIODevice *device, quint32 length, QByteArray *body);
    //! Reads a length word and the body behind it; false also for the length 0.
    bool readReplyFrame(QIODevice *device, QByteArray *body);
    //! Writes a length word and \a body, a small one in one packet.
    bool writeFrame(QIODevice *device, const QByteArray &body);
    //! Reads what a server sends first, the session's uuid; null when none comes.
    QUuid readGreeting(QIODevice *device);

    //! One direction of a link test.
    struct LinkTestPhase
    {
        qint64 bytes = 0;
        double seconds = 0.0;

        //! 0.0 when it took no time.
        double bytesPerSecond() const;
    };
    //! The buffer for both phases of a link test, not initialised; null without the memory.
    static std::unique_ptr<char[]> makeLinkTestBlock();
    /*!
     * Fills \a block with zeros and sends it again and again for \a seconds, then the end word.
     * Reports by transferredBytes() after the first half second; \a first is the phase that went
     * before, or null. False without a block, on an interruption or when the connection fails, and
     * with a timeout() of 0 when a block does not leave at once.
     */
    bool sendLinkTest(int seconds, char *block, const LinkTestPhase *first, LinkTestPhase *phase);
    /*!
     * Takes blocks into \a block until the end word; \a seconds is how long they are expected.
     * False also when no block comes within timeout(), unless that is negative.
     */
    bool receiveLinkTest(int seconds, char *block, const LinkTestPhase *first,
                         LinkTestPhase *phase);

    //! Registers a prototype in this object's context; takes ownership.
    void registerCommand(SCommand *prototype);
    QList<SCommandId> supportedCommands() const;

private:
    bool waitForLinkTestBlock();
    void reportLinkTest(qint64 bytes, qint64 elapsed, qint64 planned, const LinkTestPhase *first);
    bool isStopOverdue();
    bool listBelow(const QString &folder, QIODevice *peer, QList<QString> *entries);
    bool copyEntries(const QList<QString> &entries, const QString &source, const QString &target,
                     bool keepAliveOnSocket);
    bool copyDevice(QIODevice *target, QIODevice *source, QIODevice *peer);
    bool pump(QIODevice *target, QIODevice *source, QIODevice *peer);
    bool sendKeepAlive(QIODevice *peer);

    std::unique_ptr<BlockingIo> m_io;
    QPointer<STcpSocket> m_socket;
    QPointer<STcpSocketSpeedController> m_speedController;
    unsigned int m_contextId;
    QUuid m_uuid;
    AuthenticationStatus m_authenticationStatus = AuthenticationStatus::NotAuthenticated;
    QString m_currentPath;
    QString m_rootPath;
    QString m_defaultHome;
    bool m_autoSync = false;
    bool m_isJailStrict = false;
};

} // namespace Talverine
