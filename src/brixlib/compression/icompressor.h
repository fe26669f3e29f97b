// SPDX-License-Identifier: MIT
#pragma once

#include <brixlib/brixlib_export.h>
#include <brixlib/foundation/interfaces.h>

#include <QtCore/QString>

class QIODevice;

namespace Talverine::Compression::Interfaces {

/*!
 * Turns blocks of bytes into a stream on a device, and such a stream back into bytes.
 *
 * An object serves one direction of one stream at a time; finalize() ends it, and the next one may
 * begin. SCompressorDevice makes a QIODevice of any compressor.
 *
 * Thread: one at a time.
 */
class BRIXLIB_EXPORT ICompressor : public Talverine::Interfaces::ICloneable,
                                   public Talverine::Interfaces::IIdentifiable,
                                   public Talverine::Interfaces::IConcurrency
{
public:
    ~ICompressor() override;

    ICompressor *clone() const override = 0;
    /*!
     * Writes the compressed form of \a size bytes to \a target. Gives \a size, or -1 when that
     * fails.
     */
    virtual qint64 compress(const char *data, qint64 size, QIODevice *target) = 0;
    /*!
     * Gives up to \a maxSize decoded bytes of \a source: their count, 0 at the end, or -1 when that
     * fails. \a compressedSize is the exact count of bytes to take from \a source, 0 for as many as
     * the format tells.
     */
    virtual qint64 decompress(QIODevice *source, char *data, qint64 maxSize,
                              qint64 compressedSize) = 0;
    //! Ends the current stream: writes what is due, or forgets what has not been read. The stream's
    //! device may have been destroyed by then.
    virtual bool finalize() = 0;
    //! Decoded bytes held inside, which decompress() gives before it reads on.
    virtual qint64 bytesAvailable() const = 0;
    //! The algorithm's fixed name, by which a compressed file tells it.
    virtual QString name() = 0;

    //! Always false.
    bool isNull() const override;
    void setConcurrence(int threads) override;
    //! The threads that one call of compress() may work on; 1 at first.
    int concurrence() const override;

private:
    int m_concurrence = 1;
};

} // namespace Talverine::Compression::Interfaces
