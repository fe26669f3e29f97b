// SPDX-License-Identifier: MIT
#pragma once

#include <brixlib/compression/icompressor.h>
#include <brixlib/compression/scompressordevice.h>

#include <memory>

namespace Talverine::Compression {

/*!
 * LZW as TIFF 6.0 has it. Any reader of such files reads what it writes, and it reads what any
 * writes in the bit order of that edition.
 *
 * A stream is one whole, however many calls it takes: from the first compress() to finalize(), or
 * from beginCompress() to endCompress(). Reading goes on from call to call in the same way.
 *
 *     STiffLZW lzw;
 *     lzw.compress(row, rowBytes, &strip); // as often as there are rows
 *     const bool ok = lzw.finalize();
 *
 * A damaged stream gives wrong bytes, or fewer; nothing in it tells the difference.
 *
 * Thread: one at a time. An object takes some 300 KiB.
 */
class BRIXLIB_EXPORT STiffLZW : public Interfaces::ICompressor
{
public:
    STiffLZW();
    ~STiffLZW() override;

    //! The number of this class: the same in all of a process, another in the next.
    static quint64 uniqueId();

    //! Starts a stream on \a device, which stays the caller's; one that was not ended is forgotten.
    void beginCompress(QIODevice *device);
    //! Adds to the stream: gives \a size, 0 for one below, or -1 when the device did not take all,
    //! or when there is no stream.
    qint64 incrementalCompress(const char *data, qint64 size);
    /*!
     * Writes what is left and the end of the stream. False when that fails, or when there is no
     * stream. A stream that has got no byte can't be ended: std::out_of_range is thrown.
     */
    bool endCompress();

    //! Starts reading a stream from \a device, which stays the caller's.
    void beginDecompress(QIODevice *device);
    /*!
     * Gives up to \a maxSize bytes: their count, fewer also where the next ones can't be parted,
     * which bytesAvailable() tells. More of \a data than it counts may be overwritten.
     *
     * Takes \a compressedSize bytes of the device, of which it forgets those that it does not get
     * to; with 0, those that it needs. It takes none while it holds more than there is room for.
     * -1 when reading fails, or when there is no device and nothing is held. An end of the device
     * ends the stream.
     */
    qint64 incrementalDecompress(char *data, qint64 maxSize, qint64 compressedSize);
    //! The next decompress() starts a stream. Always true.
    bool endDecompress();

    //! A new one, without any stream.
    STiffLZW *clone() const override;
    quint64 id() const override;
    //! incrementalCompress(), of a stream that the first call with any data begins on \a target:
    //! the targets of later calls make no difference.
    qint64 compress(const char *data, qint64 size, QIODevice *target) override;
    //! incrementalDecompress(), of a stream that the first call begins on \a source.
    qint64 decompress(QIODevice *source, char *data, qint64 maxSize,
                      qint64 compressedSize) override;
    //! endCompress() if there is such a stream; unless that fails, the next decompress() starts
    //! one.
    bool finalize() override;
    qint64 bytesAvailable() const override;
    //! "lzw".
    QString name() override;
    //! Always 1.
    int concurrence() const override;

private:
    const std::unique_ptr<class STiffLZWPrivate> d;
};

//! Compresses with STiffLZW into another device, and reads that back.
class BRIXLIB_EXPORT STiffLZWDevice : public SCompressorDevice
{
    Q_OBJECT

public:
    STiffLZWDevice(QIODevice *device, bool leaveOpen, QObject *parent = nullptr);
};

} // namespace Talverine::Compression
