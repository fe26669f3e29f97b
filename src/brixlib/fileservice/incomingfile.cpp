// SPDX-License-Identifier: MIT
#include "incomingfile_p.h"

#include <QtCore/QFile>
#include <QtCore/QSaveFile>

namespace Talverine {

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
    return m_device->open(QIODevice::WriteOnly | QIODevice::Unbuffered);
}

QIODevice *IncomingFile::device() const
{
    return m_device.get();
}

bool IncomingFile::finish()
{
    if (auto *saveFile = qobject_cast<QSaveFile *>(m_device.get()))
        saveFile->commit();
    else
        m_device->close();
    return m_partial.complete();
}

} // namespace Talverine
