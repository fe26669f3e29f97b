// SPDX-License-Identifier: MIT
#pragma once

#include <brixlib/compression/icompressor.h>
#include <brixlib/compression/scompressordevice.h>

#include <QtCore/QByteArray>

#include <memory>

namespace Talverine::Compression {

class BlockReader;

//! What SPackBits writes for each call. The numbers are fixed.
enum class PackBitsMode {
    PackBitsFramed = 0, //!< the length of the block, big-endian in 4 bytes, and the block
    PackBitsRaw = 1,    //!< packets alone, as image files have them
};

/*!
 * PackBits, which tells runs of equal bytes from other bytes: very fast, and good for pictures with
 * areas of one colour. Data without runs grows by one byte in 127.
 *
 * Any reader of PackBits reads what it writes, and it reads what any writes.
 *
 * Thread: one at a time; the static functions may be called from any.
 */
class BRIXLIB_EXPORT SPackBits : public Interfaces::ICompressor
{
public:
    explicit SPackBits(const PackBitsMode &mode = PackBitsMode::PackBitsRaw);
    ~SPackBits() override;

    //! The number of this class: the same in all of a process, another in the next.
    static quint64 uniqueId();

    PackBitsMode mode() const;

    //! The packets of \a data; those of one byte 0 if it is empty. Empty when there is no memory.
    static QByteArray compress(const QByteArray &data);
    //! The plain bytes of whole packets. Empty when the last one is cut, or there is no memory.
    static QByteArray decompress(const QByteArray &block);

    //! A raw one with a concurrence of 1, whatever this one is.
    SPackBits *clone() const override;
    quint64 id() const override;
    //! Writes packets, framed as one block, or with a concurrence above 1 as one for each thread,
    //! of at least 16 KiB. Nothing for no data.
    qint64 compress(const char *data, qint64 size, QIODevice *target) override;
    /*!
     * Gives fewer bytes where a block is damaged; more of \a data than it counts may be
     * overwritten.
     *
     * Framed, it reads one block when it holds nothing, or all of \a compressedSize, and fails when
     * they are not so long. Raw, it decodes all of \a compressedSize as one block; with 0 it takes
     * packets until \a maxSize, and leaves one that does not fit in \a source; it fails when
     * reading fails inside one.
     */
    qint64 decompress(QIODevice *source, char *data, qint64 maxSize,
                      qint64 compressedSize) override;
    //! Forgets what is held; always true.
    bool finalize() override;
    qint64 bytesAvailable() const override;
    //! "packbits".
    QString name() override;
    //! 1 unless framed.
    int concurrence() const override;

private:
    static bool _compress(const char *data, qint64 size, QIODevice *target);
    static qint64 _decompress(QIODevice *source, char *data, qint64 maxSize);

    PackBitsMode m_mode;
    std::unique_ptr<BlockReader> m_reader;
};

//! Compresses with SPackBits into another device, and reads that back.
class BRIXLIB_EXPORT SPackBitsDevice : public SCompressorDevice
{
    Q_OBJECT

public:
    //! Framed.
    SPackBitsDevice(QIODevice *device, bool leaveOpen, QObject *parent = nullptr);
    //! Framed unless \a raw.
    SPackBitsDevice(QIODevice *device, bool leaveOpen, bool raw, QObject *parent = nullptr);
};

} // namespace Talverine::Compression
