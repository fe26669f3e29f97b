// SPDX-License-Identifier: MIT
#pragma once

#include <shared/stallgate.h>

#include <QtCore/QByteArray>
#include <QtCore/QIODevice>
#include <QtCore/QPointer>

#include <chrono>

//! What is to happen to the reads, or to the writes, of a device. Bytes are counted from 0.
struct ChannelPlan
{
    //! Most bytes that one call moves; 0 for no bound.
    qint64 pieceBytes = 0;
    //! After so many bytes every call fails; -1 for never.
    qint64 errorAt = -1;
    //! After so many bytes the next call stalls, once; -1 for never.
    qint64 stallAt = -1;
};

/*!
 * What is to go wrong with a device. A plan as it is made lets all go well.
 *
 *     DevicePlan{.read = {.pieceBytes = 1}}                // as slow a reader as there is
 *     DevicePlan{.capacity = 4096}                         // a disk that runs full
 */
struct DevicePlan
{
    ChannelPlan read = {};
    ChannelPlan write = {};
    //! How many bytes can be written in all before the device is full; -1 for no bound.
    qint64 capacity = -1;
    //! How long a stall lasts at most, after which the call goes on.
    std::chrono::milliseconds stallTime = std::chrono::seconds(30);
    bool failsToOpen = false;
    //! The last so many bytes are held back until close(), which fails and loses them; -1 for a
    //! close() that goes well.
    qint64 lostOnClose = -1;
};

/*!
 * A device over another one in which goes wrong what a plan says.
 *
 *     QBuffer disk;
 *     FaultDevice device(&disk, {.capacity = 4096});
 *     QVERIFY(device.open(QIODevice::WriteOnly));
 *     QVERIFY(!copy(source, &device));
 *
 * It opens and closes the other device with itself if that was closed, reads and writes unbuffered,
 * and is as sequential as the other. It does not own it. Lives in one thread; what tells of stalls
 * may be called from any.
 */
class FaultDevice final : public QIODevice
{
    Q_OBJECT

public:
    explicit FaultDevice(QIODevice *device, const DevicePlan &plan = {}, QObject *parent = nullptr);
    ~FaultDevice() override;

    bool isSequential() const override;
    bool open(OpenMode mode) override;
    //! A failure that was planned shows in closeFailed() and errorString() afterwards.
    void close() override;
    bool closeFailed() const { return m_closeFailed; }

    qint64 size() const override;
    bool seek(qint64 position) override;
    bool atEnd() const override;
    qint64 bytesAvailable() const override;
    qint64 bytesToWrite() const override;
    bool waitForReadyRead(int msec) override;
    bool waitForBytesWritten(int msec) override;

    //! Bytes that were read, and that were taken for writing, since it was made.
    qint64 bytesRead() const { return m_read.done; }
    qint64 bytesTaken() const { return m_write.done; }

    //! Waits until a call stalls; false when that does not come in time.
    [[nodiscard]] bool waitForStall(std::chrono::milliseconds patience)
    {
        return m_gate.waitForHold(patience);
    }
    //! Ends the stall that is, or all that come.
    void release() { m_gate.release(); }

protected:
    qint64 readData(char *data, qint64 size) override;
    qint64 writeData(const char *data, qint64 size) override;

private:
    struct Channel
    {
        const ChannelPlan plan;
        qint64 done = 0;
        bool hasStalled = false;
    };

    bool begin(Channel *channel, qint64 *size);
    qint64 hold(const char *data, qint64 size);
    bool passOn(qint64 keep);

    QPointer<QIODevice> m_device;
    const DevicePlan m_plan;
    Channel m_read;
    Channel m_write;
    StallGate m_gate;
    QByteArray m_heldBack;
    bool m_opened = false; // the other device, by this one
    bool m_closeFailed = false;
};
