// SPDX-License-Identifier: MIT
#include <brixlib/compression/scompressordevice.h>

#include "containername_p.h"
#include "framedblocks_p.h"
#include <brixlib/foundation/saturated_p.h>
#include <brixlib/foundation/underlyingdevice_p.h>

#include <brixrt/sfilehelper.h>

#include <QtCore/QScopedValueRollback>
#include <QtCore/QSignalBlocker>

namespace Talverine::Compression {

namespace {

// What a container's writer reads at once for each thread of the compressor, as a shift: 128 KiB.
constexpr int kWriterPieceShift = 17;
constexpr int kReaderPieceBytes = 32768;

} // namespace

SCompressorDevice::SCompressorDevice(QIODevice *device, Interfaces::ICompressor *compressor,
                                     bool leaveOpen, QObject *parent)
    : SCompressorDevice(device, compressor, leaveOpen, false, parent)
{
}

SCompressorDevice::SCompressorDevice(QIODevice *device, Interfaces::ICompressor *compressor,
                                     bool leaveOpen, bool calculateCrc, QObject *parent)
    : QIODevice(parent)
    , m_leaveOpen(leaveOpen)
    , m_calculateCrc(calculateCrc)
    , m_device(device)
    , m_compressor(compressor)
{
    followDevice(device, this, &SCompressorDevice::underlyingDeviceAboutToClose,
                 &SCompressorDevice::underlyingDeviceDestroyed);
}

SCompressorDevice::~SCompressorDevice() = default;

QIODevice *SCompressorDevice::underlyingDevice() const
{
    return m_device;
}

Interfaces::ICompressor *SCompressorDevice::compressor() const
{
    return m_compressor.get();
}

bool SCompressorDevice::leaveOpen() const
{
    return m_leaveOpen;
}

bool SCompressorDevice::calculateCrc() const
{
    return m_calculateCrc;
}

quint32 SCompressorDevice::crc() const
{
    return m_crc.value();
}

void SCompressorDevice::setConcurrence(int threads)
{
    if (m_compressor)
        m_compressor->setConcurrence(threads);
}

int SCompressorDevice::concurrence() const
{
    return m_compressor ? m_compressor->concurrence() : 1;
}

bool SCompressorDevice::open(OpenMode mode)
{
    if (!m_device || !openOrShareUnderlyingDevice(m_device, mode))
        return false;
    m_crc.clear();
    m_hasFailed = false;
    return QIODevice::open(completedMode(mode));
}

bool SCompressorDevice::hasFailed() const
{
    return m_hasFailed;
}

void SCompressorDevice::close()
{
    if (!isOpen() || m_isClosing)
        return;
    underlyingDeviceAboutToClose();
    if (m_device && !m_leaveOpen)
        m_device->close();
}

bool SCompressorDevice::isSequential() const
{
    return true;
}

bool SCompressorDevice::atEnd() const
{
    if (m_compressor && m_compressor->bytesAvailable() > 0)
        return false;
    return (!m_device || m_device->atEnd()) && QIODevice::atEnd();
}

qint64 SCompressorDevice::bytesAvailable() const
{
    // What a remote device says is its server's word.
    const qint64 behind = m_device ? m_device->bytesAvailable() : 0;
    const qint64 held = m_compressor ? m_compressor->bytesAvailable() : 0;
    return Saturated::sum(behind, held + QIODevice::bytesAvailable());
}

qint64 SCompressorDevice::bytesToWrite() const
{
    return (m_device ? m_device->bytesToWrite() : 0) + QIODevice::bytesToWrite();
}

bool SCompressorDevice::canReadLine() const
{
    return (m_device && m_device->canReadLine()) || QIODevice::canReadLine();
}

bool SCompressorDevice::compress(QIODevice *source, QIODevice *target,
                                 Interfaces::ICompressor *compressor)
{
    std::unique_ptr<Interfaces::ICompressor> owner(compressor);
    if (!source || !target || !compressor || !target->open(WriteOnly))
        return false;
    SCompressorDevice device(target, owner.release(), true, true);
    const bool written = device.open(WriteOnly) && device.writeContainer(source);
    // The stream has its end, and must not get another when the target closes.
    device.setOpenMode(NotOpen);
    target->close();
    return written;
}

bool SCompressorDevice::decompress(QIODevice *source, QIODevice *target,
                                   Interfaces::ICompressor *compressor)
{
    std::unique_ptr<Interfaces::ICompressor> owner(compressor);
    if (!source || !target || !compressor || !source->open(ReadOnly))
        return false;
    const QByteArray expected = containerName(compressor);
    if (readClaimed(source, expected.size()) != expected) {
        source->close();
        return false;
    }
    const quint32 crc = readWord(source);
    SCompressorDevice device(source, owner.release(), false, true);
    const bool copied =
        device.open(ReadOnly) && SFileHelper::copyDevice(target, &device, kReaderPieceBytes);
    device.close();
    return copied && device.crc() == crc;
}

qint64 SCompressorDevice::readData(char *data, qint64 maxSize)
{
    if (!m_device || !m_compressor) {
        keepFailure();
        return -1;
    }
    const qint64 count = m_compressor->decompress(m_device, data, maxSize, 0);
    if (count < 0)
        keepFailure();
    updateCrc(data, count);
    return count;
}

qint64 SCompressorDevice::writeData(const char *data, qint64 size)
{
    if (!m_device || !m_compressor) {
        keepFailure();
        return -1;
    }
    const qint64 count = m_compressor->compress(data, size, m_device);
    if (count < 0)
        keepFailure();
    updateCrc(data, count);
    return count;
}

bool SCompressorDevice::flush()
{
    return m_compressor && m_compressor->finalize();
}

// The head with a place for the checksum, the stream, and last the checksum itself.
bool SCompressorDevice::writeContainer(QIODevice *source)
{
    if (!SFileHelper::writeAll(m_device, containerName(m_compressor.get())))
        return false;
    const qint64 crcPosition = m_device->pos();
    return writeWord(m_device, 0) &&
           SFileHelper::copyDevice(this, source, concurrence() << kWriterPieceShift) && flush() &&
           m_device->seek(crcPosition) && writeWord(m_device, crc()) &&
           flushUnderlyingFile(m_device);
}

void SCompressorDevice::updateCrc(const char *data, qint64 size)
{
    if (m_calculateCrc && size > 0)
        m_crc.update(data, static_cast<quint64>(size));
}

// Keeps the first failure, which is the cause of the later ones.
void SCompressorDevice::keepFailure()
{
    if (m_hasFailed)
        return;
    m_hasFailed = true;
    setErrorString(m_device ? failureReason(m_device)
                            : tr("The underlying device has been destroyed"));
}

void SCompressorDevice::underlyingDeviceAboutToClose()
{
    if (!isOpen() || m_isClosing)
        return;
    const QScopedValueRollback closing(m_isClosing, true);
    Q_EMIT aboutToClose();
    // Slots of this signal may write, as QTextStream does, so the stream ends after it. QFile
    // flushes before aboutToClose(), and discards what is written later.
    const bool ended = flush() && flushUnderlyingFile(m_device);
    if (!ended || (isWritable() && !m_device))
        keepFailure();
    const QString reason = errorString();
    const QSignalBlocker emitted(this);
    QIODevice::close();
    if (m_hasFailed)
        setErrorString(reason);
}

void SCompressorDevice::underlyingDeviceDestroyed()
{
    m_device = nullptr;
}

} // namespace Talverine::Compression

#include "moc_scompressordevice.cpp"
