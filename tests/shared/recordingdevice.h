// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QByteArray>
#include <QtCore/QIODevice>
#include <QtCore/QList>

#include <algorithm>

//! A device in memory that notes what is asked of it, and goes wrong where it is told to.
class RecordingDevice : public QIODevice
{
public:
    explicit RecordingDevice(const QByteArray &content = {})
        : bytes(content)
    {
    }

    // Unbuffered, so that each request is seen as it was made.
    bool open(OpenMode mode) override { return opens && QIODevice::open(mode | Unbuffered); }
    bool isSequential() const override { return sequential; }
    qint64 size() const override
    {
        if (sequential)
            return 0;
        return claimedSize < 0 ? bytes.size() : claimedSize;
    }
    qint64 bytesAvailable() const override
    {
        return QIODevice::bytesAvailable() + (sequential ? bytes.size() - at : 0);
    }
    qint64 bytesToWrite() const override { return waiting; }
    bool canReadLine() const override { return line; }
    bool seek(qint64 position) override
    {
        seeks.append(position);
        at = position;
        return seekable && QIODevice::seek(position);
    }
    bool waitForReadyRead(int msecs) override
    {
        readWaits.append(msecs);
        return waitsEndWell;
    }
    bool waitForBytesWritten(int msecs) override
    {
        writeWaits.append(msecs);
        return waitsEndWell;
    }

    //! Sets errorString().
    void setReason(const QString &reason) { setErrorString(reason); }

    QByteArray bytes;
    qsizetype at = 0; //!< where the next byte is read or written
    bool opens = true;
    bool sequential = false;
    bool seekable = true;
    bool line = false;
    qint64 claimedSize = -1; //!< size(), -1 for that of the bytes
    qint64 waiting = 0;      //!< bytesToWrite()
    qint64 pieceBytes = 0;   //!< most that one call moves, 0 for no bound
    bool failsToRead = false;
    int readsUntilFailure = -1; //!< how many more reads go well, -1 for no bound
    bool failsToWrite = false;
    qint64 room = -1; //!< how many more bytes are taken, -1 for no bound
    bool waitsEndWell = false;

    QList<qint64> reads;         //!< what was asked for
    QList<QByteArray> writes;    //!< what was taken
    QList<const char *> sources; //!< from where it was taken
    QList<qint64> seeks;
    QList<int> readWaits;  //!< the time-outs of waitForReadyRead()
    QList<int> writeWaits; //!< those of waitForBytesWritten()

protected:
    qint64 readData(char *data, qint64 maxSize) override
    {
        reads.append(maxSize);
        if (failsToRead || readsUntilFailure == 0)
            return -1;
        if (readsUntilFailure > 0)
            --readsUntilFailure;
        const qint64 count = bounded(std::min<qint64>(maxSize, bytes.size() - at));
        std::copy_n(bytes.constData() + at, count, data);
        at += count;
        return count;
    }

    qint64 writeData(const char *data, qint64 size) override
    {
        if (failsToWrite)
            return -1;
        qint64 count = bounded(size);
        if (room >= 0) {
            count = std::min(count, room);
            room -= count;
        }
        writes.append(QByteArray(data, count));
        sources.append(data);
        bytes.replace(at, count, writes.last());
        at += count;
        return count;
    }

private:
    qint64 bounded(qint64 size) const { return pieceBytes > 0 ? std::min(size, pieceBytes) : size; }
};
