// SPDX-License-Identifier: MIT
#include <brixlib/fileservice/sclientftp.h>

#include "filetransfer_p.h"
#include "incomingfile_p.h"
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
#include <brixlib/protocol/replies.h>
#include <brixlib/protocol/socket/socketcork_p.h>
#include <brixlib/protocol/socket/stcpsocket.h>
#include <brixlib/protocol/wire.h>

#include <brixrt/sstorageinfo.h>

#include <QtCore/QDebug>
#include <QtCore/QDir>
#include <QtCore/QDirIterator>
#include <QtCore/QFile>
#include <QtCore/QFileInfo>
#include <QtCore/QIODevice>
#include <QtCore/QtEndian>

#include <optional>

using namespace Qt::StringLiterals;

namespace Talverine {

namespace {

FileFilterFlags recursion(bool recursive)
{
    return recursive ? FileFilterFlags::Recursive : FileFilterFlags::None;
}

} // namespace

SClientFtp::SClientFtp(const QHostAddress &address, unsigned short port, QObject *parent)
    : SClientBase(address, port, parent)
{
    initClientFtp();
}

SClientFtp::SClientFtp(const QString &host, unsigned short port, bool preferIPv4, QObject *parent)
    : SClientBase(host, port, preferIPv4, parent)
{
    initClientFtp();
}

SClientFtp::~SClientFtp() = default;

void SClientFtp::initClientFtp()
{
    for (SCommand *prototype : newFileCommandPrototypes())
        registerCommand(prototype);
    for (ProgressSignal moved :
         {&SClientFtp::getFileTransferredSize, &SClientFtp::sendFileTransferredSize,
          &SClientFtp::getDeviceTransferredSize, &SClientFtp::sendDeviceTransferredSize})
        connect(this, moved, this, &SClientFtp::transferredBytes);
    connect(this, &SClientFtp::commandQueueEmpty, this, &SClientFtp::executeDelayedLocalOperations);
}

// Operations

void SClientFtp::changeDir(const QString &remote)
{
    enqueueCommand(new SCommandChangeDir(remote));
}

void SClientFtp::homeDir()
{
    changeDir(u""_s);
}

void SClientFtp::pwd()
{
    enqueueCommand(new SCommandPwd);
}

void SClientFtp::listDir(const QString &remote)
{
    enqueueCommand(new SCommandListDir(remote));
}

void SClientFtp::makeDir(const QString &remote)
{
    enqueueCommand(new SCommandMakeDir(remote));
}

void SClientFtp::removeDir(const QString &remote)
{
    enqueueCommand(new SCommandRemoveDir(remote));
}

void SClientFtp::removeFile(const QString &remote)
{
    enqueueCommand(new SCommandRemoveFile(remote));
}

void SClientFtp::exists(const QString &remote)
{
    enqueueCommand(new SCommandExists(remote));
}

void SClientFtp::renameDir(const QString &from, const QString &to)
{
    enqueueCommand(new SCommandRenameDir(from, to));
}

void SClientFtp::renameFile(const QString &from, const QString &to)
{
    enqueueCommand(new SCommandRenameFile(from, to));
}

void SClientFtp::copyDir(const QString &from, const QString &to)
{
    enqueueCommand(new SCommandCopyDir(from, to));
}

void SClientFtp::copyFile(const QString &from, const QString &to)
{
    enqueueCommand(new SCommandCopyFile(from, to));
}

void SClientFtp::setFilePermissions(const QString &remote, const FileEntryFlags &flags)
{
    enqueueCommand(new SCommandSetPermissions(remote, flags));
}

void SClientFtp::storageInfo()
{
    enqueueCommand(new SCommandStorageInfo);
}

void SClientFtp::fileSystemSensitivity()
{
    enqueueCommand(new SCommandFSSensitivity);
}

void SClientFtp::getFile(const QString &remote, const QString &local, bool removeSource)
{
    enqueueCommand(new SCommandGetFile(remote, local, removeSource));
}

void SClientFtp::getFile(const QString &remote, bool removeSource)
{
    getFile(remote, QString(), removeSource);
}

void SClientFtp::getFiles(const QString &remote, const QString &filters, const QString &local,
                          bool recursive)
{
    enqueueCommand(new SCommandGetFiles(remote, filters, local, recursion(recursive)));
}

void SClientFtp::getDir(const QString &remote, const QString &local, bool removeSource)
{
    if (!isCommandAvailable(CommandIds::kGetFiles)) {
        if (!local.isEmpty() && local != remote)
            qDebug("SClientFtp::getDir(): Warning: using deprecated command due to server "
                   "limitations. The target path will be ignored.");
        enqueueCommand(new SCommandGetDir(remote, local, removeSource));
        return;
    }

    FileFilterFlags flags = FileFilterFlags::Recursive | FileFilterFlags::DirectoryMode;
    if (removeSource)
        flags |= FileFilterFlags::RemoveAfter;
    const QString target = local.isEmpty() ? QDir(remote).dirName() : local;
    enqueueCommand(new SCommandGetFiles(remote, u""_s, target, flags));
}

void SClientFtp::getDevice(const QString &remote, QIODevice *device)
{
    enqueueCommand(new SCommandGetDev(remote, device));
}

void SClientFtp::sendFile(const QString &local, const QString &remote, bool removeSource)
{
    const QString source = absoluteChildPath(local, rootPath());
    if (!source.isEmpty())
        enqueueCommand(new SCommandSendFile(source, remote, removeSource));
}

void SClientFtp::sendFile(const QString &local, bool removeSource)
{
    sendFile(local, QString(), removeSource);
}

void SClientFtp::sendFiles(const QString &local, const QString &filters, const QString &remote,
                           bool recursive)
{
    const QString directory = absoluteChildPath(local, rootPath());
    if (directory.isEmpty())
        return;
    QDirIterator it(directory, filterPatterns(filters),
                    QDir::AllEntries | QDir::Hidden | QDir::System,
                    recursive ? QDirIterator::Subdirectories : QDirIterator::NoIteratorFlags);
    while (it.hasNext()) {
        const QString file = it.next();
        if (it.fileInfo().isFile())
            sendFile(file, absoluteMovePath(file, directory, remote, QString()), false);
    }
}

void SClientFtp::sendDir(const QString &local, const QString &remote, bool removeSource)
{
    sendFiles(local, QString(), remote.isEmpty() ? QDir(local).dirName() : remote, true);
    if (removeSource)
        removeDirLocalLater(local);
}

void SClientFtp::sendDevice(QIODevice *device, const QString &remote)
{
    enqueueCommand(new SCommandSendDev(remote, device));
}

// Removal of the directories that were sent

void SClientFtp::removeDirLocalLater(const QString &path)
{
    m_localDirsToRemove.append(path);
}

void SClientFtp::executeDelayedLocalOperations()
{
    while (!m_localDirsToRemove.isEmpty())
        removeDirLocal(m_localDirsToRemove.takeFirst(), true);
}

// Reply phases

bool SClientFtp::executeCommand(SCommand *command)
{
    using Self = SClientFtp;
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
    m_localError.clear();
    for (const auto &handler : kHandlers) {
        if (handler.id == command->id())
            return handler.run(*this, *command);
    }
    return SClientBase::executeCommand(command);
}

FileTransfer SClientFtp::transfer(ProgressSignal moved)
{
    return FileTransfer(socket(), timeout(), [this, moved](qint64 done, qint64 size) {
        Q_EMIT(this->*moved)(done, size);
    });
}

bool SClientFtp::failLocally(const QString &reason)
{
    m_localError = reason;
    return false;
}

bool SClientFtp::failSending(const FileTransfer &content)
{
    if (content.isRefused())
        setRefused();
    return failLocally(content.deviceError());
}

bool SClientFtp::executeCommandSendFile(SCommandSendFile &command)
{
    const QString source = absoluteChildPath(command.fileName(), rootPath());
    if (source.isEmpty())
        return false;
    QFile file(source);
    if (!openForReading(&file))
        return failLocally(file.error() == QFileDevice::NoError ? u"there is no such regular file"_s
                                                                : file.errorString());
    Q_EMIT sendFileStarted(source);

    // An older server was told the size by the command, when that was made.
    const bool tellsSize = connectionCommandVersion(&command) >= Wire::kSinceRawSize;
    const qint64 size = tellsSize ? file.size() : command.fileSize();
    const SocketCork cork(socket()->socketDescriptor());
    if (tellsSize && !writeWord64(socket(), static_cast<quint64>(size)))
        return false;
    FileTransfer content = transfer(&SClientFtp::sendFileTransferredSize);
    if (!content.send(&file, size))
        return failSending(content);

    file.close();
    if (command.removeFile())
        QFile::remove(source);
    Q_EMIT sendFileTransferredSize(size, size);
    Q_EMIT sendFileFinished(source, command.removeFile());
    return true;
}

bool SClientFtp::executeCommandGetFile(SCommandGetFile &command)
{
    const QString target = absoluteChildPath(command.targetFileName(), rootPath());
    if (target.isEmpty())
        return false;
    if (!makeDirLocal(QFileInfo(target).path()))
        return failLocally(u"the directory cannot be created"_s);

    IncomingFile file(target);
    const bool needsSync = isSyncRequired(file.name());
    if (!file.open(needsSync))
        return failLocally(file.device()->errorString());
    std::optional<SStorageInfo> storage;
    if (needsSync)
        storage.emplace(QFileInfo(file.name()).path()).syncLater();
    Q_EMIT getFileStarted(file.name());

    qint64 total = 0;
    if (!readFileSize(&total))
        return false;
    FileTransfer content = transfer(&SClientFtp::getFileTransferredSize);
    if (!content.receive(file.device(), total))
        return failLocally(content.deviceError());
    if (!file.finish())
        return failLocally(u"the file cannot be put in its place"_s);

    Q_EMIT getFileTransferredSize(total, total);
    Q_EMIT getFileFinished(file.name());
    return true;
}

// A server that cannot read its file sends no size, but the last word of a failed exchange, and
// closes the connection.
bool SClientFtp::readSize(qint64 *size)
{
    quint32_be high;
    quint32_be low;
    const auto read = [this](quint32_be *half) {
        return readAll(socket(), reinterpret_cast<char *>(half), sizeof *half) == sizeof *half;
    };
    const bool hasHigh = read(&high);
    if (hasHigh && read(&low)) {
        *size = static_cast<qint64>(quint64(high) << 32 | low);
        return true;
    }
    if (hasHigh && high == Wire::kNackWord)
        setRefused();
    return false;
}

// The file is empty after a refusal, as also when a server falls silent, and the exchange fails in
// its last word. False when the connection was lost instead: the server has not said then that
// there is no such file.
bool SClientFtp::readFileSize(qint64 *size)
{
    if (readSize(size))
        return true;
    *size = 0;
    const bool isSilent =
        socket()->state() == QAbstractSocket::ConnectedState && !isInterruptionRequested();
    return wasRefused() || isSilent;
}

bool SClientFtp::executeCommandSendDev(SCommandSendDev &command)
{
    QIODevice *const device = command.device();
    if (!device)
        return false;
    if (!device->open(QIODevice::ReadOnly))
        return failLocally(device->errorString());
    Q_EMIT sendDeviceStarted(device);

    const qint64 size = device->size();
    if (!writeWord64(socket(), static_cast<quint64>(size)))
        return false;
    FileTransfer content = transfer(&SClientFtp::sendDeviceTransferredSize);
    if (!content.send(device, size))
        return failSending(content);

    device->close();
    Q_EMIT sendDeviceTransferredSize(size, size);
    Q_EMIT sendDeviceFinished(device);
    return true;
}

bool SClientFtp::executeCommandGetDev(SCommandGetDev &command)
{
    QIODevice *const device = command.device();
    if (!device)
        return false;
    if (!device->open(QIODevice::WriteOnly))
        return failLocally(device->errorString());
    Q_EMIT getDeviceStarted(device);

    qint64 size = 0;
    if (!readSize(&size))
        return false;
    FileTransfer content = transfer(&SClientFtp::getDeviceTransferredSize);
    if (!content.receive(device, size))
        return failLocally(content.deviceError());

    device->close();
    Q_EMIT getDeviceTransferredSize(size, size);
    Q_EMIT getDeviceFinished(device);
    return true;
}

bool SClientFtp::readResult(ResultSignal result)
{
    char byte = 0;
    const bool arrived = readAll(socket(), &byte, 1) == 1;
    Q_EMIT(this->*result)(arrived && byte != 0);
    return arrived;
}

bool SClientFtp::readResultOfCopy(SCommand &command, ResultSignal result)
{
    if (connectionCommandVersion(&command) >= Wire::kSinceKeepAlive)
        keepAliveLoop(socket());
    return readResult(result);
}

bool SClientFtp::executeCommandChangeDir(SCommandChangeDir &)
{
    return readResult(&SClientFtp::changeDirResult);
}

bool SClientFtp::executeCommandMakeDir(SCommandMakeDir &)
{
    return readResult(&SClientFtp::makeDirResult);
}

bool SClientFtp::executeCommandRemoveDir(SCommandRemoveDir &)
{
    return readResult(&SClientFtp::removeDirResult);
}

bool SClientFtp::executeCommandRemoveFile(SCommandRemoveFile &)
{
    return readResult(&SClientFtp::removeFileResult);
}

bool SClientFtp::executeCommandRenameFile(SCommandRenameFile &)
{
    return readResult(&SClientFtp::renameFileResult);
}

bool SClientFtp::executeCommandRenameDir(SCommandRenameDir &)
{
    return readResult(&SClientFtp::renameDirResult);
}

bool SClientFtp::executeCommandExists(SCommandExists &)
{
    return readResult(qOverload<bool>(&SClientFtp::exists));
}

bool SClientFtp::executeCommandSetPermissions(SCommandSetPermissions &)
{
    return readResult(&SClientFtp::setSetFilePermissionsResult);
}

bool SClientFtp::executeCommandCopyFile(SCommandCopyFile &command)
{
    return readResultOfCopy(command, &SClientFtp::copyFileResult);
}

bool SClientFtp::executeCommandCopyDir(SCommandCopyDir &command)
{
    return readResultOfCopy(command, &SClientFtp::copyDirResult);
}

// Takes the keep-alive words of a busy server away and leaves what comes behind them. Words without
// an end do not hold a stop up, since reading fails then.
void SClientFtp::keepAliveLoop(QIODevice *device)
{
    static const QByteArray kWord = QByteArray::fromHex("50A050A0");
    const auto isBeginning = [](const QByteArray &head) {
        return !head.isEmpty() && head.size() < kWord.size() && kWord.startsWith(head);
    };
    while (device) {
        if (device->bytesAvailable() == 0 && !waitFor(device, &QIODevice::waitForReadyRead))
            return;
        // A word may arrive in two parts. What was cut off is taken as well, as it must not be read
        // as a result; but a single byte at the end of the connection can be a result.
        QByteArray head = device->peek(kWord.size());
        while (isBeginning(head) && waitFor(device, &QIODevice::waitForReadyRead))
            head = device->peek(kWord.size());
        if (head != kWord && !isBeginning(head))
            return;
        if (head.size() == 1 && socket()->state() != QAbstractSocket::ConnectedState)
            return;
        if (readAll(device, head) != kWord.size())
            return;
    }
}

bool SClientFtp::executeCommandPwd(SCommandPwd &)
{
    QByteArray body;
    if (!readReply(&body))
        return false;
    SDataStream stream(body);
    QString path;
    stream >> path;
    if (stream.status() != QDataStream::Ok)
        return false;
    Q_EMIT pwdResult(path);
    return true;
}

bool SClientFtp::executeCommandListDir(SCommandListDir &)
{
    QByteArray body;
    if (!readReply(&body))
        return false;
    SDataStream stream(body);
    const QList<SFileEntry> entries = Replies::readEntries(stream);
    if (stream.status() != QDataStream::Ok)
        return false;
    Q_EMIT listDirResult(entries);
    return true;
}

bool SClientFtp::executeCommandGetDir(SCommandGetDir &command)
{
    QByteArray body;
    if (!readReply(&body))
        return false;
    SDataStream stream(body);
    const QList<QString> names = Replies::readTexts(stream);
    if (stream.status() != QDataStream::Ok)
        return false;

    enqueueGetFiles(names, command.fileName(), command.targetFileName());
    if (command.removeFile())
        removeDir(command.fileName());
    Q_EMIT getDirResult(true);
    return true;
}

bool SClientFtp::executeCommandGetFiles(SCommandGetFiles &command)
{
    if (connectionCommandVersion(&command) >= Wire::kSinceKeepAlive)
        keepAliveLoop(socket());
    QByteArray body;
    if (!readReply(&body))
        return false;
    SDataStream stream(body);
    QString base;
    stream >> base;
    const QList<QString> names = Replies::readTexts(stream);
    if (stream.status() != QDataStream::Ok)
        return false;

    enqueueGetFiles(names, base, command.targetPath());
    if (hasFlag(command.flags(), FileFilterFlags::RemoveAfter))
        removeDir(command.path());
    if (hasFlag(command.flags(), FileFilterFlags::DirectoryMode))
        Q_EMIT getDirResult(true);
    Q_EMIT getFilesResult(true);
    return true;
}

void SClientFtp::enqueueGetFiles(const QList<QString> &names, const QString &base,
                                 const QString &target)
{
    for (const QString &name : names)
        getFile(name, absoluteMovePath(name, base, target, rootPath()), false);
}

bool SClientFtp::executeCommandFSSensitivity(SCommandFSSensitivity &)
{
    quint32_be value;
    if (readAll(socket(), reinterpret_cast<char *>(&value), sizeof value) != sizeof value)
        return false;
    Q_EMIT fileSystemSensitivity(value == static_cast<quint32>(Qt::CaseSensitive));
    return true;
}

bool SClientFtp::executeCommandStorageInfo(SCommandStorageInfo &command)
{
    quint64 available = 0;
    quint64 total = 0;
    if (!readWord64(socket(), &available) || !readWord64(socket(), &total))
        return false;
    quint64 free = 0;
    QByteArray type;
    if (connectionCommandVersion(&command) >= Wire::kSinceStorageDetails &&
        (!readWord64(socket(), &free) || !readBytes(&type)))
        return false;
    Q_EMIT storageInfoResult(static_cast<qint64>(available), static_cast<qint64>(total),
                             static_cast<qint64>(free), type);
    return true;
}

// A length word and so many bytes, which may be none.
bool SClientFtp::readBytes(QByteArray *bytes)
{
    quint32_be length;
    return readAll(socket(), reinterpret_cast<char *>(&length), sizeof length) == sizeof length &&
           readReplyBody(length, bytes);
}

} // namespace Talverine

#include "moc_sclientftp.cpp"
