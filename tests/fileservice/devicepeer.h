// SPDX-License-Identifier: MIT
// A scripted server of a remote device, and what goes over the wire with it.
#pragma once

#include <brixlib/devices/siobuffer.h>
#include <brixlib/fileservice/device/sclientdevice.h>

#include <shared/rawserver.h>

namespace DeviceRequest {

inline QByteArray open(quint32 mode)
{
    return RawBytes::u32(1) + RawBytes::u32(mode);
}

inline QByteArray close()
{
    return RawBytes::u32(2);
}

inline QByteArray seek(qint64 position)
{
    return RawBytes::u32(3) + RawBytes::i64(position);
}

inline QByteArray size()
{
    return RawBytes::u32(4);
}

inline QByteArray read(qint64 count)
{
    return RawBytes::u32(5) + RawBytes::i64(count);
}

inline QByteArray write(const QByteArray &bytes)
{
    return RawBytes::u32(6) + RawBytes::i64(bytes.size()) + bytes;
}

} // namespace DeviceRequest

namespace DeviceReply {

inline QByteArray yes()
{
    return QByteArray(1, '\1');
}

inline QByteArray no()
{
    return QByteArray(1, '\0');
}

inline QByteArray got(const QByteArray &bytes)
{
    return RawBytes::i64(bytes.size()) + bytes;
}

} // namespace DeviceReply

//! The device of "alice" (password "secret") on the file "file".
class RawDevice : public Talverine::SClientDevice
{
public:
    explicit RawDevice(const RawServer &server, int timeoutMs = 10000)
        : SClientDevice(QStringLiteral("127.0.0.1"), QStringLiteral("file"), server.port(),
                        QStringLiteral("alice"), RawBytes::sha512Hex("secret"))
    {
        setTimeout(timeoutMs);
    }

    using SClientDevice::readBuffer;
    using SClientDevice::readData;
    using SClientDevice::writeBuffer;
    using SClientDevice::writeData;
};

//! What a client sends until it is logged in and has named the file.
inline QByteArray deviceHandshake()
{
    const QByteArray answer =
        RawBytes::challengeAnswer(QStringLiteral("secret"), RawServer::uuid());
    return RawBytes::authentication(u"alice", answer) +
           RawBytes::command("cldv", RawBytes::text(u"file"));
}

//! All that a server says until the file is open.
inline QByteArray deviceWelcome()
{
    return RawServer::uuid() + RawBytes::ack() + RawBytes::u32(1) + RawBytes::ack() +
           RawBytes::ack() + DeviceReply::yes();
}

//! Plays the server until the file is open; false when the client does not come so far.
inline bool openDevice(RawConnection &peer, const QByteArray &openReply = DeviceReply::yes())
{
    return peer.send(RawServer::uuid()) && peer.answer(RawBytes::u32(1)) &&
           !peer.readCommand().isEmpty() && peer.send(RawBytes::ack()) &&
           peer.read(8).size() == 8 && peer.send(openReply);
}

//! Reads a request of the size that \a request has, and sends \a reply.
inline bool answerRequest(RawConnection &peer, const QByteArray &request, const QByteArray &reply)
{
    return peer.read(request.size()).size() == request.size() && peer.send(reply);
}
