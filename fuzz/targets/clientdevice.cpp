// SPDX-License-Identifier: MIT
// A remote device under a server that answers anything. The first byte of an input is a
// DeviceStage. Then come the count of calls, a DeviceCall for each, and the server's answers.
#include "../fuzztarget.h"
#include "../inputforms.h"
#include "../replyserver.h"
#include "../sessionbytes.h"
#include "../targets.h"

#include <brixlib/fileservice/device/sclientdevice.h>

#include <QtCore/QBuffer>

#include <array>

using namespace Talverine;
using namespace Qt::StringLiterals;

namespace Fuzz {

namespace {

constexpr int kCallLimit = 16;

// Reads into a block of just the size, so that a byte too much is noticed.
bool reads(SClientDevice &device, qint64 size)
{
    const auto block = std::make_unique_for_overwrite<char[]>(static_cast<size_t>(size));
    const qint64 count = device.read(block.get(), size);
    require(count >= -1 && count <= size, "a read gives more than was asked for");
    return count >= 0;
}

bool copies(SClientDevice &device)
{
    QBuffer target;
    return SClientDevice::copy(&target, &device, 1000);
}

bool tellsSize(SClientDevice &device)
{
    const qint64 size = device.size();
    require(size >= -1, "a device has a negative size");
    return size >= 0;
}

bool closes(SClientDevice &device)
{
    bool isConfirmed = false;
    device.close(&isConfirmed);
    return isConfirmed;
}

// In the order of DeviceCall.
constexpr std::array<bool (*)(SClientDevice &), kDeviceCalls> kCalls{
    [](SClientDevice &device) { return reads(device, 5); },
    [](SClientDevice &device) { return reads(device, 4096); },
    [](SClientDevice &device) { return device.write("12345") == 5; },
    [](SClientDevice &device) { return device.seek(3); },
    tellsSize,
    [](SClientDevice &device) { return device.bytesAvailable() >= 0; },
    [](SClientDevice &device) { return device.atEnd(); },
    copies,
    closes,
};

} // namespace

bool clientDevice(const QByteArray &input)
{
    static ReplyServer server;
    Input bytes(input);
    const auto stage = DeviceStage(bytes.byte());
    const QByteArrayView calls = bytes.bytes(bytes.byte() % (kCallLimit + 1));
    const QByteArray opening = stage == DeviceStage::Opening
                                   ? SessionBytes::greeting() + SessionBytes::deviceWelcome()
                                   : QByteArray();
    server.prepare(opening + bytes.rest());

    SClientDevice device(u"127.0.0.1"_s, u"a.txt"_s, server.port(), u"alice"_s, QByteArray("hash"));
    bool succeeded = device.open(QIODevice::ReadWrite);
    // A device that is not open must not be used, Qt says.
    for (qsizetype i = 0; i < calls.size() && device.isOpen(); ++i)
        succeeded = kCalls[static_cast<quint8>(calls[i]) % kCalls.size()](device) && succeeded;
    return succeeded;
}

} // namespace Fuzz
