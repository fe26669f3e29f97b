// SPDX-License-Identifier: MIT
#include <brixlib/foundation/sfileentry.h>

#include <QtCore/QFileInfo>

#include <initializer_list>

namespace Talverine {

namespace {

constexpr int kPermissionsShift = 16;

FileEntryFlags propertiesOf(const QFileInfo &info)
{
    const auto flagIf = [](bool set, FileEntryFlags flag) {
        return set ? flag : FileEntryFlags::None;
    };
    const bool symbolic = info.isSymLink();
    // A shell link is a file even where it points to a directory.
    const bool shellLink =
        symbolic && info.suffix().compare(QLatin1String("lnk"), Qt::CaseInsensitive) == 0;
    return flagIf(info.isDir() && !shellLink, FileEntryFlags::Directory) |
           flagIf(symbolic, FileEntryFlags::Symbolic) |
           flagIf(info.isReadable(), FileEntryFlags::Readable) |
           flagIf(info.isWritable(), FileEntryFlags::Writable) |
           flagIf(info.isExecutable(), FileEntryFlags::Executable) |
           flagIf(info.isHidden(), FileEntryFlags::Hidden);
}

// Qt calls a dotted name hidden even where nothing bears it.
FileEntryFlags flagsOf(const QFileInfo &info)
{
    if (!info.exists() && !info.isSymLink())
        return FileEntryFlags::None;
    return propertiesOf(info) | SFileEntry::qtPermissionsToFileEntryFlagsToQt(info.permissions());
}

//! The letter that stands for a flag, and the one that stands for its absence.
struct FlagLetter
{
    FileEntryFlags flag;
    char set;
    char clear = '-';
};

QString lettersOf(FileEntryFlags flags, std::initializer_list<FlagLetter> letters)
{
    QString text;
    for (const FlagLetter &letter : letters)
        text += QLatin1Char(hasFlag(flags, letter.flag) ? letter.set : letter.clear);
    return text;
}

} // namespace

SFileEntry::SFileEntry(const QString &fileName, qint64 size, const QDateTime &lastModified,
                       const FileEntryFlags &flags)
    : m_fileName(fileName)
    , m_lastModified(lastModified)
    , m_size(size)
    , m_flags(flags)
{
}

SFileEntry SFileEntry::fromFileName(const QString &path)
{
    const QFileInfo info(path);
    return SFileEntry(info.fileName(), info.size(),
                      info.fileTime(QFileDevice::FileModificationTime), flagsOf(info));
}

bool SFileEntry::isNull() const
{
    return *this == SFileEntry();
}

QFlags<QFileDevice::Permission> SFileEntry::qtPermissions() const
{
    return fileEntryFlagsToQtPermissions(m_flags);
}

QFlags<QFileDevice::Permission>
SFileEntry::fileEntryFlagsToQtPermissions(const FileEntryFlags &flags)
{
    const quint32 bits = static_cast<quint32>(flags) >> kPermissionsShift;
    return QFileDevice::Permissions::fromInt(static_cast<int>(bits));
}

FileEntryFlags
SFileEntry::qtPermissionsToFileEntryFlagsToQt(const QFlags<QFileDevice::Permission> &permissions)
{
    const auto bits = static_cast<quint32>(permissions.toInt());
    return static_cast<FileEntryFlags>(bits << kPermissionsShift);
}

QString SFileEntry::baseFlagsString() const
{
    return baseFlagsString(m_flags);
}

QString SFileEntry::baseFlagsString(const FileEntryFlags &flags)
{
    return lettersOf(flags, {{FileEntryFlags::Directory, 'd', 'f'},
                             {FileEntryFlags::Hidden, 'h'},
                             {FileEntryFlags::Readable, 'r'},
                             {FileEntryFlags::Writable, 'w'},
                             {FileEntryFlags::Executable, 'x'}});
}

QString SFileEntry::advancedFlagsString() const
{
    return advancedFlagsString(m_flags);
}

QString SFileEntry::advancedFlagsString(const FileEntryFlags &flags)
{
    const auto permission = [](QFileDevice::Permission bit) {
        return qtPermissionsToFileEntryFlagsToQt(bit);
    };
    return lettersOf(flags, {{permission(QFileDevice::ReadUser), 'r'},
                             {permission(QFileDevice::WriteUser), 'w'},
                             {permission(QFileDevice::ExeUser), 'x'},
                             {permission(QFileDevice::ReadGroup), 'r'},
                             {permission(QFileDevice::WriteGroup), 'w'},
                             {permission(QFileDevice::ExeGroup), 'x'},
                             {permission(QFileDevice::ReadOther), 'r'},
                             {permission(QFileDevice::WriteOther), 'w'},
                             {permission(QFileDevice::ExeOther), 'x'}});
}

} // namespace Talverine
