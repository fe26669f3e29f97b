// SPDX-License-Identifier: MIT
#include <brixlib/fileservice/filereplies.h>

#include <brixlib/protocol/replies.h>
#include <brixlib/protocol/wire.h>

namespace Talverine::Replies {

namespace {

SFileEntry readEntry(QDataStream &stream)
{
    quint32 recordVersion = 0;
    QString fileName;
    qint64 size = 0;
    quint32 flags = 0;
    QDateTime lastModified;
    stream >> recordVersion >> fileName >> size >> flags;
    if (recordVersion >= Wire::kEntryRecordVersion)
        stream >> lastModified;
    return SFileEntry(fileName, size, lastModified, static_cast<FileEntryFlags>(flags));
}

} // namespace

void writeEntry(QDataStream &stream, const SFileEntry &entry)
{
    stream << Wire::kEntryRecordVersion << entry.fileName() << entry.size()
           << static_cast<quint32>(entry.flags()) << entry.lastModified();
}

void writeEntries(QDataStream &stream, const QList<SFileEntry> &entries)
{
    stream << static_cast<quint32>(entries.size());
    for (const SFileEntry &entry : entries)
        writeEntry(stream, entry);
}

QList<SFileEntry> readEntries(QDataStream &stream)
{
    QList<SFileEntry> entries;
    readCounted(stream, [&] { entries.append(readEntry(stream)); });
    return stream.status() == QDataStream::Ok ? entries : QList<SFileEntry>();
}

} // namespace Talverine::Replies
