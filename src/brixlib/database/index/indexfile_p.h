// SPDX-License-Identifier: MIT
// The file that keeps the indexes of a closed database. Its writer has counts of 64 bits and its
// reader counts of 32, so that what is written reads as an index without keys, and every open goes
// by the text. Both stay as they are: other programs have files of both kinds.
#pragma once

#include <QtCore/QByteArray>

#include <functional>
#include <optional>

class QIODevice;

namespace Talverine {

class FieldIndexes;
class KeyIndex;

//! The whole file but its copying to disk. \a hash is the checksum of the database file.
[[nodiscard]] bool writeIndex(QIODevice *target, const QByteArray &hash, const KeyIndex &keys,
                              const FieldIndexes &fields);

/*!
 * Reads the file item by item. An item that is cut off, or that claims to be longer than what is
 * left of the file, is nothing.
 */
class IndexReader
{
public:
    using AddKey = std::function<void(const QString &key, qint64 position)>;

    explicit IndexReader(QIODevice *device)
        : m_device(device)
    {
    }

    [[nodiscard]] bool readMagic();
    std::optional<QByteArray> readArray();
    std::optional<qint32> readCount();
    //! Calls \a add with each of \a count keys; none when that is negative.
    [[nodiscard]] bool readKeys(qint32 count, const AddKey &add);
    //! Adds all field indexes; those before one that is cut off stay.
    [[nodiscard]] bool readFieldIndexes(FieldIndexes *fields);

private:
    std::optional<QString> readText();
    template<typename T>
    std::optional<T> readNumber();
    bool readFieldIndex(FieldIndexes *fields);

    QIODevice *m_device;
};

} // namespace Talverine
