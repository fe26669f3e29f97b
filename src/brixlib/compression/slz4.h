// SPDX-License-Identifier: MIT
#pragma once

#include <brixlib/compression/icompressor.h>
#include <brixlib/compression/scompressordevice.h>

#include <QtCore/QByteArray>

#include <memory>

namespace Talverine::Compression {

class BlockReader;

//! What SLz4 writes for each call. The numbers are fixed.
enum class Lz4Mode {
    Lz4Framed = 0, //!< the length of the block, big-endian in 4 bytes, and the block
    Lz4Raw = 1,    //!< the block alone, which has to be the only one in its device
};

/*!
 * LZ4 blocks, each led by the size of its plain bytes: big-endian in 4 bytes. This is not the frame
 * format of the lz4 tool.
 *
 * Thread: one at a time; the static functions may be called from any.
 */
class BRIXLIB_EXPORT SLz4 : public Interfaces::ICompressor
{
public:
    //! With level 1.
    explicit SLz4(const Lz4Mode &mode = Lz4Mode::Lz4Framed);
    //! \a level as for compress().
    explicit SLz4(int level, const Lz4Mode &mode = Lz4Mode::Lz4Framed);
    ~SLz4() override;

    //! The number of this class: the same in all of a process, another in the next.
    static quint64 uniqueId();

    Lz4Mode mode() const;
    int compressionLevel() const;
    //! Holds from the next block on.
    void setCompressionLevel(int level);

    /*!
     * The block of \a data, which may be empty. A \a level of 1 to 12 compresses better and slower
     * the higher it is, and a higher one is 12; a lower one is the fastest. Empty when \a data is
     * larger than LZ4 takes, 2,113,929,216 bytes, or when there is no memory.
     */
    static QByteArray compress(const QByteArray &data, int level = 1);
    //! The plain bytes of a block. Empty when it is damaged, or when there is no memory.
    static QByteArray decompress(const QByteArray &block);

    //! With the same mode and level, and a concurrence of 1.
    SLz4 *clone() const override;
    quint64 id() const override;
    /*!
     * Writes one block, or with a concurrence above 1 one for each thread, of at least 16 KiB, and
     * one for what is left over. No data makes a block, too, at which a reader ends unless it reads
     * on. Fails when a block would be of more bytes than LZ4 takes.
     */
    qint64 compress(const char *data, qint64 size, QIODevice *target) override;
    /*!
     * Gives fewer bytes where a block is damaged. Framed, it reads one block when it holds nothing,
     * or all of \a compressedSize, and fails when they are not so long; raw, the block is all that
     * there is, or \a compressedSize bytes.
     */
    qint64 decompress(QIODevice *source, char *data, qint64 maxSize,
                      qint64 compressedSize) override;
    //! Forgets what is held; always true.
    bool finalize() override;
    qint64 bytesAvailable() const override;
    //! "lz4".
    QString name() override;
    //! 1 unless framed.
    int concurrence() const override;

private:
    Lz4Mode m_mode;
    int m_compressionLevel;
    std::unique_ptr<BlockReader> m_reader;
};

//! Compresses with SLz4 into another device, and reads that back.
class BRIXLIB_EXPORT SLz4Device : public SCompressorDevice
{
    Q_OBJECT

public:
    SLz4Device(QIODevice *device, bool leaveOpen, int level, QObject *parent = nullptr);
    //! With level 1.
    SLz4Device(QIODevice *device, bool leaveOpen, QObject *parent = nullptr);
};

} // namespace Talverine::Compression
