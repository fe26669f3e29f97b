// SPDX-License-Identifier: MIT
// The reader of the file that keeps the indexes of a closed database: an input is the file.
#include "../fuzztarget.h"
#include "../targets.h"

#include <brixlib/database/index/fieldindexes_p.h>
#include <brixlib/database/index/indexfile_p.h>
#include <brixlib/database/index/keyindex_p.h>

#include <QtCore/QBuffer>
#include <QtCore/QMap>

#include <algorithm>
#include <utility>

using namespace Talverine;

namespace Fuzz {

namespace {

using Pairs = QList<std::pair<QString, QString>>;

// What a file holds as far as it can be read.
struct Index
{
    QByteArray hash;
    QList<std::pair<QString, qint64>> keys;
    QMap<QString, Pairs> fields; // whole ones, their pairs in order
    bool isWhole = false;

    bool operator==(const Index &other) const = default;
};

// Takes numbers and texts from the front of the bytes; false where they end too early.
class Items
{
public:
    explicit Items(QByteArrayView bytes)
        : m_rest(bytes)
    {
    }

    bool take(int bytes, qint64 *number)
    {
        if (m_rest.size() < bytes)
            return false;
        quint64 bits = 0;
        for (int i = 0; i < bytes; ++i)
            bits = bits << 8 | static_cast<quint8>(m_rest[i]);
        *number = static_cast<qint64>(bits);
        m_rest = m_rest.sliced(bytes);
        return true;
    }
    bool take(QByteArray *bytes)
    {
        qint64 size = 0;
        if (!take(4, &size) || size > m_rest.size())
            return false;
        *bytes = m_rest.first(size).toByteArray();
        m_rest = m_rest.sliced(size);
        return true;
    }
    // Every character, even a byte order mark in front.
    bool take(QString *text)
    {
        QByteArray bytes;
        if (!take(&bytes))
            return false;
        *text = QString::fromUtf8("x" + bytes).mid(1);
        return true;
    }

private:
    QByteArrayView m_rest;
};

// One of 32 bits has a sign.
bool takeCount(Items *items, int countBytes, qint64 *count)
{
    if (!items->take(countBytes, count))
        return false;
    if (countBytes == 4)
        *count = static_cast<qint32>(*count);
    return true;
}

bool takeKeys(Items *items, qint64 count, Index *index)
{
    for (; count > 0; --count) {
        QString key;
        qint64 position = 0;
        if (!items->take(&key) || !items->take(8, &position))
            return false;
        index->keys.append({key, position});
    }
    return true;
}

bool takeField(Items *items, int countBytes, Index *index)
{
    QString name;
    qint64 count = 0;
    if (!items->take(&name) || !takeCount(items, countBytes, &count))
        return false;
    Pairs pairs;
    for (; count > 0; --count) {
        std::pair<QString, QString> pair;
        if (!items->take(&pair.first) || !items->take(&pair.second))
            return false;
        pairs.append(pair);
    }
    std::sort(pairs.begin(), pairs.end());
    index->fields.insert(name, pairs);
    return true;
}

bool takeIndex(Items *items, int countBytes, Index *index)
{
    qint64 count = 0;
    if (!items->take(&index->hash) || !takeCount(items, countBytes, &count) ||
        !takeKeys(items, count, index) || !takeCount(items, countBytes, &count))
        return false;
    for (; count > 0; --count) {
        if (!takeField(items, countBytes, index))
            return false;
    }
    return true;
}

// What the reader at work is compared with.
Index plainIndex(const QByteArray &file, int countBytes)
{
    Index index;
    if (!file.startsWith("IDX4"))
        return index;
    Items items(QByteArrayView(file).sliced(4));
    index.isWhole = takeIndex(&items, countBytes, &index);
    return index;
}

QMap<QString, Pairs> pairsOf(const FieldIndexes &fields)
{
    QMap<QString, Pairs> result;
    for (const QString &name : fields.names()) {
        Pairs pairs;
        const FieldIndexes::Map map = fields.map(name);
        for (auto pair = map.begin(); pair != map.end(); ++pair)
            pairs.append({pair.key(), *pair});
        std::sort(pairs.begin(), pairs.end());
        result.insert(name, pairs);
    }
    return result;
}

Index read(const QByteArray &file, FieldIndexes *fields)
{
    QBuffer buffer;
    buffer.setData(file);
    require(buffer.open(QIODevice::ReadOnly), "a buffer can't be opened");
    IndexReader reader(&buffer);
    Index index;
    if (!reader.readMagic())
        return index;
    const std::optional<QByteArray> hash = reader.readArray();
    index.hash = hash.value_or(QByteArray());
    const std::optional<qint32> count = hash ? reader.readCount() : std::nullopt;
    const auto add = [&index](const QString &key, qint64 position) {
        index.keys.append({key, position});
    };
    index.isWhole = count && reader.readKeys(*count, add) && reader.readFieldIndexes(fields);
    index.fields = pairsOf(*fields);
    return index;
}

// The file is written with wider counts than it is read, with each key once and in order.
void requireRoundTrip(Index index, const FieldIndexes &fields)
{
    KeyIndex keys;
    QMap<QString, qint64> first;
    for (const auto &[key, position] : std::as_const(index.keys)) {
        keys.add(key, position);
        if (!key.isEmpty() && !first.contains(key))
            first.insert(key, position);
    }
    QBuffer buffer;
    require(buffer.open(QIODevice::WriteOnly) && writeIndex(&buffer, index.hash, keys, fields),
            "an index can't be written");
    index.keys.clear();
    for (auto key = first.constBegin(); key != first.constEnd(); ++key)
        index.keys.append({key.key(), *key});
    require(plainIndex(buffer.data(), 8) == index, "an index changes when it is written");
}

} // namespace

bool indexFile(const QByteArray &input)
{
    FieldIndexes fields;
    const Index index = read(input, &fields);
    require(index == plainIndex(input, 4), "an index is read otherwise");
    if (index.isWhole)
        requireRoundTrip(index, fields);
    return index.isWhole;
}

} // namespace Fuzz
