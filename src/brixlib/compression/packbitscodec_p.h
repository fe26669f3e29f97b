// SPDX-License-Identifier: MIT
// The packets of PackBits, between byte ranges. A packet's first byte n, as a signed number, tells
// what follows: 0 to 127 the next n + 1 bytes as they are, -127 to -1 one byte that stands 1 - n
// times, -128 nothing.
#pragma once

#include <QtCore/QtGlobal>

namespace Talverine::Compression {

//! Plain bytes of the longest packet.
constexpr qint64 kPackBitsLongestPacket = 128;

//! The first byte of a packet that stands for nothing and has no more bytes.
constexpr char kPackBitsSkipped = -128;

//! Bytes that \a size plain bytes, at least one, never need more than encoded.
constexpr qint64 packBitsBound(qint64 size)
{
    return size + size / 127 + 1;
}

//! Whether the packet with this first byte has its bytes as they are. Not for the one that is
//! skipped.
constexpr bool packBitsIsLiteral(char code)
{
    return static_cast<signed char>(code) >= 0;
}

//! Plain bytes of the packet with this first byte. Not for the one that is skipped.
constexpr qint64 packBitsLength(char code)
{
    const int n = static_cast<signed char>(code);
    return 1 + (n < 0 ? -n : n);
}

//! How far a step came, in bytes.
struct PackBitsStep
{
    qint64 consumed;
    qint64 produced;
};

/*!
 * Encodes into whole packets until all \a size bytes are consumed or \a room is too small for the
 * next packet. What comes after in \a target may be overwritten, up to \a room. Going on where a
 * step stopped gives the bytes that a step with more room would have given.
 *
 * A run has 3 to 128 equal bytes, never the last byte of the source among them; a literal packet
 * has up to 127 bytes.
 */
PackBitsStep packBitsEncode(const char *source, qint64 size, char *target, qint64 room);

//! Why decoding stopped.
enum class PackBitsEnd { SourceUsedUp, TargetFull, RunCut, LiteralCut };

struct PackBitsDecoded : PackBitsStep
{
    PackBitsEnd end;
};

/*!
 * Decodes whole packets until the source is used up, the target is full, or a packet does not fit
 * into what is left of the target or runs past the source; that packet is not consumed. What comes
 * after in \a target may be overwritten, up to \a room.
 */
PackBitsDecoded packBitsDecode(const char *source, qint64 size, char *target, qint64 room);

//! How many bytes the packets stand for, -1 if the last one runs past the source.
qint64 packBitsDecodedSize(const char *source, qint64 size);

} // namespace Talverine::Compression
