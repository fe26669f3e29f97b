// SPDX-License-Identifier: MIT
#pragma once

#include <brixlib/brixlib_export.h>
#include <brixlib/protocol/scommandid.h>

#include <QtCore/QDataStream>
#include <QtCore/QHash>
#include <QtCore/QList>
#include <QtCore/QString>

/*!
 * The bodies of the reply frames of the base protocol that are more than one value. Writers and
 * readers work at the version of the stream and report through its status. A reader spends memory
 * only on what has really arrived, whatever count stands in front of it, and gives an empty result
 * when the stream fails.
 */
namespace Talverine::Replies {

//! What a server says about its commands.
struct CommandList
{
    QList<SCommandId> ids;              //!< in the order of the reply
    QHash<SCommandId, qint32> versions; //!< of every id; 0 where the reply has none
};

//! The form without versions: the ids in the given order.
BRIXLIB_EXPORT void writeCommandIds(QDataStream &stream, const QList<SCommandId> &ids);
//! The form with versions: all ids, then all versions, both in the order of one walk of the hash.
BRIXLIB_EXPORT void writeCommandVersions(QDataStream &stream,
                                         const QHash<SCommandId, qint32> &versions);
//! Reads either form; the one without versions ends with the stream.
BRIXLIB_EXPORT CommandList readCommandList(QDataStream &stream);

//! A count and so many QStrings: names of pluggables, paths of files.
BRIXLIB_EXPORT void writeTexts(QDataStream &stream, const QList<QString> &texts);
BRIXLIB_EXPORT QList<QString> readTexts(QDataStream &stream);

/*!
 * Reads a count and calls \a readItem() so often, but stops when the stream is no longer good. Each
 * call must take at least one byte, so that a false count ends with the bytes.
 */
template<class ReadItem>
void readCounted(QDataStream &stream, ReadItem readItem)
{
    quint32 count = 0;
    stream >> count;
    for (quint32 i = 0; i < count && stream.status() == QDataStream::Ok; ++i)
        readItem();
}

} // namespace Talverine::Replies
