// SPDX-License-Identifier: MIT
// The path jail and the local file operations inside it.
#include <brixlib/protocol/scommunicatorbase.h>

#include "directorywalk_p.h"
#include "namedpipe_p.h"
#include "strictjail_p.h"

#include <brixlib/protocol/socket/stcpsocket.h>
#include <brixlib/protocol/wire.h>

#include <brixrt/sstorageinfo.h>

#include <brixrt/sfilehelper.h>

#include <QtCore/QDirIterator>
#include <QtCore/QFile>
#include <QtCore/QFileInfo>

using namespace Qt::StringLiterals;

namespace Talverine {

namespace {

constexpr qsizetype kCopyBufferBytes = 131072;
constexpr qint64 kKeepAliveIntervalMs = 100;
constexpr QDir::Filters kEverything =
    QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot;

QString absolutePath(const QString &path)
{
    return QDir::fromNativeSeparators(QDir(path).absolutePath());
}

QString joined(const QString &folder, const QString &name)
{
    return u"%1/%2"_s.arg(folder, name);
}

// Qt would complain about a write to what did not open.
bool writeIfOpen(QIODevice *target, QByteArrayView bytes)
{
    return target->isWritable() && SFileHelper::writeAll(target, bytes);
}

// The folder whose storage holds \a path.
QString folderOf(const QString &path)
{
    const QFileInfo info(path);
    return info.isDir() ? path : info.path();
}

// The last bytes of a file wait in its buffer; a full disk would show only when it is closed.
bool flushed(QIODevice *target)
{
    auto *file = qobject_cast<QFileDevice *>(target);
    return !file || !file->isOpen() || file->flush();
}

} // namespace

QString SCommunicatorBase::currentPath() const
{
    return m_currentPath;
}

QString SCommunicatorBase::rootPath() const
{
    return m_rootPath.isEmpty() ? QString() : absolutePath(m_rootPath);
}

QString SCommunicatorBase::defaulHomeDirLocal() const
{
    return m_defaultHome;
}

void SCommunicatorBase::setDefaultHomeDirLocal(const QString &path)
{
    m_defaultHome = path;
}

QString SCommunicatorBase::absoluteChildPath(const QString &path, const QString &root) const
{
    // No file has such a name, but the system reads a name up to the zero: with ".." before it,
    // that is the folder above the jail.
    if (path.contains(QChar::Null))
        return QString();
    const QString whole = QDir::isRelativePath(path) ? QDir(m_currentPath).filePath(path) : path;
    const QString absolute = absolutePath(whole);
    if (root.isEmpty())
        return absolute;
    const QString jail = absolutePath(QDir::fromNativeSeparators(root));
    const bool isInside = absolute.startsWith(jail, Qt::CaseInsensitive) &&
                          (!m_isJailStrict || isInsideJail(absolute, jail));
    return isInside ? absolute : QString();
}

void SCommunicatorBase::setStrictJail(bool strict)
{
    m_isJailStrict = strict;
}

bool SCommunicatorBase::isJailStrict() const
{
    return m_isJailStrict;
}

bool SCommunicatorBase::leadsOutside(const QString &path) const
{
    const QString jail = rootPath();
    return m_isJailStrict && !jail.isEmpty() && QFileInfo(path).isSymLink() &&
           !isInsideJail(path, jail);
}

QString SCommunicatorBase::absoluteMovePath(const QString &path, const QString &sourceBase,
                                            const QString &targetBase, const QString &root) const
{
    const QString base = absoluteChildPath(sourceBase, QString());
    // By text alone, also in a strict jail: the base may be a directory of the peer.
    QString relative = base.isEmpty() ? QString() : absoluteChildPath(path, QString());
    if (relative.isEmpty() || !relative.startsWith(base, Qt::CaseInsensitive))
        return QString();
    if (relative.startsWith(base))
        relative.remove(0, base.size());
    if (relative.isEmpty())
        return QString();
    while (relative.startsWith(u'/'))
        relative.remove(0, 1);

    if (root.isEmpty())
        return targetBase.isEmpty() ? relative : joined(targetBase, relative);
    const QString target = absoluteChildPath(targetBase, root);
    return target.isEmpty() ? relative : absoluteChildPath(joined(target, relative), root);
}

bool SCommunicatorBase::setCurrentPath(const QString &path, bool create)
{
    const QString absolute = absoluteChildPath(path.isEmpty() ? rootPath() : path, rootPath());
    if (absolute.isEmpty() || (create && !QDir().mkpath(absolute)))
        return false;
    const QDir folder(absolute);
    if (!folder.exists())
        return false;
    m_currentPath = folder.absolutePath();
    return true;
}

bool SCommunicatorBase::setRootPath(const QString &path)
{
    if (path.isEmpty()) {
        m_rootPath.clear();
        return setCurrentPath(m_defaultHome, false);
    }
    if (!QDir(path).exists()) {
        Q_EMIT invalidRootDir(path);
        return false;
    }
    m_rootPath = path;
    return setCurrentPath(rootPath(), false);
}

bool SCommunicatorBase::changeDirLocal(const QString &path)
{
    QString target = path.isEmpty() ? rootPath() : path;
    if (target.isEmpty())
        target = QDir(m_defaultHome).absolutePath();
    if (!setCurrentPath(target, false))
        return false;
    Q_EMIT localDirChanged(m_currentPath);
    return true;
}

bool SCommunicatorBase::homeDirLocal()
{
    return changeDirLocal(QString());
}

bool SCommunicatorBase::makeDirLocal(const QString &path)
{
    const QString absolute = absoluteChildPath(path, rootPath());
    if (absolute.isEmpty())
        return false;
    if (QDir(absolute).exists())
        return true;
    if (!QDir().mkpath(absolute))
        return false;
    Q_EMIT localDirCreated(absolute);
    return true;
}

bool SCommunicatorBase::removeFileLocal(const QString &path)
{
    const QString absolute = absoluteChildPath(path, rootPath());
    if (absolute.isEmpty() || !QFile::remove(absolute))
        return false;
    Q_EMIT localFileRemoved(path);
    return true;
}

bool SCommunicatorBase::removeDirLocal(const QString &path, bool recursive)
{
    const QString absolute = absoluteChildPath(path, rootPath());
    if (absolute.isEmpty())
        return false;
    if (QFileInfo(absolute).isSymLink())
        return removeFileLocal(path);
    const bool removed = recursive ? QDir(absolute).removeRecursively() : QDir().rmdir(absolute);
    if (removed)
        Q_EMIT localDirRemoved(absolute, recursive);
    return removed;
}

bool SCommunicatorBase::removeLocal(const QString &path, bool recursive)
{
    const QString absolute = absoluteChildPath(path, rootPath());
    if (absolute.isEmpty())
        return false;
    return QFileInfo(absolute).isDir() ? removeDirLocal(path, recursive) : removeFileLocal(path);
}

bool SCommunicatorBase::renameDirLocal(const QString &from, const QString &to)
{
    const QString source = absoluteChildPath(from, rootPath());
    const QString target = absoluteChildPath(to, rootPath());
    if (source.isEmpty() || target.isEmpty() || to.isEmpty() || QFileInfo(source).isFile() ||
        !QDir(source).rename(source, target))
        return false;
    Q_EMIT localDirRenamed(from, to);
    return true;
}

bool SCommunicatorBase::renameFileLocal(const QString &from, const QString &to)
{
    const QString source = absoluteChildPath(from, rootPath());
    const QString target = absoluteChildPath(to, rootPath());
    if (source.isEmpty() || target.isEmpty() || to.isEmpty() || QFileInfo(source).isDir() ||
        !QFile::rename(source, target))
        return false;
    Q_EMIT localFileRenamed(from, to);
    return true;
}

bool SCommunicatorBase::renameLocal(const QString &from, const QString &to)
{
    const QString absolute = absoluteChildPath(from, rootPath());
    if (absolute.isEmpty())
        return false;
    return QFileInfo(absolute).isDir() ? renameDirLocal(from, to) : renameFileLocal(from, to);
}

bool SCommunicatorBase::copyFileLocal(const QString &from, const QString &to,
                                      bool keepAliveOnSocket)
{
    const QString source = absoluteChildPath(from, rootPath());
    const QString target = absoluteChildPath(to, rootPath());
    if (source.isEmpty() || target.isEmpty() || to.isEmpty() || QFileInfo(source).isDir() ||
        !copyFile(source, target, keepAliveOnSocket))
        return false;
    Q_EMIT localFileCopied(from, to);
    return true;
}

bool SCommunicatorBase::copyDirLocal(const QString &from, const QString &to, bool keepAliveOnSocket)
{
    const QString source = absoluteChildPath(from, rootPath());
    const QString target = absoluteChildPath(to, rootPath());
    if (source.isEmpty() || target.isEmpty())
        return false;
    if (QDir(source) == QDir(target))
        return true;
    if (QFileInfo::exists(target))
        return false;
    // Listed before the target is made: a target below the source would be walked into for ever.
    QList<QString> entries;
    if (!listBelow(source, keepAliveOnSocket ? socket() : nullptr, &entries) ||
        !QDir().mkpath(target) || !copyEntries(entries, source, target, keepAliveOnSocket))
        return false;
    Q_EMIT localDirCopied(from, to);
    return true;
}

bool SCommunicatorBase::listBelow(const QString &folder, QIODevice *peer, QList<QString> *entries)
{
    QElapsedTimer sinceKeepAlive;
    sinceKeepAlive.start();
    DirectoryWalk walk(folder, QDirIterator::Subdirectories);
    QDirIterator it(folder, kEverything, QDirIterator::Subdirectories);
    while (it.hasNext()) {
        if (isStopOverdue())
            return false;
        entries->append(it.next());
        walk.add(it.fileInfo());
        if (peer && sinceKeepAlive.hasExpired(kKeepAliveIntervalMs)) {
            if (!sendKeepAlive(peer))
                return false;
            sinceKeepAlive.start();
        }
    }
    return !walk.hasUnread();
}

bool SCommunicatorBase::copyEntries(const QList<QString> &entries, const QString &source,
                                    const QString &target, bool keepAliveOnSocket)
{
    for (const QString &entry : entries) {
        if (isStopOverdue())
            return false;
        const QString path = joined(target, QDir(source).relativeFilePath(entry));
        if (!QDir().mkpath(QFileInfo(path).path()))
            return false;
        if (QFileInfo(entry).isFile() &&
            (leadsOutside(entry) || !copyFile(entry, path, keepAliveOnSocket)))
            return false;
    }
    return true;
}

bool SCommunicatorBase::existsLocal(const QString &path)
{
    const QString absolute = absoluteChildPath(path, rootPath());
    const QFileInfo info(absolute);
    const bool found = !absolute.isEmpty() && (info.isDir() || info.isFile());
    Q_EMIT localExistsCheck(path);
    return found;
}

QList<SFileEntry> SCommunicatorBase::listDirLocal(const QString &path,
                                                  const QList<QString> &filters)
{
    QList<SFileEntry> entries;
    visitDirLocal(path, filters, [&entries](const SFileEntry &entry) {
        entries.append(entry);
        return true;
    });
    return entries;
}

bool SCommunicatorBase::visitDirLocal(const QString &path, const QList<QString> &filters,
                                      const std::function<bool(const SFileEntry &)> &visit)
{
    const QString absolute = absoluteChildPath(path, rootPath());
    if (absolute.isEmpty())
        return true;

    const QDir folder(absolute);
    const bool isTop = folder.isRoot() || (!m_rootPath.isEmpty() && folder == QDir(rootPath()));
    if (!isTop && !visit(SFileEntry::fromFileName(u".."_s)))
        return false;
    QDirIterator it(absolute, filters, kEverything);
    while (it.hasNext()) {
        const QString entry = it.next();
        if (!leadsOutside(entry) && !visit(SFileEntry::fromFileName(entry)))
            return false;
    }
    Q_EMIT localDirListed(absolute);
    return true;
}

bool SCommunicatorBase::changePermissionsLocal(const QString &path, const FileEntryFlags &flags)
{
    const QString absolute = absoluteChildPath(path, rootPath());
    if (absolute.isEmpty() ||
        !QFile::setPermissions(absolute, SFileEntry::fileEntryFlagsToQtPermissions(flags)))
        return false;
    Q_EMIT localPermissionChanged(path);
    return true;
}

QStorageInfo SCommunicatorBase::storageInfoLocal() const
{
    return QStorageInfo(m_currentPath);
}

bool SCommunicatorBase::copyFile(const QString &from, const QString &to, bool keepAliveOnSocket)
{
    // Opening the target would empty the source.
    if (SFileHelper::isSameFile(from, to))
        return true;
    if (isNamedPipe(from) || isNamedPipe(to))
        return false;
    // Opening the target empties it, and for nobody.
    if (keepAliveOnSocket && isPeerGone())
        return false;
    QFile source(from);
    QFile target(to);
    return copyDevice(&target, &source, keepAliveOnSocket ? socket() : nullptr);
}

// A source that does not open counts as empty: it is at its end, and the target is left empty.
bool SCommunicatorBase::copyDevice(QIODevice *target, QIODevice *source, QIODevice *peer)
{
    const bool openTarget = !target->isOpen();
    const bool openSource = !source->isOpen();
    if (openTarget)
        target->open(QIODevice::WriteOnly);
    if (openSource)
        source->open(QIODevice::ReadOnly);
    const bool copied = pump(target, source, peer);
    if (openTarget)
        target->close();
    if (openSource)
        source->close();
    return copied;
}

bool SCommunicatorBase::pump(QIODevice *target, QIODevice *source, QIODevice *peer)
{
    const auto buffer = std::make_unique_for_overwrite<char[]>(kCopyBufferBytes);
    if (peer && !sendKeepAlive(peer))
        return false;
    QElapsedTimer sinceKeepAlive;
    sinceKeepAlive.start();
    while (!source->atEnd()) {
        const qint64 count = source->read(buffer.get(), kCopyBufferBytes);
        // Files in /sys claim more than they give and are never at their end.
        if (count == 0)
            break;
        if (count < 0 || !writeIfOpen(target, QByteArrayView(buffer.get(), count)) ||
            isStopOverdue())
            return false;
        if (peer && sinceKeepAlive.hasExpired(kKeepAliveIntervalMs)) {
            if (!sendKeepAlive(peer))
                return false;
            sinceKeepAlive.start();
        }
    }
    return flushed(target);
}

// A peer that has gone asks for nothing any more, and the work for it would hold up a thread. Its
// last write succeeds mostly: only then does the system learn that nothing is there.
bool SCommunicatorBase::sendKeepAlive(QIODevice *peer)
{
    return peer->isOpen() && !isPeerGone() && writeWord(peer, Wire::kKeepAliveWord);
}

bool SCommunicatorBase::isSyncRequired(const QString &path) const
{
    return m_autoSync && SStorageInfo(folderOf(path)).isRemovable();
}

void SCommunicatorBase::syncIf(const QString &path)
{
    const QString whole =
        QDir::isRelativePath(path) ? QDir::cleanPath(joined(m_currentPath, path)) : path;
    if (isSyncRequired(whole))
        SStorageInfo(folderOf(whole)).sync();
}

void SCommunicatorBase::syncIf(const QString &first, const QString &second)
{
    syncIf(first);
    syncIf(second);
}

} // namespace Talverine
