// SPDX-License-Identifier: MIT
#pragma once

#include <brixlib/brixlib_export.h>
#include <brixlib/foundation/fileentryflags.h>

#include <QtCore/QDateTime>
#include <QtCore/QFileDevice>
#include <QtCore/QList>
#include <QtCore/QMetaType>
#include <QtCore/QString>

namespace Talverine {

/*!
 * One line of a folder's listing: the name, date, size and flags of a file, here or on another
 * machine. A value that is fixed once made; a default one is null. Const calls may come from any
 * thread.
 *
 *     const SFileEntry entry = SFileEntry::fromFileName(QStringLiteral("/etc/hosts"));
 *     qDebug() << entry.fileName() << entry.size() << entry.advancedFlagsString();
 */
class BRIXLIB_EXPORT SFileEntry
{
public:
    SFileEntry() = default;
    //! \a fileName has no folder in it, \a size is in bytes.
    SFileEntry(const QString &fileName, qint64 size, const QDateTime &lastModified,
               const FileEntryFlags &flags);

    //! The entry of a local file. A missing file gives its name, size 0, no date and no flags.
    static SFileEntry fromFileName(const QString &path);

    bool operator==(const SFileEntry &other) const = default;

    //! True for an entry without a name, size, date and flags.
    bool isNull() const;

    QString fileName() const { return m_fileName; }
    QDateTime lastModified() const { return m_lastModified; }
    //! In bytes.
    qint64 size() const { return m_size; }
    FileEntryFlags flags() const { return m_flags; }

    bool isDirectory() const { return hasFlag(m_flags, FileEntryFlags::Directory); }
    bool isFile() const { return !isDirectory(); }
    bool isSymbolic() const { return hasFlag(m_flags, FileEntryFlags::Symbolic); }
    bool isReadable() const { return hasFlag(m_flags, FileEntryFlags::Readable); }
    bool isWritable() const { return hasFlag(m_flags, FileEntryFlags::Writable); }
    bool isExecutable() const { return hasFlag(m_flags, FileEntryFlags::Executable); }
    bool isHidden() const { return hasFlag(m_flags, FileEntryFlags::Hidden); }

    //! The permissions in the high half of the flags.
    QFlags<QFileDevice::Permission> qtPermissions() const;
    static QFlags<QFileDevice::Permission>
    fileEntryFlagsToQtPermissions(const FileEntryFlags &flags);
    //! The permissions in the high half of the result; its low half is 0.
    static FileEntryFlags
    qtPermissionsToFileEntryFlagsToQt(const QFlags<QFileDevice::Permission> &permissions);

    //! Five characters: "d" or "f", then "h", "r", "w" and "x", each "-" where it is not so.
    QString baseFlagsString() const;
    static QString baseFlagsString(const FileEntryFlags &flags);
    //! "rwxrwxrwx" for the user, the group and others, "-" where a permission is missing.
    QString advancedFlagsString() const;
    static QString advancedFlagsString(const FileEntryFlags &flags);

private:
    QString m_fileName;
    QDateTime m_lastModified;
    qint64 m_size = 0;
    FileEntryFlags m_flags = FileEntryFlags::None;
};

} // namespace Talverine

Q_DECLARE_TYPEINFO(Talverine::SFileEntry, Q_RELOCATABLE_TYPE);
Q_DECLARE_METATYPE(Talverine::SFileEntry)
