// SPDX-License-Identifier: MIT
#include "scratchfolder.h"

#include "fuzztarget.h"

#include <QtCore/QDir>
#include <QtCore/QDirIterator>
#include <QtCore/QFile>
#include <QtCore/QFileInfo>

#include <algorithm>
#include <filesystem>

using namespace Qt::StringLiterals;

namespace fs = std::filesystem;

namespace Fuzz {

namespace {

constexpr QDir::Filters kEverything =
    QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot;
const auto kHomeName = u"home"_s;

// An input may have taken the permission to list or change a folder.
void removeContents(const fs::path &folder)
{
    fs::permissions(folder, fs::perms::owner_all, fs::perm_options::add);
    for (const auto &entry : fs::directory_iterator(folder)) {
        if (fs::is_directory(entry.symlink_status()))
            removeContents(entry.path());
        fs::remove(entry.path());
    }
}

// With a time in the past, so that each change shows in it.
void write(const QString &path, const QByteArray &bytes)
{
    QFile file(path);
    require(file.open(QIODevice::WriteOnly) && file.write(bytes) == bytes.size() && file.flush() &&
                file.setFileTime(QDateTime::fromSecsSinceEpoch(1'000'000'000),
                                 QFileDevice::FileModificationTime),
            "ScratchFolder: cannot write a file");
}

QByteArray stateOf(const QFileInfo &entry)
{
    const qint64 modified = entry.isDir() ? 0 : entry.lastModified().toMSecsSinceEpoch();
    return QByteArray::number(entry.isDir() ? 0 : entry.size()) + ' ' +
           QByteArray::number(modified) + ' ' + QByteArray::number(entry.permissions().toInt());
}

} // namespace

QString scratchPlace()
{
    const QFileInfo memory(u"/dev/shm"_s);
    return qEnvironmentVariableIsSet("TMPDIR") || !memory.isWritable() ? QDir::tempPath()
                                                                       : memory.filePath();
}

ScratchFolder::ScratchFolder()
    : m_outside(scratchPlace() + u"/brixfuzz-XXXXXX"_s)
{
    require(m_outside.isValid(), "ScratchFolder: cannot make a folder");
    fill();
}

QString ScratchFolder::home() const
{
    return m_outside.filePath(kHomeName);
}

void ScratchFolder::restore()
{
    requireNothingOutside();
    if (state() == m_stateWhenFilled)
        return;
    removeContents(m_outside.path().toStdString());
    fill();
}

void ScratchFolder::fill()
{
    QDir(m_outside.path()).mkpath(kHomeName + u"/folder/deeper"_s);
    write(home() + u"/a.txt"_s, "hello");
    write(home() + u"/empty.txt"_s, {});
    write(home() + u"/folder/b.bin"_s, QByteArray(300, '\xA5'));
    write(home() + u"/folder/deeper/c.txt"_s, "deep");
    m_stateWhenFilled = state();
}

void ScratchFolder::requireNothingOutside() const
{
    for (const QString &name : QDir(m_outside.path()).entryList(kEverything))
        require(name.startsWith(kHomeName, Qt::CaseInsensitive), "something has left the jail");
}

// All that a change of the contents changes.
QByteArray ScratchFolder::state() const
{
    QList<QByteArray> lines;
    QDirIterator it(m_outside.path(), kEverything, QDirIterator::Subdirectories);
    while (it.hasNext()) {
        const QString path = it.next();
        lines.append(path.toUtf8() + '\n' + stateOf(it.fileInfo()));
    }
    std::sort(lines.begin(), lines.end()); // the order of the system is any
    return lines.join('\n');
}

} // namespace Fuzz
