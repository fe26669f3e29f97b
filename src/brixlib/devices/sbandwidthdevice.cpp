// SPDX-License-Identifier: MIT
#include <brixlib/devices/sbandwidthdevice.h>

#include <brixlib/foundation/saturated_p.h>
#include <brixlib/foundation/underlyingdevice_p.h>

#include <brixrt/requestsize_p.h>

#include <QtCore/QThread>

namespace Talverine {

namespace {

// The bytes of a request of `size` that may go, after a wait for half of it: large requests go in
// two or more pieces, and the flow is smooth. The limit is asked once: a millisecond later it may
// say 0.
qint64 waitForHalf(const SBandwidthLimiter &limiter, qint64 size)
{
    const qint64 need = qMax(size / 2, qint64(1));
    for (;;) {
        const qint64 allowed = limiter.transferableBytes();
        if (allowed >= need)
            return qMin(size, allowed);
        QThread::msleep(1);
    }
}

} // namespace

SBandwidthDevice::SBandwidthDevice(QIODevice *device, QObject *parent)
    : SBandwidthDevice(device, false, parent)
{
}

SBandwidthDevice::SBandwidthDevice(QIODevice *device, bool leaveOpen, QObject *parent)
    : QIODevice(parent)
    , m_leaveOpen(leaveOpen)
    , m_device(device)
{
    followDevice(device, this, &SBandwidthDevice::underlyingDeviceAboutToClose,
                 &SBandwidthDevice::underlyingDeviceDestroyed);
}

SBandwidthDevice::~SBandwidthDevice()
{
    SBandwidthDevice::close();
}

qint64 SBandwidthDevice::readBandwidth() const
{
    return m_readLimiter.bandwidth();
}

void SBandwidthDevice::setReadBandwidth(qint64 bytesPerSecond)
{
    m_readLimiter.setBandwidth(bytesPerSecond);
}

qint64 SBandwidthDevice::writeBandwidth() const
{
    return m_writeLimiter.bandwidth();
}

void SBandwidthDevice::setWriteBandwidth(qint64 bytesPerSecond)
{
    m_writeLimiter.setBandwidth(bytesPerSecond);
}

bool SBandwidthDevice::open(OpenMode mode)
{
    if (!m_device || !openOrShareUnderlyingDevice(m_device, mode))
        return false;
    QIODevice::open(completedMode(mode) | Unbuffered);
    // A device that was open already, or that appends, does not stand at its start.
    return isSequential() || QIODevice::seek(m_device->pos());
}

void SBandwidthDevice::close()
{
    if (!isOpen())
        return;
    QIODevice::close();
    if (m_device && !m_leaveOpen)
        m_device->close();
}

bool SBandwidthDevice::seek(qint64 pos)
{
    return m_device && QIODevice::seek(pos) && m_device->seek(pos);
}

bool SBandwidthDevice::isSequential() const
{
    return m_device && m_device->isSequential();
}

qint64 SBandwidthDevice::size() const
{
    return m_device ? m_device->size() : 0;
}

qint64 SBandwidthDevice::bytesAvailable() const
{
    return Saturated::sum(QIODevice::bytesAvailable(), m_device ? m_device->bytesAvailable() : 0);
}

qint64 SBandwidthDevice::bytesToWrite() const
{
    return QIODevice::bytesToWrite() + (m_device ? m_device->bytesToWrite() : 0);
}

bool SBandwidthDevice::canReadLine() const
{
    return (m_device && m_device->canReadLine()) || QIODevice::canReadLine();
}

qint64 SBandwidthDevice::readData(char *data, qint64 maxSize)
{
    if (maxSize == 0)
        return 0;
    if (!m_device)
        return -1;
    const qint64 count =
        m_device->read(data, waitForHalf(m_readLimiter, readRequestSize(m_device, maxSize)));
    if (count > 0)
        m_readLimiter.transferred(count);
    else if (count < 0)
        setErrorString(failureReason(m_device));
    return count;
}

qint64 SBandwidthDevice::writeData(const char *data, qint64 size)
{
    if (size == 0)
        return 0;
    if (!m_device)
        return -1;
    const qint64 count =
        m_device->write(data, waitForHalf(m_writeLimiter, writeRequestSize(m_device, size)));
    if (count > 0)
        m_writeLimiter.transferred(count);
    else if (count < 0)
        setErrorString(failureReason(m_device));
    return count;
}

bool SBandwidthDevice::flush()
{
    return flushUnderlyingFile(m_device);
}

void SBandwidthDevice::underlyingDeviceAboutToClose()
{
    QIODevice::close();
    // QFile flushes before aboutToClose(), and discards what slots of that signal write.
    flush();
}

void SBandwidthDevice::underlyingDeviceDestroyed()
{
    m_device = nullptr;
}

} // namespace Talverine

#include "moc_sbandwidthdevice.cpp"
