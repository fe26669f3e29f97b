// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QByteArray>
#include <QtCore/QDir>
#include <QtCore/QDirIterator>
#include <QtCore/QFile>
#include <QtCore/QFileInfo>
#include <QtCore/QString>
#include <QtCore/QStringList>

/*!
 * Files on disk, made and read without the library.
 */
namespace FileTree {

//! Writes a file and the folders above it.
inline bool write(const QString &path, const QByteArray &content)
{
    QDir().mkpath(QFileInfo(path).path());
    QFile file(path);
    return file.open(QIODevice::WriteOnly) && file.write(content) == content.size();
}

//! The content, or a text that no test writes.
inline QByteArray read(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArrayLiteral("<unreadable>");
}

//! Bytes that differ from block to block, so that a lost, doubled or swapped block shows.
inline QByteArray content(qint64 size)
{
    QByteArray bytes(size, Qt::Uninitialized);
    quint32 state = 2463534242U;
    for (char &byte : bytes) {
        state ^= state << 13;
        state ^= state >> 17;
        state ^= state << 5;
        byte = static_cast<char>(state);
    }
    return bytes;
}

//! Paths below \a folder of all that is in it, sorted; folders end in "/".
inline QStringList below(const QString &folder)
{
    QStringList paths;
    QDirIterator it(folder, QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot,
                    QDirIterator::Subdirectories);
    while (it.hasNext()) {
        const QString path = it.next();
        const bool isFolder = it.fileInfo().isDir() && !it.fileInfo().isSymLink();
        paths.append(path.mid(folder.size() + 1) + (isFolder ? QStringLiteral("/") : QString()));
    }
    paths.sort();
    return paths;
}

} // namespace FileTree
