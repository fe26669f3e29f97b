// SPDX-License-Identifier: MIT
#include "remotefile.h"

#include "connectionfailure.h"
#include <process/interruption.h>

namespace Brix {

using namespace Qt::StringLiterals;
using namespace Talverine;
using Error = SClientDevice::Error;

RemoteFile::RemoteFile(const Login &login, const QString &path, const QString &name,
                       QIODevice::OpenMode mode)
    : m_login(login)
    , m_name(name)
    , m_device(login.url.host, path, login.url.port, login.url.user, login.password)
    , m_buffered(&m_device, SBufferedDevice::networkFSBufferSize())
{
    m_device.setTimeout(int(login.timeout.count()));
    if (!m_device.open(mode)) {
        if (m_device.error() == Error::Connection && !login.interruption.isRequested())
            throw NotOpened{ConnectionFailure::broken(login.url)};
        fail(mode.testFlag(QIODevice::ReadOnly)
                 ? u"the server has no file %1, or does not let it be read"_s
                 : u"the server does not let %1 be written"_s);
    }
    if (!m_buffered.open(mode))
        fail({});
}

qint64 RemoteFile::size() const
{
    const qint64 bytes = m_device.size();
    if (bytes < 0)
        fail(u"the server does not tell the size of %1"_s);
    return bytes;
}

void RemoteFile::seek(qint64 position)
{
    if (!m_buffered.seek(position))
        fail(u"the server cannot begin elsewhere in %1"_s);
}

qint64 RemoteFile::read(char *data, qint64 size)
{
    const qint64 count = m_buffered.read(data, size);
    // A buffer takes a failure for the end.
    if (count < 0 || (count == 0 && m_device.error() != Error::None))
        fail(u"the server cannot read %1"_s);
    return count;
}

void RemoteFile::write(const char *data, qint64 size)
{
    while (size > 0) {
        const qint64 count = m_buffered.write(data, size);
        if (count < 1)
            fail({});
        m_written += count;
        data += count;
        size -= count;
    }
}

// The server answers no write, but it tells its file's size.
void RemoteFile::finish()
{
    if (!m_buffered.flush() || !m_device.seek(m_written))
        fail(u"the server does not tell what it has stored of %1"_s);
    const qint64 stored = size();
    if (stored != m_written)
        throw Failure{ExitCode::Refused, u"the server stored only %1 of %2: it has no room"_s.arg(
                                             QString::number(stored), QString::number(m_written))};
    bool isConfirmed = false;
    m_device.close(&isConfirmed);
    if (!isConfirmed)
        fail({});
}

// What the server refuses is told by \a refusal, where it can refuse.
void RemoteFile::fail(const QString &refusal) const
{
    if (m_login.interruption.isRequested())
        throw m_login.interruption.failure();
    switch (m_device.error()) {
    case Error::NoConnection:
        throw ConnectionFailure::noConnection(m_login.url, m_login.timeout);
    case Error::Login:
        throw ConnectionFailure::loginRefused(m_login.url);
    case Error::File:
        throw Refusal{{ExitCode::Refused, refusal.arg(m_name)}};
    case Error::None:
    case Error::Connection:
        break;
    }
    throw ConnectionFailure::broken(m_login.url);
}

} // namespace Brix
