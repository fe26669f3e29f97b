// SPDX-License-Identifier: MIT
#include "incomingfile_p.h"

#include <QtCore/QFile>
#include <QtCore/QFileInfo>
#include <QtCore/QSaveFile>

namespace Talverine {

namespace {

// Without the permissions that Qt adds for the user of this process: the superuser may write every
// file, and a file that takes its permissions from there would become writable for its owner.
constexpr QFileDevice::Permissions kOfTheFile =
    QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ExeOwner |
    QFileDevice::ReadGroup | QFileDevice::WriteGroup | QFileDevice::ExeGroup |
    QFileDevice::ReadOther | QFileDevice::WriteOther | QFileDevice::ExeOther;

} // namespace

IncomingFile::IncomingFile(const QString &target)
    : m_partial(target, true)
{
}

QString IncomingFile::name() const
{
    return m_partial.fileName(true);
}

bool IncomingFile::open(bool needsSync)
{
    const QString partialName = m_partial.fileName(false);
    if (needsSync)
        m_device = std::make_unique<QSaveFile>(partialName);
    else
        m_device = std::make_unique<QFile>(partialName);
    // Unbuffered, so that a full disk shows in the write and not, unseen, in the close.
    if (!m_device->open(QIODevice::WriteOnly | QIODevice::Unbuffered))
        return false;
    takePermissionsOfOlderFile();
    return true;
}

QIODevice *IncomingFile::device() const
{
    return m_device.get();
}

bool IncomingFile::finish()
{
    takePermissionsOfOlderFile();
    if (auto *saveFile = qobject_cast<QSaveFile *>(m_device.get()))
        saveFile->commit();
    else
        m_device->close();
    return m_partial.complete();
}

// A storage without permissions has the same for all files, so a failure changes nothing.
void IncomingFile::takePermissionsOfOlderFile()
{
    const QFileInfo older(name());
    if (older.isFile())
        m_device->setPermissions(older.permissions() & kOfTheFile);
}

} // namespace Talverine
