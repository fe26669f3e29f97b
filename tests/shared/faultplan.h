// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QtGlobal>

#include <chrono>

//! What happens to a connection once a direction has come to the byte of its plan's fault.
enum class FlowFault {
    Reset,     //!< both ends find the connection broken off
    Close,     //!< both ends find the end of the stream; what they still send is dropped
    HalfClose, //!< the receiver finds the end of the stream, the other direction goes on, and what
               //!< the sender still sends is dropped without its noticing
    Stall,     //!< nothing more comes through, and the sender is held up; the connection stands
};

/*!
 * What is to happen to the bytes that go one way through a connection. A plan as it is made lets
 * all pass; each field set adds one thing. Bytes are counted from 0 at the connection's start.
 *
 *     FlowPlan{.delay = 5ms, .faultAt = 100}               // 100 bytes, then a reset
 *     FlowPlan{.packetBytes = 1, .packetPause = 1ms}       // drips
 */
struct FlowPlan
{
    //! How much later each byte leaves than it came.
    std::chrono::milliseconds delay{0};
    //! Bytes that come within this time of the first one leave together, in one packet.
    std::chrono::milliseconds joinWindow{0};
    //! Most bytes of one packet; 0 for no bound.
    qint64 packetBytes = 0;
    //! The least time between two packets. Without any the receiver may find several at once.
    std::chrono::milliseconds packetPause{0};
    //! 0 for no limit.
    qint64 bytesPerSecond = 0;
    //! The byte that leaves with flipBits turned; -1 for none.
    qint64 flipAt = -1;
    quint8 flipBits = 0xFF;
    //! The fault happens as soon as exactly so many bytes have left, 0 at once; -1 for never.
    qint64 faultAt = -1;
    FlowFault fault = FlowFault::Reset;
    //! How long a Stall lasts; 0 until one of the ends gives the connection up.
    std::chrono::milliseconds stallTime{0};
};

//! The two directions of a connection.
struct ConnectionPlan
{
    FlowPlan toServer = {};
    FlowPlan toClient = {};
};
