// SPDX-License-Identifier: MIT
#include <shared/faultdevice.h>

#include <algorithm>

using namespace Qt::StringLiterals;

FaultDevice::FaultDevice(QIODevice *device, const DevicePlan &plan, QObject *parent)
    : QIODevice(parent)
    , m_device(device)
    , m_plan(plan)
    , m_read{plan.read}
    , m_write{plan.write}
{
    connect(device, &QIODevice::readyRead, this, &QIODevice::readyRead);
    connect(device, &QIODevice::bytesWritten, this, &QIODevice::bytesWritten);
}

FaultDevice::~FaultDevice()
{
    if (isOpen())
        FaultDevice::close();
}

bool FaultDevice::isSequential() const
{
    return m_device && m_device->isSequential();
}

bool FaultDevice::open(OpenMode mode)
{
    if (m_plan.failsToOpen || !m_device) {
        setErrorString(u"Permission denied"_s);
        return false;
    }
    m_opened = !m_device->isOpen();
    if (m_opened && !m_device->open(mode)) {
        setErrorString(m_device->errorString());
        return false;
    }
    m_closeFailed = false;
    // Without a buffer of this device's own each call comes through as it is made.
    return QIODevice::open(mode | Unbuffered) &&
           (isSequential() || QIODevice::seek(m_device->pos()));
}

void FaultDevice::close()
{
    if (!isOpen())
        return;
    QIODevice::close();
    m_heldBack.clear();
    m_closeFailed = m_plan.lostOnClose >= 0;
    if (m_closeFailed)
        setErrorString(u"Input/output error"_s);
    if (m_opened && m_device)
        m_device->close();
}

qint64 FaultDevice::size() const
{
    return m_device ? std::max(m_device->size(), m_device->pos() + m_heldBack.size()) : 0;
}

bool FaultDevice::seek(qint64 position)
{
    return m_device && passOn(0) && QIODevice::seek(position) && m_device->seek(position);
}

bool FaultDevice::atEnd() const
{
    return !m_device || m_device->atEnd();
}

qint64 FaultDevice::bytesAvailable() const
{
    return m_device ? m_device->bytesAvailable() : 0;
}

qint64 FaultDevice::bytesToWrite() const
{
    return m_device ? m_device->bytesToWrite() : 0;
}

bool FaultDevice::waitForReadyRead(int msec)
{
    return m_device && m_device->waitForReadyRead(msec);
}

bool FaultDevice::waitForBytesWritten(int msec)
{
    return m_device && m_device->waitForBytesWritten(msec);
}

// Stalls if it is time to, and cuts \a size to what the plan lets through; false for an error.
bool FaultDevice::begin(Channel *channel, qint64 *size)
{
    const ChannelPlan &plan = channel->plan;
    if (channel->done == plan.stallAt && !channel->hasStalled) {
        channel->hasStalled = true;
        m_gate.hold(m_plan.stallTime);
    }
    if (plan.pieceBytes > 0)
        *size = std::min(*size, plan.pieceBytes);
    for (const qint64 mark : {plan.stallAt, plan.errorAt}) {
        if (mark > channel->done)
            *size = std::min(*size, mark - channel->done);
    }
    if (!m_device || (plan.errorAt >= 0 && channel->done >= plan.errorAt)) {
        setErrorString(u"Input/output error"_s);
        return false;
    }
    return true;
}

qint64 FaultDevice::readData(char *data, qint64 size)
{
    if (!begin(&m_read, &size))
        return -1;
    const qint64 count = m_device->read(data, size);
    if (count < 0)
        setErrorString(m_device->errorString());
    else
        m_read.done += count;
    return count;
}

qint64 FaultDevice::writeData(const char *data, qint64 size)
{
    if (!begin(&m_write, &size))
        return -1;
    if (m_plan.capacity >= 0) {
        const qint64 room = m_plan.capacity - m_write.done;
        if (room < 1 && size > 0) {
            setErrorString(u"No space left on device"_s);
            return -1;
        }
        size = std::min(size, room);
    }
    const qint64 count = m_plan.lostOnClose < 0 ? m_device->write(data, size) : hold(data, size);
    if (count < 0)
        setErrorString(m_device->errorString());
    else
        m_write.done += count;
    return count;
}

qint64 FaultDevice::hold(const char *data, qint64 size)
{
    m_heldBack.append(data, size);
    return passOn(m_plan.lostOnClose) ? size : -1;
}

// Gives the other device all that is held back but the last \a keep bytes.
bool FaultDevice::passOn(qint64 keep)
{
    const qint64 size = m_heldBack.size() - keep;
    if (size < 1)
        return true;
    const bool passed = m_device->write(m_heldBack.constData(), size) == size;
    m_heldBack.remove(0, size);
    return passed;
}

#include "moc_faultdevice.cpp"
