// SPDX-License-Identifier: MIT
// The reader of a folder's entries: an input is the body of the answer.
#include "../fuzztarget.h"
#include "../targets.h"

#include <brixlib/fileservice/filereplies.h>

#include <QtCore/QIODevice>
#include <QtCore/QTimeZone>

using namespace Talverine;

namespace Fuzz {

namespace {

QList<SFileEntry> read(const QByteArray &bytes, QDataStream::Version version, bool *accepted)
{
    QDataStream stream(bytes);
    stream.setVersion(version);
    QList<SFileEntry> entries = Replies::readEntries(stream);
    *accepted = stream.status() == QDataStream::Ok;
    require(*accepted || entries.isEmpty(), "half a list of entries");
    return entries;
}

QByteArray written(const QList<SFileEntry> &entries, QDataStream::Version version)
{
    QByteArray bytes;
    QDataStream stream(&bytes, QIODevice::WriteOnly);
    stream.setVersion(version);
    Replies::writeEntries(stream, entries);
    return bytes;
}

// Qt reads a time of a zone that does not exist as a valid one, and writes it as an invalid one.
bool isInCalendar(const QDateTime &time)
{
    return time.isValid() && (time.timeSpec() != Qt::TimeZone || time.timeZone().isValid());
}

// A date that no calendar has may change, the other fields may not.
void requireEqual(const SFileEntry &a, const SFileEntry &b)
{
    require(a.fileName() == b.fileName() && a.size() == b.size() && a.flags() == b.flags() &&
                (!isInCalendar(a.lastModified()) || a.lastModified() == b.lastModified()),
            "an entry changes");
}

// What a program does with an entry.
void use(const SFileEntry &entry)
{
    entry.baseFlagsString();
    entry.advancedFlagsString();
    entry.qtPermissions();
    entry.lastModified().toString(Qt::ISODateWithMs);
}

} // namespace

bool entryList(const QByteArray &input)
{
    bool accepted = true;
    for (const auto version : {QDataStream::Qt_5_6, QDataStream::Qt_6_0}) {
        const QList<SFileEntry> entries = read(input, version, &accepted);
        if (!accepted)
            break;
        const auto again = read(written(entries, version), version, &accepted);
        require(accepted && again.size() == entries.size(), "a list of entries changes");
        for (qsizetype i = 0; i < entries.size(); ++i) {
            requireEqual(entries.at(i), again.at(i));
            use(entries.at(i));
        }
    }
    return accepted;
}

} // namespace Fuzz
