// SPDX-License-Identifier: MIT
#pragma once

#include <brixlib/brixlib_export.h>
#include <brixlib/foundation/interfaces.h>

#include <brixrt/sarray.h>

#include <cstring>

namespace Talverine {

/*!
 * A ring of bytes with a fixed size: what is written at its end is read from its start.
 *
 * Indexes run modulo size(). A start or end beyond it, which only the raw setters can bring, counts
 * modulo size() too. A value with deep copies, of which one that could not be had is null; lives in
 * one thread.
 */
class BRIXLIB_EXPORT SIOBuffer : public Interfaces::ISerializable
{
public:
    //! An empty ring of \a size bytes; null when they can't be had.
    explicit SIOBuffer(quint64 size = 0);

    //! Bytes that fit, taken or free.
    quint64 size() const { return m_data.size(); }
    /*!
     * Empties the ring and changes its size. The storage keeps the bytes that it had, up to the
     * smaller size. False when the bytes can't be had: the old storage stays, emptied.
     */
    [[nodiscard]] bool setSize(quint64 size);

    //! Index of the oldest byte.
    quint64 start() const { return m_start; }
    //! Index where the next byte goes.
    quint64 end() const { return m_end; }
    //! Sets the index; raw, nothing is checked or moved.
    void setStart(quint64 start) { m_start = start; }
    //! Sets the index; raw, nothing is checked or moved.
    void setEnd(quint64 end) { m_end = end; }
    //! Tells full from empty when start() equals end(); raw, nothing is checked or moved.
    void setFull(bool full) { m_full = full; }
    //! The storage, size() bytes from index 0 on; null in a null ring. Good until the size changes.
    char *data() { return m_data.data(); }
    const char *data() const { return m_data.data(); }

    //! Empties the ring; the storage stays.
    void clear()
    {
        m_start = 0;
        m_end = 0;
        m_full = false;
    }
    //! True when size() is 0.
    bool isNull() const { return m_data.isNull(); }
    //! True when there is nothing to read, as in a null ring.
    bool isEmpty() const { return (!m_full && m_start == m_end) || bytesAvailable() == 0; }
    //! True when nothing can be written; a null ring is not full.
    bool isFull() const { return m_full && !isNull(); }
    //! Bytes that can be read.
    quint64 bytesAvailable() const;
    //! Bytes that can be written.
    quint64 bytesFree() const { return size() - bytesAvailable(); }
    //! True when \a byte is among those that can be read.
    bool contains(char byte) const;

    //! Appends as many of \a size bytes as are free; the count of them.
    quint64 write(const char *data, quint64 size)
    {
        // Most pieces end before the edge, and small ones are many: these go an inlined way.
        if (size == 0 || size >= writableAtOnce())
            return writeAround(data, size);
        std::memcpy(m_data.data() + m_end, data, size);
        m_end += size;
        return size;
    }
    quint64 write(const QByteArray &data);
    //! The first \a size bytes of \a data, all of it when there are fewer.
    quint64 write(const SArray<char> &data, quint64 size);

    //! Takes up to \a size bytes from the start; the count of them.
    quint64 read(char *data, quint64 size)
    {
        if (size == 0 || size >= readableAtOnce())
            return readAround(data, size);
        std::memcpy(data, m_data.data() + m_start, size);
        m_start += size;
        m_full = false;
        return size;
    }
    //! Never more than \a data holds.
    quint64 read(SArray<char> &data, quint64 size);
    //! Up to \a size bytes, quint64(-1) for all.
    QByteArray read(quint64 size);
    //! Drops up to \a size bytes from the start; the count of them.
    quint64 discart(quint64 size);

    /*!
     * Reads what serialize() writes. False when it does not begin as a ring does, when the stream
     * ends before it or fails, or when its bytes can't be had; nothing has changed then. When the
     * indexes are there and the bytes do not begin as bytes do, or their two sizes do not go
     * together, the storage stays, the indexes are taken, modulo its size, and the result is true.
     */
    [[nodiscard]] bool deserialize(QDataStream &stream) override;
    [[nodiscard]] bool serialize(QDataStream &stream) const override;

private:
    // Bytes up to the edge; 0 also where an index has to be wrapped first, or the end of a full
    // ring to be set.
    quint64 writableAtOnce() const
    {
        return !m_full && m_start <= m_end && m_end < size() ? size() - m_end : 0;
    }
    quint64 readableAtOnce() const
    {
        if (m_start < m_end)
            return !m_full && m_end <= size() ? m_end - m_start : 0;
        return m_full == (m_start == m_end) && m_start < size() ? size() - m_start : 0;
    }
    quint64 writeAround(const char *data, quint64 size);
    quint64 readAround(char *data, quint64 size);
    void wrapIndexes();

    SArray<char> m_data;
    quint64 m_start = 0;
    quint64 m_end = 0;
    bool m_full = false;
};

} // namespace Talverine
