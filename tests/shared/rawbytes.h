// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QByteArray>
#include <QtCore/QCryptographicHash>
#include <QtCore/QString>

/*!
 * Bytes of the command protocol made by hand, so that a test compares the library with what is
 * written down and not with itself.
 */
namespace RawBytes {

inline QByteArray bigEndian(quint64 value, int size)
{
    QByteArray bytes;
    for (int shift = 8 * (size - 1); shift >= 0; shift -= 8)
        bytes.append(static_cast<char>(value >> shift));
    return bytes;
}

inline QByteArray u32(quint32 value)
{
    return bigEndian(value, 4);
}

inline QByteArray i32(qint32 value)
{
    return bigEndian(static_cast<quint32>(value), 4);
}

inline QByteArray u64(quint64 value)
{
    return bigEndian(value, 8);
}

inline QByteArray i64(qint64 value)
{
    return bigEndian(static_cast<quint64>(value), 8);
}

//! A text: its size in bytes and its UTF-16 units.
inline QByteArray text(QStringView value)
{
    QByteArray bytes = u32(static_cast<quint32>(2 * value.size()));
    for (const QChar unit : value)
        bytes += bigEndian(unit.unicode(), 2);
    return bytes;
}

//! An array of bytes: its size and the bytes.
inline QByteArray array(const QByteArray &value)
{
    return u32(static_cast<quint32>(value.size())) + value;
}

inline QByteArray ack()
{
    return QByteArray::fromHex("A5A5A5A5");
}

inline QByteArray nack()
{
    return QByteArray::fromHex("55AA55AA");
}

//! A length word and the body.
inline QByteArray frame(const QByteArray &body)
{
    return u32(static_cast<quint32>(body.size())) + body;
}

//! The id record of four letters.
inline QByteArray idRecord(const QByteArray &letters)
{
    return QByteArrayLiteral("scmi") + u32(0x00010000) + letters;
}

//! The body of the command with the four letters \a id.
inline QByteArray body(const QByteArray &id, const QByteArray &fields = {},
                       quint32 version = 0x00010000)
{
    return QByteArrayLiteral("scmd") + u32(version) + idRecord(id) + fields;
}

//! The whole frame of a command.
inline QByteArray command(const QByteArray &id, const QByteArray &fields = {},
                          quint32 version = 0x00010000)
{
    return frame(body(id, fields, version));
}

inline QByteArray sha512Hex(const QByteArray &bytes)
{
    return QCryptographicHash::hash(bytes, QCryptographicHash::Sha512).toHex();
}

//! The braces form of the 16 bytes of a uuid.
inline QByteArray uuidText(const QByteArray &uuid)
{
    const QByteArray hex = uuid.toHex();
    return '{' + hex.mid(0, 8) + '-' + hex.mid(8, 4) + '-' + hex.mid(12, 4) + '-' + hex.mid(16, 4) +
           '-' + hex.mid(20) + '}';
}

//! What proves the knowledge of \a password on the connection greeted with \a uuid.
inline QByteArray challengeAnswer(const QString &password, const QByteArray &uuid)
{
    return sha512Hex(sha512Hex(password.toUtf8()) + uuidText(uuid));
}

inline QByteArray authentication(QStringView username, const QByteArray &answer)
{
    return command("auth", text(username) + text(QString::fromLatin1(answer)));
}

} // namespace RawBytes
