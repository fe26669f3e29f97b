// SPDX-License-Identifier: MIT
// The reader of a ring buffer and what is done with one that was read. The first byte of an input
// is the size of the ring before, the second the count of calls behind; then come a byte for each
// call and the bytes of the ring.
#include "../fuzztarget.h"
#include "../targets.h"

#include <brixlib/devices/siobuffer.h>

using namespace Talverine;

namespace Fuzz {

namespace {

QByteArray serialized(const SIOBuffer &ring)
{
    QByteArray bytes;
    QDataStream stream(&bytes, QIODevice::WriteOnly);
    require(ring.serialize(stream), "a ring cannot be written");
    return bytes;
}

QByteArray contentsOf(SIOBuffer ring)
{
    return ring.read(quint64(-1));
}

// Eight bytes of each call's value: as many go in, come out, or are dropped.
void call(SIOBuffer &ring, quint8 code)
{
    const QByteArray before = contentsOf(ring);
    const qsizetype size = code >> 2;
    const QByteArray bytes(size, static_cast<char>(code));
    QByteArray expected = before;
    switch (code & 3) {
    case 0: {
        const auto count = static_cast<qsizetype>(ring.write(bytes));
        require(count <= size, "a ring takes more than it is given");
        expected += bytes.first(count);
        break;
    }
    case 1:
        require(ring.read(static_cast<quint64>(size)) == before.first(qMin(size, before.size())),
                "a ring gives other bytes than it has");
        expected.remove(0, size);
        break;
    case 2:
        ring.discart(static_cast<quint64>(size));
        expected.remove(0, size);
        break;
    default:
        require(ring.contains(bytes.isEmpty() ? '\0' : bytes.front()) ==
                    before.contains(bytes.isEmpty() ? '\0' : bytes.front()),
                "a ring does not know what it has");
    }
    require(contentsOf(ring) == expected, "a ring has lost count");
    require(ring.bytesAvailable() + ring.bytesFree() == ring.size(), "a ring has another size");
}

} // namespace

bool ioBuffer(const QByteArray &input)
{
    Input bytes(input);
    SIOBuffer ring(bytes.byte());
    ring.write("before");
    const QByteArrayView calls = bytes.bytes(bytes.byte());
    const QByteArray before = serialized(ring);

    QDataStream stream(bytes.rest());
    const bool accepted = ring.deserialize(stream);
    require(accepted || serialized(ring) == before, "a ring that could not be read has changed");
    for (const char code : calls)
        call(ring, static_cast<quint8>(code));

    SIOBuffer again;
    QDataStream written(serialized(ring));
    require(again.deserialize(written) && contentsOf(again) == contentsOf(ring),
            "a ring changes on its way");
    return accepted;
}

} // namespace Fuzz
