// SPDX-License-Identifier: MIT
#include <brixlib/fileservice/sclientftprequester.h>

#include <brixlib/fileservice/sclientftp.h>

#include <QtCore/QIODevice>

namespace Talverine {

SClientFtpRequester::SClientFtpRequester(SClientFtp *worker, QObject *parent)
    : SClientBaseRequester(worker, parent)
{
}

SClientFtpRequester::~SClientFtpRequester() = default;

void SClientFtpRequester::changeDir(const QString &remote)
{
    post("changeDir", Q_ARG(QString, remote));
}

void SClientFtpRequester::homeDir()
{
    post("homeDir");
}

void SClientFtpRequester::pwd()
{
    post("pwd");
}

void SClientFtpRequester::listDir(const QString &remote)
{
    post("listDir", Q_ARG(QString, remote));
}

void SClientFtpRequester::makeDir(const QString &remote)
{
    post("makeDir", Q_ARG(QString, remote));
}

void SClientFtpRequester::removeDir(const QString &remote)
{
    post("removeDir", Q_ARG(QString, remote));
}

void SClientFtpRequester::removeFile(const QString &remote)
{
    post("removeFile", Q_ARG(QString, remote));
}

void SClientFtpRequester::exists(const QString &remote)
{
    post("exists", Q_ARG(QString, remote));
}

void SClientFtpRequester::renameDir(const QString &from, const QString &to)
{
    post("renameDir", Q_ARG(QString, from), Q_ARG(QString, to));
}

void SClientFtpRequester::renameFile(const QString &from, const QString &to)
{
    post("renameFile", Q_ARG(QString, from), Q_ARG(QString, to));
}

void SClientFtpRequester::copyDir(const QString &from, const QString &to)
{
    post("copyDir", Q_ARG(QString, from), Q_ARG(QString, to));
}

void SClientFtpRequester::copyFile(const QString &from, const QString &to)
{
    post("copyFile", Q_ARG(QString, from), Q_ARG(QString, to));
}

void SClientFtpRequester::setFilePermissions(const QString &remote, const FileEntryFlags &flags)
{
    post("setFilePermissions", Q_ARG(QString, remote), Q_ARG(FileEntryFlags, flags));
}

void SClientFtpRequester::storageInfo()
{
    post("storageInfo");
}

void SClientFtpRequester::fileSystemSensitivity()
{
    post("fileSystemSensitivity");
}

void SClientFtpRequester::getFile(const QString &remote, const QString &local, bool removeSource)
{
    post("getFile", Q_ARG(QString, remote), Q_ARG(QString, local), Q_ARG(bool, removeSource));
}

void SClientFtpRequester::getFiles(const QString &remote, const QString &filters,
                                   const QString &local, bool recursive)
{
    post("getFiles", Q_ARG(QString, remote), Q_ARG(QString, filters), Q_ARG(QString, local),
         Q_ARG(bool, recursive));
}

void SClientFtpRequester::getDir(const QString &remote, const QString &local, bool removeSource)
{
    post("getDir", Q_ARG(QString, remote), Q_ARG(QString, local), Q_ARG(bool, removeSource));
}

void SClientFtpRequester::getDevice(const QString &remote, QIODevice *device)
{
    post("getDevice", Q_ARG(QString, remote), Q_ARG(QIODevice *, device));
}

void SClientFtpRequester::sendFile(const QString &local, const QString &remote, bool removeSource)
{
    post("sendFile", Q_ARG(QString, local), Q_ARG(QString, remote), Q_ARG(bool, removeSource));
}

void SClientFtpRequester::sendFiles(const QString &local, const QString &filters,
                                    const QString &remote, bool recursive)
{
    post("sendFiles", Q_ARG(QString, local), Q_ARG(QString, filters), Q_ARG(QString, remote),
         Q_ARG(bool, recursive));
}

void SClientFtpRequester::sendDir(const QString &local, const QString &remote, bool removeSource)
{
    post("sendDir", Q_ARG(QString, local), Q_ARG(QString, remote), Q_ARG(bool, removeSource));
}

void SClientFtpRequester::sendDevice(QIODevice *device, const QString &remote)
{
    post("sendDevice", Q_ARG(QIODevice *, device), Q_ARG(QString, remote));
}

} // namespace Talverine

#include "moc_sclientftprequester.cpp"
