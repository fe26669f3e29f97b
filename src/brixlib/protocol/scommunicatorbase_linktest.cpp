// SPDX-License-Identifier: MIT
// The two phases of a link test, which either end plays from its side.
#include <brixlib/protocol/scommunicatorbase.h>
#include <brixlib/protocol/socket/stcpsocket.h>

#include "blockingio_p.h"

#include <QtCore/QDeadlineTimer>
#include <QtCore/QElapsedTimer>
#include <QtCore/QtEndian>

#include <algorithm>
#include <new>

namespace Talverine {

namespace {

constexpr qint64 kBlockBytes = 1048576;
// The size of a block goes out in front of it, in the same write.
constexpr qint64 kSizeBytes = sizeof(quint64);
constexpr quint64 kEndWord = 0;
constexpr int kIdleWaitMs = 100;
// Before that an estimate of the whole would mean nothing.
constexpr int kReportAfterMs = 500;
// The planned time is the peer's word; twice this still fits the signal's numbers.
constexpr double kLargestEstimate = 1e18;

// Less than none is none.
qint64 plannedMs(int seconds)
{
    return std::max<qint64>(seconds, 0) * 1000;
}

// With a time-out of 0 no write waits, and what the peer does not take would pile up here.
bool hasLeft(STcpSocket *socket)
{
    if (socket->bytesToWrite() != 0)
        socket->flush();
    return socket->bytesToWrite() == 0;
}

} // namespace

double SCommunicatorBase::LinkTestPhase::bytesPerSecond() const
{
    return seconds > 0.0 ? static_cast<double>(bytes) / seconds : 0.0;
}

std::unique_ptr<char[]> SCommunicatorBase::makeLinkTestBlock()
{
    return std::unique_ptr<char[]>(new (std::nothrow) char[kSizeBytes + kBlockBytes]);
}

bool SCommunicatorBase::sendLinkTest(int seconds, char *block, const LinkTestPhase *first,
                                     LinkTestPhase *phase)
{
    if (!block)
        return false;
    constexpr qint64 size = kSizeBytes + kBlockBytes;
    // What lay in the memory before is not the peer's business.
    std::fill_n(block, size, '\0');
    qToBigEndian(kBlockBytes, block);
    const qint64 planned = plannedMs(seconds);
    QElapsedTimer timer;
    timer.start();
    while (timer.elapsed() < planned) {
        if (isInterruptionRequested() || writeAll(socket(), block, size) != size ||
            !hasLeft(socket()))
            return false;
        phase->bytes += kBlockBytes;
        reportLinkTest(phase->bytes, timer.elapsed(), planned, first);
    }
    if (!writeWord64(socket(), kEndWord))
        return false;
    phase->seconds = static_cast<double>(timer.nsecsElapsed()) / 1e9;
    return true;
}

bool SCommunicatorBase::receiveLinkTest(int seconds, char *block, const LinkTestPhase *first,
                                        LinkTestPhase *phase)
{
    if (!block)
        return false;
    const qint64 planned = plannedMs(seconds);
    QElapsedTimer timer;
    timer.start();
    while (waitForLinkTestBlock()) {
        quint64 size = kEndWord;
        if (!readWord64(socket(), &size) || size == kEndWord) {
            phase->seconds = static_cast<double>(timer.nsecsElapsed()) / 1e9;
            return true;
        }
        if (size > quint64(kBlockBytes))
            return false;
        const auto count = static_cast<qint64>(size);
        if (readAll(socket(), block, count) != count)
            return false;
        phase->bytes += count;
        reportLinkTest(phase->bytes, timer.elapsed(), planned, first);
    }
    return false;
}

// The time-out counts from block to block.
bool SCommunicatorBase::waitForLinkTestBlock()
{
    const QDeadlineTimer deadline(std::max(timeout(), -1)); // only -1 lasts for ever
    while (socket() && socket()->state() == QAbstractSocket::ConnectedState &&
           !isInterruptionRequested()) {
        const qint64 slice =
            timeout() < 0 ? kIdleWaitMs : std::min<qint64>(deadline.remainingTime(), kIdleWaitMs);
        if (BlockingIo::waitForBytes(socket(), static_cast<int>(slice)))
            return true;
        if (deadline.hasExpired())
            return false;
    }
    return false;
}

// While the first phase runs, the second is taken to move as much.
void SCommunicatorBase::reportLinkTest(qint64 bytes, qint64 elapsed, qint64 planned,
                                       const LinkTestPhase *first)
{
    if (elapsed < kReportAfterMs)
        return;
    const double whole =
        static_cast<double>(bytes) / static_cast<double>(elapsed) * static_cast<double>(planned);
    const auto estimate = static_cast<qint64>(std::min(whole, kLargestEstimate));
    if (first)
        Q_EMIT transferredBytes(first->bytes + bytes, first->bytes + estimate);
    else
        Q_EMIT transferredBytes(bytes, 2 * estimate);
}

} // namespace Talverine
