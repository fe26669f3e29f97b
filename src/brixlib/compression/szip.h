// SPDX-License-Identifier: MIT
#pragma once

#include <brixlib/compression/icompressor.h>
#include <brixlib/compression/scompressordevice.h>

#include <QtCore/QByteArray>

#include <memory>

namespace Talverine::Compression {

class BlockReader;

//! What SZip writes for each call. The numbers are fixed.
enum class ZipMode {
    ZipFramed = 0,    //!< the length of the block, big-endian in 4 bytes, and the block
    ZipQtBlock = 1,   //!< the block alone, which has to be the only one in its device
    ZipRawStream = 2, //!< the block's bare zlib stream; the size of the plain bytes is not stored
};

/*!
 * zlib streams as blocks of qCompress(): each is led by the size of its plain bytes, big-endian in
 * 4 bytes. This has nothing to do with zip archives.
 *
 * Thread: one at a time; the static functions may be called from any.
 */
class BRIXLIB_EXPORT SZip : public Interfaces::ICompressor
{
public:
    //! With level 1.
    explicit SZip(const ZipMode &mode = ZipMode::ZipFramed);
    //! \a level as for compress().
    explicit SZip(int level, const ZipMode &mode = ZipMode::ZipFramed);
    ~SZip() override;

    //! The number of this class: the same in all of a process, another in the next.
    static quint64 uniqueId();

    ZipMode mode() const;
    int compressionLevel() const;
    //! Holds from the next block on.
    void setCompressionLevel(int level);

    /*!
     * qCompress(): the block of \a data. Level 0 stores, 1 to 9 compress better and slower the
     * higher they are, any other is zlib's own choice. Empty when there is no memory.
     */
    static QByteArray compress(const QByteArray &data, int level = 1);
    /*!
     * qUncompress(): the plain bytes of a block. Empty when it is damaged, which Qt warns of, when
     * it claims more plain bytes than any stream of its length yields, or when there is no memory.
     */
    static QByteArray decompress(const QByteArray &block);

    //! With the same mode and level, and a concurrence of 1.
    SZip *clone() const override;
    quint64 id() const override;
    //! Writes one block, or with a concurrence above 1 one for each thread, of at least 16 KiB, and
    //! one for what is left over. Nothing for no data. Fails when a block would be of 2 GiB or
    //! more.
    qint64 compress(const char *data, qint64 size, QIODevice *target) override;
    /*!
     * Gives fewer bytes where a block is damaged. Framed, it reads one block when it holds nothing,
     * or all of \a compressedSize, and fails when they are not so long; else the block is all that
     * there is, or \a compressedSize bytes. Of a bare stream, \a maxSize has to be the exact count
     * of plain bytes: a smaller one gives nothing.
     */
    qint64 decompress(QIODevice *source, char *data, qint64 maxSize,
                      qint64 compressedSize) override;
    //! Forgets what is held; always true.
    bool finalize() override;
    qint64 bytesAvailable() const override;
    //! "zip".
    QString name() override;
    //! 1 unless framed.
    int concurrence() const override;

private:
    void readBare(QIODevice *source, qint64 maxSize, qint64 compressedSize);

    int m_compressionLevel;
    ZipMode m_mode;
    std::unique_ptr<BlockReader> m_reader;
};

//! Compresses with SZip into another device, and reads that back.
class BRIXLIB_EXPORT SZipDevice : public SCompressorDevice
{
    Q_OBJECT

public:
    SZipDevice(QIODevice *device, bool leaveOpen, int level, QObject *parent = nullptr);
    //! With level 1.
    SZipDevice(QIODevice *device, bool leaveOpen, QObject *parent = nullptr);
};

} // namespace Talverine::Compression
