// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QByteArray>
#include <QtCore/QList>

#include <tiffio.h>

#include <algorithm>
#include <cstdarg>
#include <cstdio>

/*!
 * A TIFF file in memory that libtiff writes and reads: grey pixels of a byte each, in strips that
 * are one row high, or more.
 *
 *     MemoryTiff tiff(COMPRESSION_LZW, width, height, rowsOfAStrip);
 *     tiff.writeStrip(0, pixels);
 *     QByteArray asStored = tiff.rawStrip(0);
 *
 * What libtiff has to complain of stands in complaints(). Lives in one thread.
 */
class MemoryTiff final
{
public:
    //! Starts a file for writing.
    MemoryTiff(int compression, int width, int height, int rowsOfAStrip)
    {
        TIFFSetErrorHandler(nullptr);
        TIFFSetWarningHandler(nullptr);
        TIFFSetErrorHandlerExt(&complain);
        TIFFSetWarningHandlerExt(&complain);
        open("w");
        TIFFSetField(m_tiff, TIFFTAG_IMAGEWIDTH, static_cast<quint32>(width));
        TIFFSetField(m_tiff, TIFFTAG_IMAGELENGTH, static_cast<quint32>(height));
        TIFFSetField(m_tiff, TIFFTAG_BITSPERSAMPLE, 8);
        TIFFSetField(m_tiff, TIFFTAG_SAMPLESPERPIXEL, 1);
        TIFFSetField(m_tiff, TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_MINISBLACK);
        TIFFSetField(m_tiff, TIFFTAG_COMPRESSION, compression);
        TIFFSetField(m_tiff, TIFFTAG_ROWSPERSTRIP, static_cast<quint32>(rowsOfAStrip));
    }
    ~MemoryTiff()
    {
        if (m_tiff)
            TIFFClose(m_tiff);
    }
    Q_DISABLE_COPY_MOVE(MemoryTiff)

    //! Takes and touches so much memory now rather than as it is needed, for measuring.
    void reserve(qsizetype bytes)
    {
        const qsizetype size = m_bytes.size();
        m_bytes.append(bytes - size, '\0');
        m_bytes.resize(size);
    }

    //! Compresses and stores a strip; false when libtiff can't.
    bool writeStrip(quint32 strip, const char *pixels, qint64 size)
    {
        // libtiff may change the pixels of some machines, but takes them as they are here.
        return TIFFWriteEncodedStrip(m_tiff, strip, const_cast<char *>(pixels), size) == size;
    }
    //! Stores a strip that is compressed already.
    bool writeRawStrip(quint32 strip, const QByteArray &stored)
    {
        return TIFFWriteRawStrip(m_tiff, strip, const_cast<char *>(stored.constData()),
                                 stored.size()) == stored.size();
    }
    //! Ends the writing; what is read from now on is what has been written.
    bool startReading()
    {
        TIFFClose(m_tiff);
        open("r");
        return m_tiff != nullptr;
    }
    //! The pixels of a strip; false unless there are as many as asked for.
    bool readStrip(quint32 strip, char *pixels, qint64 size)
    {
        return TIFFReadEncodedStrip(m_tiff, strip, pixels, size) == size;
    }
    //! A strip as it is stored.
    QByteArray rawStrip(quint32 strip)
    {
        QByteArray stored(TIFFRawStripSize(m_tiff, strip), '\0');
        stored.truncate(TIFFReadRawStrip(m_tiff, strip, stored.data(), stored.size()));
        return stored;
    }

    //! Everything that libtiff has complained of since this was constructed.
    QByteArray complaints() const { return m_complaints; }

private:
    static MemoryTiff *self(thandle_t handle) { return static_cast<MemoryTiff *>(handle); }

    static void complain(thandle_t handle, const char *module, const char *format,
                         va_list arguments)
    {
        char text[500];
        std::vsnprintf(text, sizeof text, format, arguments);
        if (handle)
            self(handle)->m_complaints += QByteArray(module) + ": " + text + '\n';
    }
    static tmsize_t read(thandle_t handle, void *data, tmsize_t size)
    {
        MemoryTiff *const tiff = self(handle);
        const qsizetype count = std::min<qsizetype>(size, tiff->m_bytes.size() - tiff->m_position);
        std::copy_n(tiff->m_bytes.constData() + tiff->m_position, count, static_cast<char *>(data));
        tiff->m_position += count;
        return count;
    }
    static tmsize_t write(thandle_t handle, void *data, tmsize_t size)
    {
        MemoryTiff *const tiff = self(handle);
        if (tiff->m_position + size > tiff->m_bytes.size())
            tiff->m_bytes.resize(tiff->m_position + size);
        std::copy_n(static_cast<const char *>(data), size, tiff->m_bytes.data() + tiff->m_position);
        tiff->m_position += size;
        return size;
    }
    static toff_t seek(thandle_t handle, toff_t offset, int from)
    {
        MemoryTiff *const tiff = self(handle);
        const auto distance = static_cast<qsizetype>(offset);
        tiff->m_position = from == SEEK_SET   ? distance
                           : from == SEEK_CUR ? tiff->m_position + distance
                                              : tiff->m_bytes.size() + distance;
        return static_cast<toff_t>(tiff->m_position);
    }
    static int close(thandle_t) { return 0; }
    static toff_t size(thandle_t handle)
    {
        return static_cast<toff_t>(self(handle)->m_bytes.size());
    }
    static int map(thandle_t handle, void **base, toff_t *size)
    {
        *base = self(handle)->m_bytes.data();
        *size = static_cast<toff_t>(self(handle)->m_bytes.size());
        return 1;
    }
    static void unmap(thandle_t, void *, toff_t) {}

    void open(const char *mode)
    {
        m_position = 0;
        m_tiff =
            TIFFClientOpen("memory", mode, this, &read, &write, &seek, &close, &size, &map, &unmap);
    }

    QByteArray m_bytes;
    qsizetype m_position = 0;
    QByteArray m_complaints;
    TIFF *m_tiff = nullptr;
};
