// SPDX-License-Identifier: MIT
#include "indexfile_p.h"

#include "fieldindexes_p.h"
#include "keyindex_p.h"

#include <brixrt/sfilehelper.h>

#include <QtCore/QIODevice>
#include <QtCore/QtEndian>

namespace Talverine {

namespace {

constexpr int kPieceBytes = 32768;

const QByteArray &magic()
{
    static const QByteArray bytes("IDX4");
    return bytes;
}

bool write(QIODevice *target, const QByteArray &bytes)
{
    return target->write(bytes) == bytes.size();
}

template<typename T>
bool writeNumber(QIODevice *target, T number)
{
    QByteArray bytes(sizeof number, Qt::Uninitialized);
    qToBigEndian(number, bytes.data());
    return write(target, bytes);
}

bool writeArray(QIODevice *target, const QByteArray &bytes)
{
    return writeNumber(target, static_cast<quint32>(bytes.size())) && write(target, bytes);
}

bool writeKeys(QIODevice *target, const KeyIndex &keys)
{
    return writeNumber(target, qint64(keys.count())) &&
           keys.forEach([target](const KeyIndex::Entry &entry) {
               return writeArray(target, entry.key.toUtf8()) && writeNumber(target, entry.position);
           });
}

bool writeFieldIndex(QIODevice *target, const QString &name, const FieldIndexes::Map &map)
{
    if (!writeArray(target, name.toUtf8()) || !writeNumber(target, qint64(map.size())))
        return false;
    for (auto pair = map.begin(); pair != map.end(); ++pair) {
        if (!writeArray(target, pair.key().toUtf8()) || !writeArray(target, pair->toUtf8()))
            return false;
    }
    return true;
}

} // namespace

bool writeIndex(QIODevice *target, const QByteArray &hash, const KeyIndex &keys,
                const FieldIndexes &fields)
{
    if (!write(target, magic()) || !writeArray(target, hash) || !writeKeys(target, keys))
        return false;
    const QList<QString> names = fields.names();
    if (!writeNumber(target, qint64(names.size())))
        return false;
    for (const QString &name : names) {
        if (!writeFieldIndex(target, name, fields.map(name)))
            return false;
    }
    return true;
}

bool IndexReader::readMagic()
{
    return m_device->read(magic().size()) == magic();
}

std::optional<QByteArray> IndexReader::readArray()
{
    const std::optional<quint32> size = readNumber<quint32>();
    if (!size || *size > m_device->bytesAvailable())
        return std::nullopt;
    QByteArray bytes = SFileHelper::readAllBuffer(m_device, *size, kPieceBytes);
    if (bytes.size() != *size)
        return std::nullopt;
    return bytes;
}

std::optional<qint32> IndexReader::readCount()
{
    return readNumber<qint32>();
}

bool IndexReader::readKeys(qint32 count, const AddKey &add)
{
    for (; count > 0; --count) {
        const std::optional<QString> key = readText();
        const std::optional<qint64> position = key ? readNumber<qint64>() : std::nullopt;
        if (!position)
            return false;
        add(*key, *position);
    }
    return true;
}

bool IndexReader::readFieldIndexes(FieldIndexes *fields)
{
    const std::optional<qint32> count = readCount();
    if (!count)
        return false;
    for (qint32 i = 0; i < *count; ++i) {
        if (!readFieldIndex(fields))
            return false;
    }
    return true;
}

bool IndexReader::readFieldIndex(FieldIndexes *fields)
{
    const std::optional<QString> name = readText();
    const std::optional<qint32> count = name ? readCount() : std::nullopt;
    if (!count)
        return false;
    FieldIndexes::Map map;
    for (qint32 i = 0; i < *count; ++i) {
        const std::optional<QString> value = readText();
        const std::optional<QString> key = value ? readText() : std::nullopt;
        if (!key)
            return false;
        map.insert(*value, *key);
    }
    fields->set(*name, map);
    return true;
}

std::optional<QString> IndexReader::readText()
{
    const std::optional<QByteArray> bytes = readArray();
    if (!bytes)
        return std::nullopt;
    QString text = QString::fromUtf8(*bytes);
    // What decoding takes for a byte order mark is a character of a text like this.
    if (bytes->startsWith("\xEF\xBB\xBF"))
        text.prepend(QChar(QChar::ByteOrderMark));
    return text;
}

template<typename T>
std::optional<T> IndexReader::readNumber()
{
    const QByteArray bytes = m_device->read(sizeof(T));
    if (bytes.size() != sizeof(T))
        return std::nullopt;
    return qFromBigEndian<T>(bytes.constData());
}

} // namespace Talverine
