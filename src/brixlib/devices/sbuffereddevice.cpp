// SPDX-License-Identifier: MIT
#include <brixlib/devices/sbuffereddevice.h>

#include <brixlib/enums/binaryunit.h>
#include <brixlib/foundation/saturated_p.h>
#include <brixlib/foundation/underlyingdevice_p.h>

#include <brixrt/requestsize_p.h>
#include <brixrt/sunitconvert.h>

#include <QtCore/QSignalBlocker>

namespace Talverine {

namespace {

constexpr int kSmallestFirstSize = 1024;

} // namespace

SBufferedDevice::SBufferedDevice(QIODevice *device, int bufferSize, QObject *parent)
    : QIODevice(parent)
    , m_device(device)
    , m_bufferSize(bufferSize < kSmallestFirstSize ? defaultBufferSize() : bufferSize)
{
    followDevice(device, this, &SBufferedDevice::underlyingDeviceAboutToClose,
                 &SBufferedDevice::underlyingDeviceDestroyed);
}

SBufferedDevice::SBufferedDevice(QIODevice *device, QObject *parent)
    : SBufferedDevice(device, defaultBufferSize(), parent)
{
}

SBufferedDevice::~SBufferedDevice()
{
    SBufferedDevice::close();
}

int SBufferedDevice::defaultBufferSize()
{
    return static_cast<int>(SUnitConvert::toBytes(32, BinaryUnit::KiB));
}

int SBufferedDevice::networkFSBufferSize()
{
    return static_cast<int>(SUnitConvert::toBytes(2, BinaryUnit::MiB));
}

int SBufferedDevice::bufferSize() const
{
    return m_bufferSize;
}

void SBufferedDevice::setBufferSize(int bytes)
{
    flush();
    discart(-1);
    m_bufferSize = qMax(bytes, 0);
    bufferResize();
}

bool SBufferedDevice::open(OpenMode mode)
{
    // What a device that is open already has been given goes out first.
    if (!m_device || !flush() || !openUnderlyingDevice(m_device, mode))
        return false;
    // The device's own mode says what `mode` implies, such as writing when it appends.
    QIODevice::open(m_device->openMode() | Unbuffered);
    bufferResize();
    discart(-1);
    // A device that was open already, or that appends, does not stand at its start.
    return isSequential() || QIODevice::seek(m_device->pos());
}

void SBufferedDevice::close()
{
    if (!isOpen())
        return;
    closeSelf();
    if (m_device)
        m_device->close();
}

bool SBufferedDevice::seek(qint64 pos)
{
    if (!m_device || !QIODevice::seek(pos))
        return false;
    discart(pos - m_bufferPos);
    return flush() && m_device->seek(static_cast<qint64>(m_readBuffer.bytesAvailable()) + pos);
}

bool SBufferedDevice::flush()
{
    if (m_writeBuffer.isEmpty())
        return true;
    if (!m_device || !m_device->isOpen())
        return false;
    bool written = true;
    while (written && !m_writeBuffer.isEmpty())
        written = writeOut();
    // What was not taken is dropped. An empty ring starts at its edge again: it goes out at once.
    m_writeBuffer.clear();
    return written;
}

bool SBufferedDevice::isSequential() const
{
    return m_device && m_device->isSequential();
}

qint64 SBufferedDevice::size() const
{
    if (isSequential())
        return bytesAvailable();
    return m_device ? m_device->size() : 0;
}

bool SBufferedDevice::atEnd() const
{
    return m_readBuffer.isEmpty() && (!m_device || m_device->atEnd()) && QIODevice::atEnd();
}

qint64 SBufferedDevice::bytesAvailable() const
{
    const qint64 there =
        Saturated::sum(QIODevice::bytesAvailable(), m_device ? m_device->bytesAvailable() : 0);
    return Saturated::sum(there, static_cast<qint64>(m_readBuffer.bytesAvailable()));
}

qint64 SBufferedDevice::bytesToWrite() const
{
    return QIODevice::bytesToWrite() + (m_device ? m_device->bytesToWrite() : 0) +
           static_cast<qint64>(m_writeBuffer.bytesAvailable());
}

bool SBufferedDevice::canReadLine() const
{
    return m_readBuffer.contains('\n') || (m_device && m_device->canReadLine()) ||
           QIODevice::canReadLine();
}

qint64 SBufferedDevice::readData(char *data, qint64 maxSize)
{
    if (!m_writeBuffer.isEmpty() && !flush())
        return -1;
    const auto size = static_cast<quint64>(maxSize);
    auto count = static_cast<qint64>(m_readBuffer.read(data, size));
    if (count == 0 && m_readBuffer.isEmpty() && m_device) {
        m_bufferPos = m_device->pos();
        m_readBuffer.clear();
        // What would fill the buffer and leave it at once needs no copy of its own.
        if (const qint64 most = readAheadSize(); maxSize >= most)
            count = qMax<qint64>(m_device->read(data, most), 0);
        else if (readAhead(most))
            count = static_cast<qint64>(m_readBuffer.read(data, size));
    }
    m_bufferPos += count;
    return count;
}

qint64 SBufferedDevice::writeData(const char *data, qint64 size)
{
    if (!m_device)
        return -1;
    m_readBuffer.clear();
    m_bufferPos = 0;
    if (m_writeBuffer.isFull() && !flush())
        return -1;
    return static_cast<qint64>(m_writeBuffer.write(data, static_cast<quint64>(size)));
}

void SBufferedDevice::bufferResize()
{
    const auto bytes = static_cast<quint64>(m_bufferSize);
    // A buffer that can't be had keeps its size.
    static_cast<void>(m_readBuffer.setSize(isReadable() ? bytes : 0));
    static_cast<void>(m_writeBuffer.setSize(isWritable() ? bytes : 0));
}

void SBufferedDevice::discart(qint64 count)
{
    if (count < 0 || count >= static_cast<qint64>(m_readBuffer.size())) {
        m_readBuffer.clear();
        m_bufferPos = 0;
    } else {
        m_bufferPos += static_cast<qint64>(m_readBuffer.discart(static_cast<quint64>(count)));
    }
}

void SBufferedDevice::_setOpenMode(OpenMode mode)
{
    setOpenMode(mode == NotOpen ? mode : mode | Unbuffered);
    bufferResize();
}

// What the device is asked for at once.
qint64 SBufferedDevice::readAheadSize() const
{
    const qint64 most = qMin(static_cast<qint64>(m_readBuffer.size()), qint64(m_bufferSize));
    return readRequestSize(m_device, most);
}

// Fills the empty read buffer from its edge on, in one read; false when nothing came.
bool SBufferedDevice::readAhead(qint64 most)
{
    const qint64 count = m_device->read(m_readBuffer.data(), most);
    if (count <= 0)
        return false;
    const auto size = static_cast<qint64>(m_readBuffer.size());
    m_readBuffer.setEnd(static_cast<quint64>(count % size));
    m_readBuffer.setFull(count == size);
    return true;
}

// Writes the oldest bytes of the write buffer, up to its edge. A device that takes none may never
// take one, so that fails too.
bool SBufferedDevice::writeOut()
{
    const quint64 start = m_writeBuffer.start();
    const quint64 count = qMin(m_writeBuffer.bytesAvailable(), m_writeBuffer.size() - start);
    const qint64 written = m_device->write(m_writeBuffer.data() + start,
                                           writeRequestSize(m_device, static_cast<qint64>(count)));
    if (written <= 0) {
        setErrorString(failureReason(m_device));
        return false;
    }
    m_writeBuffer.discart(static_cast<quint64>(written));
    return true;
}

void SBufferedDevice::closeSelf()
{
    flush();
    discart(-1);
    Q_EMIT aboutToClose();
    // Some write what they hold when they hear this, as a text stream does.
    flush();
    const QSignalBlocker told(this);
    QIODevice::close();
    bufferResize();
}

void SBufferedDevice::underlyingDeviceAboutToClose()
{
    if (!isOpen())
        return;
    closeSelf();
    // A file has emptied its own buffer before it tells, and drops what comes into it now.
    flushUnderlyingFile(m_device);
}

void SBufferedDevice::underlyingDeviceDestroyed()
{
    m_device = nullptr;
}

} // namespace Talverine

#include "moc_sbuffereddevice.cpp"
