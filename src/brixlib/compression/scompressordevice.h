// SPDX-License-Identifier: MIT
#pragma once

#include <brixlib/brixlib_export.h>
#include <brixlib/compression/icompressor.h>

#include <brixrt/scrc32.h>

#include <QtCore/QIODevice>

#include <memory>

namespace Talverine::Compression {

/*!
 * Compresses what is written to it into another device, and reads such a stream back.
 *
 *     SCompressorDevice packed(&file, new SLz4, false);
 *     if (!packed.open(QIODevice::WriteOnly))
 *         return false;
 *     packed.write(page);
 *     packed.close(); // ends the stream and closes the file
 *     if (packed.hasFailed())
 *         qWarning() << packed.errorString();
 *
 * Each write is one call of the compressor. compress() and decompress() do whole files, with a head
 * that tells the algorithm and a checksum of the plain bytes.
 *
 * The compressor is owned, the underlying device is not. Lives in one thread, the underlying
 * device's.
 */
class BRIXLIB_EXPORT SCompressorDevice : public QIODevice,
                                         public Talverine::Interfaces::IConcurrency
{
    Q_OBJECT
    Q_INTERFACES(Talverine::Interfaces::IConcurrency)

public:
    //! Takes \a compressor; close() closes \a device too unless \a leaveOpen. No checksum is kept.
    SCompressorDevice(QIODevice *device, Interfaces::ICompressor *compressor, bool leaveOpen,
                      QObject *parent = nullptr);
    //! With \a calculateCrc, crc() follows the plain bytes in both directions.
    SCompressorDevice(QIODevice *device, Interfaces::ICompressor *compressor, bool leaveOpen,
                      bool calculateCrc, QObject *parent = nullptr);
    //! Does not close(): a stream that has not been closed may lack its end.
    ~SCompressorDevice() override;

    //! Null once it has been destroyed.
    QIODevice *underlyingDevice() const;
    //! Stays this object's.
    Interfaces::ICompressor *compressor() const;
    bool leaveOpen() const;
    bool calculateCrc() const;
    //! Checksum of the plain bytes since open(), 0 without calculateCrc(); close() keeps it.
    quint32 crc() const;

    //! Passed on to the compressor.
    void setConcurrence(int threads) override;
    //! The compressor's; 1 without one.
    int concurrence() const override;

    /*!
     * Opens the underlying device with \a mode unless it is open; false when that fails, or when it
     * is open, \a mode is not ReadOnly and it can't be written, or when \a mode neither reads nor
     * writes. Append, Truncate and NewOnly imply WriteOnly.
     */
    bool open(OpenMode mode) override;
    /*!
     * Ends the compressor's stream and closes the underlying device unless leaveOpen(). What is
     * written when aboutToClose() is emitted, as QTextStream does, belongs to the stream. The same
     * happens when the underlying device is closed first. hasFailed() reports a failure.
     */
    void close() override;
    /*!
     * Returns whether a read or a write, or the end of the stream in close(), has failed since
     * open(). errorString() is the underlying device's reason for the first failure. If this is
     * false after close(), the system has accepted all bytes of an underlying file; another device
     * may still buffer some.
     */
    bool hasFailed() const;
    //! Always true.
    bool isSequential() const override;
    bool atEnd() const override;
    //! QIODevice's count plus the plain bytes in the compressor and the underlying device's
    //! compressed ones: more or fewer may come.
    qint64 bytesAvailable() const override;
    //! QIODevice's count plus the underlying device's.
    qint64 bytesToWrite() const override;
    bool canReadLine() const override;

    /*!
     * Writes all of \a source to \a target as a compressed file: 20 bytes SHA-1 of the compressor's
     * name, 4 bytes CRC of the plain data, big-endian, and the compressor's stream.
     *
     * Opens \a target, which has to be closed and to allow seeking, and closes it again; a closed
     * \a source is opened and closed too. Old bytes that opening for writing does not drop, of a
     * QBuffer or of a QTemporaryFile that was open before, are overwritten and not cut off.
     *
     * Takes \a compressor, also on failure. What was written when something failed stays.
     */
    [[nodiscard]] static bool compress(QIODevice *source, QIODevice *target,
                                       Interfaces::ICompressor *compressor);
    /*!
     * Reads back what compress() wrote. False when the head names another algorithm, with \a target
     * untouched; and when anything fails or the checksum differs, with what was written left there.
     *
     * Opens \a source, which has to be closed, and closes it again, as it does with a closed
     * \a target. Takes \a compressor, also on failure.
     */
    [[nodiscard]] static bool decompress(QIODevice *source, QIODevice *target,
                                         Interfaces::ICompressor *compressor);

protected:
    qint64 readData(char *data, qint64 maxSize) override;
    qint64 writeData(const char *data, qint64 size) override;

    //! Ends the compressor's stream.
    bool flush();

private:
    bool writeContainer(QIODevice *source);
    void updateCrc(const char *data, qint64 size);
    void keepFailure();
    void underlyingDeviceAboutToClose();
    void underlyingDeviceDestroyed();

    bool m_leaveOpen;
    bool m_calculateCrc;
    bool m_hasFailed = false;
    bool m_isClosing = false;
    QIODevice *m_device;
    std::unique_ptr<Interfaces::ICompressor> m_compressor;
    SCrc32 m_crc;
};

} // namespace Talverine::Compression
