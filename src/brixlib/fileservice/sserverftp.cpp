// SPDX-License-Identifier: MIT
#include <brixlib/fileservice/sserverftp.h>

#include "filetransfer_p.h"
#include "incomingfile_p.h"
#include "listingreply_p.h"
#include <brixlib/fileservice/commands/commandhandlers_p.h>
#include <brixlib/fileservice/commands/filecommands_p.h>

#include <brixlib/fileservice/commands/filefilterflags.h>
#include <brixlib/fileservice/commands/scommandchangedir.h>
#include <brixlib/fileservice/commands/scommandcopydir.h>
#include <brixlib/fileservice/commands/scommandcopyfile.h>
#include <brixlib/fileservice/commands/scommandexists.h>
#include <brixlib/fileservice/commands/scommandfssensitivity.h>
#include <brixlib/fileservice/commands/scommandgetdev.h>
#include <brixlib/fileservice/commands/scommandgetdir.h>
#include <brixlib/fileservice/commands/scommandgetfile.h>
#include <brixlib/fileservice/commands/scommandgetfiles.h>
#include <brixlib/fileservice/commands/scommandlistdir.h>
#include <brixlib/fileservice/commands/scommandmakedir.h>
#include <brixlib/fileservice/commands/scommandpwd.h>
#include <brixlib/fileservice/commands/scommandremovedir.h>
#include <brixlib/fileservice/commands/scommandremovefile.h>
#include <brixlib/fileservice/commands/scommandrenamedir.h>
#include <brixlib/fileservice/commands/scommandrenamefile.h>
#include <brixlib/fileservice/commands/scommandsenddev.h>
#include <brixlib/fileservice/commands/scommandsendfile.h>
#include <brixlib/fileservice/commands/scommandsetpermissions.h>
#include <brixlib/fileservice/commands/scommandstorageinfo.h>
#include <brixlib/fileservice/filereplies.h>
#include <brixlib/foundation/sdatastream.h>
#include <brixlib/protocol/directorywalk_p.h>
#include <brixlib/protocol/socket/stcpsocket.h>
#include <brixlib/protocol/wire.h>

#include <brixrt/sstorageinfo.h>

#include <QtCore/QDirIterator>
#include <QtCore/QElapsedTimer>
#include <QtCore/QFile>
#include <QtCore/QFileInfo>
#include <QtCore/QRegularExpression>
#include <QtCore/QThread>

#include <algorithm>

using namespace Qt::StringLiterals;

namespace Talverine {

namespace {

constexpr QDir::Filters kEveryEntry = QDir::AllEntries | QDir::Hidden | QDir::System;

/*!
 * Patterns for names, as QDirIterator reads them; without any, all names fit. QDirIterator itself
 * would pass in silence over what does not fit, so a long search in vain would neither see a stop
 * nor keep its client alive.
 */
class NamePatterns
{
public:
    explicit NamePatterns(const QList<QString> &wildcards)
        : m_wildcards(wildcards)
    {
        for (const QString &wildcard : wildcards.first(std::min(wildcards.size(), kKeptPatterns)))
            m_kept.append(compiled(wildcard));
    }

    //! False also when \a isWanted() returns false, or the thread is asked to stop: a pattern full
    //! of asterisks takes some 20 ms for one name, and a command has room for a hundred thousand of
    //! them.
    template<typename IsWanted>
    bool fit(const QString &name, const IsWanted &isWanted) const
    {
        if (m_wildcards.isEmpty())
            return true;
        for (qsizetype i = 0; i < m_wildcards.size(); ++i) {
            if (QThread::currentThread()->isInterruptionRequested() || !isWanted())
                return false;
            const QRegularExpression regular = pattern(i);
            // One that cannot be read fits nothing. Qt would warn of it at each name.
            if (regular.isValid() && regular.match(name).hasMatch())
                return true;
        }
        return false;
    }

private:
    // Each takes 2 KiB, half a gigabyte for all that a command has room for.
    static constexpr qsizetype kKeptPatterns = 256;

    static QRegularExpression compiled(const QString &wildcard)
    {
        return QRegularExpression::fromWildcard(wildcard, Qt::CaseInsensitive);
    }

    QRegularExpression pattern(qsizetype i) const
    {
        return i < m_kept.size() ? m_kept.at(i) : compiled(m_wildcards.at(i));
    }

    QList<QString> m_wildcards;
    QList<QRegularExpression> m_kept;
};

} // namespace

SServerFtp::SServerFtp(qint64 socketDescriptor, QObject *parent)
    : SServerBase(socketDescriptor, parent)
{
    for (SCommand *prototype : newFileCommandPrototypes())
        registerCommand(prototype);
    for (ProgressSignal moved :
         {&SServerFtp::getFileTransferredSize, &SServerFtp::sendFileTransferredSize})
        connect(this, moved, this, &SServerFtp::transferredBytes);
}

SServerFtp::~SServerFtp() = default;

bool SServerFtp::executeCommand(SCommand *command)
{
    using Self = SServerFtp;
    static constexpr CommandHandler<Self> kHandlers[] = {
        {CommandIds::kSendFile, runs<&Self::executeCommandSendFile>},
        {CommandIds::kGetFile, runs<&Self::executeCommandGetFile>},
        {CommandIds::kChangeDir, runs<&Self::executeCommandChangeDir>},
        {CommandIds::kMakeDir, runs<&Self::executeCommandMakeDir>},
        {CommandIds::kRemoveDir, runs<&Self::executeCommandRemoveDir>},
        {CommandIds::kListDir, runs<&Self::executeCommandListDir>},
        {CommandIds::kRemoveFile, runs<&Self::executeCommandRemoveFile>},
        {CommandIds::kRenameFile, runs<&Self::executeCommandRenameFile>},
        {CommandIds::kRenameDir, runs<&Self::executeCommandRenameDir>},
        {CommandIds::kCopyFile, runs<&Self::executeCommandCopyFile>},
        {CommandIds::kCopyDir, runs<&Self::executeCommandCopyDir>},
        {CommandIds::kPwd, runs<&Self::executeCommandPwd>},
        {CommandIds::kGetDir, runs<&Self::executeCommandGetDir>},
        {CommandIds::kGetFiles, runs<&Self::executeCommandGetFiles>},
        {CommandIds::kStorageInfo, runs<&Self::executeCommandStorageInfo>},
        {CommandIds::kSendDev, runs<&Self::executeCommandSendDev>},
        {CommandIds::kGetDev, runs<&Self::executeCommandGetDev>},
        {CommandIds::kExists, runs<&Self::executeCommandExists>},
        {CommandIds::kFSSensitivity, runs<&Self::executeCommandFSSensitivity>},
        {CommandIds::kSetPermissions, runs<&Self::executeCommandSetPermissions>},
    };
    for (const auto &handler : kHandlers) {
        if (handler.id == command->id())
            return handler.run(*this, *command);
    }
    return SServerBase::executeCommand(command);
}

QString SServerFtp::toLocal(const QString &networkPath) const
{
    return networkPathToAbsolute(networkPath, rootPath());
}

QString SServerFtp::toNetwork(const QString &localPath) const
{
    return absoluteToNetworkPath(localPath, rootPath());
}

bool SServerFtp::keepsAlive(SCommand &command) const
{
    return connectionCommandVersion(&command) >= Wire::kSinceKeepAlive;
}

// Operations that answer with one byte

bool SServerFtp::writeResult(bool result)
{
    Q_EMIT operationFinished(result);
    const char byte = result ? 1 : 0;
    holdReply();
    return writeAll(socket(), &byte, 1) == 1;
}

// A path outside the jail resolves to nothing, and a local operation takes nothing for the current
// directory: it must not get that far.
template<typename Operation>
bool SServerFtp::replyOn(const QString &path, Operation operation)
{
    const QString local = toLocal(path);
    return writeResult(!local.isEmpty() && operation(local));
}

template<typename Operation>
bool SServerFtp::replyOn(const QString &first, const QString &second, Operation operation)
{
    const QString from = toLocal(first);
    const QString to = toLocal(second);
    return writeResult(!from.isEmpty() && !to.isEmpty() && operation(from, to));
}

bool SServerFtp::executeCommandChangeDir(SCommandChangeDir &command)
{
    const QString path = command.value().isEmpty() ? toNetwork(rootPath()) : command.value();
    return replyOn(path, [this](const QString &local) { return changeDirLocal(local); });
}

bool SServerFtp::executeCommandMakeDir(SCommandMakeDir &command)
{
    return replyOn(command.value(), [this](const QString &local) { return makeDirLocal(local); });
}

bool SServerFtp::executeCommandRemoveDir(SCommandRemoveDir &command)
{
    return replyOn(command.value(),
                   [this](const QString &local) { return removeDirLocal(local, true); });
}

bool SServerFtp::executeCommandRemoveFile(SCommandRemoveFile &command)
{
    return replyOn(command.value(),
                   [this](const QString &local) { return removeFileLocal(local); });
}

bool SServerFtp::executeCommandExists(SCommandExists &command)
{
    return replyOn(command.value(), [this](const QString &local) { return existsLocal(local); });
}

bool SServerFtp::executeCommandSetPermissions(SCommandSetPermissions &command)
{
    return replyOn(command.fileName(), [this, &command](const QString &local) {
        return changePermissionsLocal(local, command.permissions());
    });
}

bool SServerFtp::executeCommandRenameFile(SCommandRenameFile &command)
{
    return replyOn(
        command.first(), command.second(),
        [this](const QString &from, const QString &to) { return renameFileLocal(from, to); });
}

bool SServerFtp::executeCommandRenameDir(SCommandRenameDir &command)
{
    return replyOn(
        command.first(), command.second(),
        [this](const QString &from, const QString &to) { return renameDirLocal(from, to); });
}

bool SServerFtp::executeCommandCopyFile(SCommandCopyFile &command)
{
    return replyOn(command.first(), command.second(),
                   [this, keep = keepsAlive(command)](const QString &from, const QString &to) {
                       return copyFileLocal(from, to, keep);
                   });
}

bool SServerFtp::executeCommandCopyDir(SCommandCopyDir &command)
{
    return replyOn(command.first(), command.second(),
                   [this, keep = keepsAlive(command)](const QString &from, const QString &to) {
                       return copyDirLocal(from, to, keep);
                   });
}

// Transfers

FileTransfer SServerFtp::transfer(ProgressSignal moved)
{
    return FileTransfer(socket(), timeout(), [this, moved](qint64 done, qint64 size) {
        Q_EMIT(this->*moved)(done, size);
    });
}

bool SServerFtp::executeCommandGetFile(SCommandGetFile &command)
{
    const QString path = toLocal(command.fileName());
    if (path.isEmpty())
        return false;
    QFile file(path);
    if (!openForReading(&file))
        return false;
    Q_EMIT getFileStarted(path);

    const qint64 size = file.size();
    holdReply();
    // A failure shows again at the next write.
    writeWord64(socket(), static_cast<quint64>(size));
    if (!transfer(&SServerFtp::getFileTransferredSize).send(&file, size))
        return false;

    if (command.removeFile())
        QFile::remove(path);
    Q_EMIT getFileTransferredSize(size, size);
    Q_EMIT getFileFinished(path, command.removeFile());
    return true;
}

bool SServerFtp::executeCommandSendFile(SCommandSendFile &command)
{
    const QString path = toLocal(command.targetFileName());
    if (path.isEmpty())
        return false;
    const QFileInfo target(path);
    if (!makeDirLocal(target.path()))
        return false;

    IncomingFile file(u"%1/%2"_s.arg(target.path(), target.fileName()));
    if (!file.open(isSyncRequired(file.name())))
        return false;
    Q_EMIT sendFileStarted(file.name());

    qint64 size = command.fileSize();
    if (connectionCommandVersion(&command) >= Wire::kSinceRawSize) {
        quint64 word = 0;
        if (!readWord64(socket(), &word))
            return false;
        size = static_cast<qint64>(word);
    }
    if (!transfer(&SServerFtp::sendFileTransferredSize).receive(file.device(), size) ||
        !file.finish())
        return false;

    Q_EMIT sendFileTransferredSize(size, size);
    Q_EMIT sendFileFinished(file.name());
    return true;
}

// The client's device is a file here, and its size always goes before the bytes.

bool SServerFtp::executeCommandGetDev(SCommandGetDev &command)
{
    SCommandGetFile getFile;
    // Without the size, for which it would look at the name outside the jail.
    getFile.setFileName(command.fileName(), false);
    return executeCommandGetFile(getFile);
}

bool SServerFtp::executeCommandSendDev(SCommandSendDev &command)
{
    SCommandSendFile sendFile(QString(), command.fileName(), false);
    return executeCommandSendFile(sendFile);
}

// Lists and facts

bool SServerFtp::executeCommandPwd(SCommandPwd &)
{
    QByteArray body;
    SDataStream stream(&body, QIODevice::WriteOnly);
    stream << toNetwork(currentPath());
    return writeFrame(socket(), body);
}

// Whether the client is still there, which is looked at every 100 ms.
bool SServerFtp::isStillWanted(QElapsedTimer *sinceLook) const
{
    if (!sinceLook->hasExpired(Wire::kKeepAliveIntervalMs))
        return true;
    sinceLook->start();
    return !isPeerGone();
}

ListingReply SServerFtp::listingReply()
{
    return ListingReply([this](qint64 bytes) { return holdListing(bytes); });
}

bool SServerFtp::executeCommandListDir(SCommandListDir &command)
{
    const QString folder = toLocal(command.value());
    ListingReply reply = listingReply();
    reply.beginList();
    QElapsedTimer sinceLook;
    sinceLook.start();
    bool isEmpty = true;
    const auto add = [&](const SFileEntry &entry) {
        isEmpty = isEmpty && entry.fileName() == u".."_s;
        return isStillWanted(&sinceLook) &&
               reply.add([&](QDataStream &stream) { Replies::writeEntry(stream, entry); });
    };
    if (!folder.isEmpty() && !visitDirLocal(folder, {}, add))
        return false;
    if (m_strictListings && isEmpty && isUnreadDirectory(folder))
        return false;
    return writeFrame(socket(), reply.take());
}

bool SServerFtp::executeCommandGetFiles(SCommandGetFiles &command)
{
    const QString root = toLocal(command.path());
    if (root.isEmpty())
        return false;
    const bool recursive = hasFlag(command.flags(), FileFilterFlags::Recursive);
    const bool keep = keepsAlive(command);
    const NamePatterns patterns(filterPatterns(command.filters()));

    ListingReply reply = listingReply();
    reply.stream() << toNetwork(root);
    reply.beginList();
    QElapsedTimer sinceKeepAlive;
    QElapsedTimer sinceLook;
    sinceKeepAlive.start();
    sinceLook.start();
    const auto isWanted = [&] { return isStillWanted(&sinceLook); };
    const auto depth = recursive ? QDirIterator::Subdirectories : QDirIterator::NoIteratorFlags;
    DirectoryWalk walk(root, depth);
    QDirIterator it(root, kEveryEntry, depth);
    while (it.hasNext()) {
        if (isInterruptionRequested() || !isWanted())
            return false;
        const QString entry = it.next();
        walk.add(it.fileInfo());
        if (patterns.fit(it.fileName(), isWanted) && it.fileInfo().isFile() &&
            !leadsOutside(entry) &&
            !reply.add([&](QDataStream &stream) { stream << toNetwork(entry); }))
            return false;
        if (keep && sinceKeepAlive.hasExpired(Wire::kKeepAliveIntervalMs)) {
            sinceKeepAlive.start();
            if (!writeWord(socket(), Wire::kKeepAliveWord))
                return false;
        }
    }
    if (m_strictListings && walk.hasUnread())
        return false;
    return writeFrame(socket(), reply.take());
}

// The form for old clients, which expect each name as it is told here: the current directory is cut
// out of the path wherever it stands in it.
bool SServerFtp::executeCommandGetDir(SCommandGetDir &command)
{
    const QString root = toLocal(command.fileName());
    if (root.isEmpty())
        return false;
    const QString current = absoluteChildPath(QString(), rootPath());

    ListingReply reply = listingReply();
    reply.beginList();
    QElapsedTimer sinceLook;
    sinceLook.start();
    DirectoryWalk walk(root, QDirIterator::Subdirectories);
    QDirIterator it(root, kEveryEntry, QDirIterator::Subdirectories);
    while (it.hasNext()) {
        if (isInterruptionRequested() || !isStillWanted(&sinceLook))
            return false;
        QString entry = it.next();
        walk.add(it.fileInfo());
        if (leadsOutside(entry))
            continue;
        entry.remove(current);
        while (entry.startsWith(u'/'))
            entry.remove(0, 1);
        if (it.fileInfo().isFile() &&
            !reply.add([&](QDataStream &stream) { stream << toNetwork(entry); }))
            return false;
    }
    if (m_strictListings && walk.hasUnread())
        return false;
    return writeFrame(socket(), reply.take());
}

bool SServerFtp::executeCommandFSSensitivity(SCommandFSSensitivity &)
{
    const SStorageInfo storage(rootPath());
    Q_EMIT fileSystemSensitivityCheck();
    return writeWord(socket(), static_cast<quint32>(storage.sensitivity()));
}

bool SServerFtp::executeCommandStorageInfo(SCommandStorageInfo &command)
{
    const QStorageInfo storage = storageInfoLocal();
    QByteArray words;
    SDataStream stream(&words, QIODevice::WriteOnly);
    stream << storage.bytesAvailable() << storage.bytesTotal();
    if (connectionCommandVersion(&command) >= Wire::kSinceStorageDetails) {
        const QByteArray type = storage.fileSystemType();
        stream << storage.bytesFree();
        stream.writeBytes(type.constData(), static_cast<uint>(type.size()));
    }
    return writeAll(socket(), words) == words.size();
}

} // namespace Talverine

#include "moc_sserverftp.cpp"
