// SPDX-License-Identifier: MIT
#include "packbitscodec_p.h"

#include <QtCore/QtEndian>

#include <algorithm>
#include <bit>
#include <cstddef>
#include <cstring>

namespace Talverine::Compression {

namespace {

constexpr std::ptrdiff_t kShortestRun = 3;
constexpr std::ptrdiff_t kLongestRun = 128;
constexpr std::ptrdiff_t kLongestLiteral = 127;
constexpr std::ptrdiff_t kWordBytes = 8;
// What most packets of pictures stay below; longer ones are moved at full length.
constexpr std::ptrdiff_t kShortMove = 32;
constexpr quint64 kOnes = 0x0101010101010101;

quint64 load(const char *bytes)
{
    return qFromLittleEndian<quint64>(bytes);
}

// The place, counted from the first byte of memory, of the first byte that is not 0.
std::ptrdiff_t firstSetByte(quint64 word)
{
    return std::countr_zero(word) / 8;
}

// The highest bit of each byte that is 0; above the first such byte there may be more bits set.
quint64 zeroBytes(quint64 word)
{
    return (word - kOnes) & ~word & (kOnes << 7);
}

bool isTriple(const char *bytes)
{
    return bytes[0] == bytes[1] && bytes[1] == bytes[2];
}

// A run never takes the last byte, so that four bytes are the least that can begin with one.
bool startsRun(const char *pos, const char *end)
{
    return end - pos > kShortestRun && isTriple(pos);
}

std::ptrdiff_t runLength(const char *pos, const char *end)
{
    const quint64 repeated = static_cast<uchar>(*pos) * kOnes;
    const std::ptrdiff_t longest = std::min(kLongestRun, end - 1 - pos);
    std::ptrdiff_t length = kShortestRun;
    while (length + kWordBytes <= longest) {
        const quint64 differences = load(pos + length) ^ repeated;
        if (differences != 0)
            return length + firstSetByte(differences);
        length += kWordBytes;
    }
    while (length < longest && pos[length] == *pos)
        ++length;
    return length;
}

// The bytes at `pos`, where no run starts, until a run or the end.
std::ptrdiff_t literalLength(const char *pos, const char *end)
{
    const std::ptrdiff_t longest = std::min(kLongestLiteral, end - pos);
    std::ptrdiff_t length = 1;
    // Looks at eight places at once, each of which needs the two bytes behind it.
    while (length < longest && end - pos - length >= kWordBytes + kShortestRun) {
        const quint64 middle = load(pos + length + 1);
        const quint64 differences =
            (load(pos + length) ^ middle) | (middle ^ load(pos + length + 2));
        const quint64 equal = zeroBytes(differences);
        if (equal != 0)
            return std::min(length + firstSetByte(equal), longest);
        length += kWordBytes;
    }
    while (length < longest && !startsRun(pos + length, end))
        ++length;
    return std::min(length, longest);
}

// Copying and filling by constant sizes costs no call and few branches. `isRoomy` tells that the
// longest packet can be read and written here, whatever this one's length is.
void copyBytes(char *target, const char *source, std::ptrdiff_t length, bool isRoomy)
{
    if (!isRoomy) {
        std::memcpy(target, source, static_cast<std::size_t>(length));
        return;
    }
    std::memcpy(target, source, kShortMove);
    if (length > kShortMove)
        std::memcpy(target + kShortMove, source + kShortMove, kPackBitsLongestPacket - kShortMove);
}

void fillBytes(char *target, char byte, std::ptrdiff_t length, bool isRoomy)
{
    if (!isRoomy) {
        std::memset(target, byte, static_cast<std::size_t>(length));
        return;
    }
    std::memset(target, byte, kShortMove);
    if (length > kShortMove)
        std::memset(target + kShortMove, byte, kPackBitsLongestPacket - kShortMove);
}

} // namespace

PackBitsStep packBitsEncode(const char *source, qint64 size, char *target, qint64 room)
{
    const char *const end = source + size;
    const char *pos = source;
    const char *const targetEnd = target + room;
    char *out = target;

    while (pos != end) {
        const bool isRun = startsRun(pos, end);
        const std::ptrdiff_t length = isRun ? runLength(pos, end) : literalLength(pos, end);
        const std::ptrdiff_t stored = isRun ? 1 : length;
        if (targetEnd - out <= stored)
            break;
        *out = static_cast<char>(isRun ? 1 - length : length - 1);
        ++out;
        if (isRun) {
            *out = *pos;
        } else {
            const bool isRoomy = std::min(end - pos, targetEnd - out) >= kPackBitsLongestPacket;
            copyBytes(out, pos, length, isRoomy);
        }
        out += stored;
        pos += length;
    }
    return {pos - source, out - target};
}

PackBitsDecoded packBitsDecode(const char *source, qint64 size, char *target, qint64 room)
{
    const char *const end = source + size;
    const char *pos = source;
    const char *const targetEnd = target + room;
    char *out = target;
    const auto stopped = [&](PackBitsEnd why) {
        return PackBitsDecoded{{pos - source, out - target}, why};
    };

    while (pos != end) {
        if (out == targetEnd)
            return stopped(PackBitsEnd::TargetFull);
        const char code = *pos;
        const char *const content = pos + 1;
        if (code == kPackBitsSkipped) {
            pos = content;
            continue;
        }
        const std::ptrdiff_t length = packBitsLength(code);
        if (targetEnd - out < length)
            return stopped(PackBitsEnd::TargetFull);
        const bool isLiteral = packBitsIsLiteral(code);
        if (isLiteral) {
            if (end - content < length)
                return stopped(PackBitsEnd::LiteralCut);
            const bool isRoomy = std::min(end - content, targetEnd - out) >= kPackBitsLongestPacket;
            copyBytes(out, content, length, isRoomy);
        } else {
            if (content == end)
                return stopped(PackBitsEnd::RunCut);
            fillBytes(out, *content, length, targetEnd - out >= kPackBitsLongestPacket);
        }
        pos = content + (isLiteral ? length : 1);
        out += length;
    }
    return stopped(PackBitsEnd::SourceUsedUp);
}

qint64 packBitsDecodedSize(const char *source, qint64 size)
{
    const char *pos = source;
    const char *const end = source + size;
    qint64 decoded = 0;
    while (pos != end) {
        const char code = *pos;
        ++pos;
        if (code == kPackBitsSkipped)
            continue;
        // Without a branch, which packets of both kinds in turns would make a guess.
        const qint64 stored = 1 + std::max<int>(static_cast<signed char>(code), 0);
        if (end - pos < stored)
            return -1;
        pos += stored;
        decoded += packBitsLength(code);
    }
    return decoded;
}

} // namespace Talverine::Compression
