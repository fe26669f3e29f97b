// SPDX-License-Identifier: MIT
#pragma once

#include <brixlib/brixlib_export.h>
#include <brixlib/foundation/fileentryflags.h>
#include <brixlib/protocol/client/sclientbaserequester.h>

class QIODevice;

namespace Talverine {

class SClientFtp;

/*!
 * Calls the operations of an SClientFtp from any thread. None waits: each is queued to the worker's
 * thread, or carried out at once when called there. A call whose worker is gone does nothing, and
 * one that the worker does not know emits invokeError().
 *
 * Thread: lives in one thread.
 */
class BRIXLIB_EXPORT SClientFtpRequester : public SClientBaseRequester
{
    Q_OBJECT

public:
    explicit SClientFtpRequester(SClientFtp *worker, QObject *parent = nullptr);
    ~SClientFtpRequester() override;

    // Each as in SClientFtp.

    void changeDir(const QString &remote);
    void homeDir();
    void pwd();
    void listDir(const QString &remote);
    void makeDir(const QString &remote);
    void removeDir(const QString &remote);
    void removeFile(const QString &remote);
    void exists(const QString &remote);
    void renameDir(const QString &from, const QString &to);
    void renameFile(const QString &from, const QString &to);
    void copyDir(const QString &from, const QString &to);
    void copyFile(const QString &from, const QString &to);
    void setFilePermissions(const QString &remote, const FileEntryFlags &flags);
    void storageInfo();
    void fileSystemSensitivity();

    void getFile(const QString &remote, const QString &local, bool removeSource);
    void getFiles(const QString &remote, const QString &filters, const QString &local,
                  bool recursive);
    void getDir(const QString &remote, const QString &local, bool removeSource);
    void getDevice(const QString &remote, QIODevice *device);

    void sendFile(const QString &local, const QString &remote, bool removeSource);
    void sendFiles(const QString &local, const QString &filters, const QString &remote,
                   bool recursive);
    void sendDir(const QString &local, const QString &remote, bool removeSource);
    void sendDevice(QIODevice *device, const QString &remote);
};

} // namespace Talverine
