// SPDX-License-Identifier: MIT
#pragma once

#include <brixlib/compression/icompressor.h>

namespace Talverine::Compression {

/*!
 * Writes and reads bytes unchanged, where a compressor is asked for and none is wanted.
 *
 * Thread: one at a time.
 */
class BRIXLIB_EXPORT SNullCompressor : public Interfaces::ICompressor
{
public:
    SNullCompressor() = default;
    ~SNullCompressor() override;

    //! The number of this class: the same in all of a process, another in the next.
    static quint64 uniqueId();

    SNullCompressor *clone() const override;
    quint64 id() const override;
    qint64 compress(const char *data, qint64 size, QIODevice *target) override;
    //! Reads until \a maxSize or the end; \a compressedSize makes no difference.
    qint64 decompress(QIODevice *source, char *data, qint64 maxSize,
                      qint64 compressedSize) override;
    //! Always true.
    bool finalize() override;
    //! Always 0.
    qint64 bytesAvailable() const override;
    //! "uncompressed".
    QString name() override;
    //! Always 1.
    int concurrence() const override;
};

} // namespace Talverine::Compression
