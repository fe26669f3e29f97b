// SPDX-License-Identifier: MIT
#pragma once

#include "session.h"

#include <brixlib/devices/sbuffereddevice.h>
#include <brixlib/fileservice/device/sclientdevice.h>

namespace Brix {

/*!
 * A file on a server, read or written from one end to the other on a connection of its own. All
 * calls block; they throw Failure. What was written is there only after finish().
 *
 * Thread: lives in the thread that makes it.
 */
class RemoteFile final
{
public:
    //! Thrown when the server refuses what was asked of the file itself.
    struct Refusal : Failure
    {
    };

    //! Thrown when the connection ends while the file is opened: the server does not know the
    //! command, or the connection broke.
    struct NotOpened : Failure
    {
    };

    //! Connects, logs in and opens \a path, which failures call \a name.
    RemoteFile(const Login &login, const QString &path, const QString &name,
               QIODevice::OpenMode mode);

    //! Never negative.
    qint64 size() const;
    void seek(qint64 position);
    //! At most \a size bytes; 0 at the end.
    qint64 read(char *data, qint64 size);
    void write(const char *data, qint64 size);
    //! Sends what is still here, looks whether the server has stored all of it, and closes.
    void finish();

private:
    [[noreturn]] void fail(const QString &refusal) const;

    const Login m_login;
    const QString m_name;
    Talverine::SClientDevice m_device;
    Talverine::SBufferedDevice m_buffered;
    qint64 m_written = 0;
};

} // namespace Brix
