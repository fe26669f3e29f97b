// SPDX-License-Identifier: MIT
#include <brixrt/sfilehelper.h>

#include "requestsize_p.h"

#include "fileidentity_p.h"

#include <QtCore/QCoreApplication>
#include <QtCore/QFile>
#include <QtCore/QFileInfo>
#include <QtCore/QMutex>

#include <algorithm>
#include <cstdlib>
#include <new>
#include <optional>
#include <utility>

namespace Talverine {

namespace {

// Keeps a device open for one operation.
class OpenDevice
{
public:
    OpenDevice(QIODevice *device, QIODevice::OpenMode mode)
        : m_device(device)
        , m_opened(!device->isOpen() && device->open(mode))
    {
    }
    ~OpenDevice()
    {
        if (m_opened)
            m_device->close();
    }
    Q_DISABLE_COPY_MOVE(OpenDevice)

    bool isOpen() const { return m_device->isOpen(); }

    // A file that is closed loses what its disk has no room for without a word.
    bool flush()
    {
        auto *file = m_opened ? qobject_cast<QFileDevice *>(m_device) : nullptr;
        return !file || file->flush();
    }

private:
    QIODevice *m_device;
    bool m_opened;
};

// Only a device of a known size knows its end before it is met: a pipe looks ended while its writer
// rests, and the files of /proc have the size 0.
bool isKnownToEnd(QIODevice *source)
{
    return !source->isSequential() && source->size() > 0 && source->atEnd();
}

bool copyPieces(QIODevice *target, QIODevice *source, QByteArray &piece)
{
    for (;;) {
        const qint64 count = source->read(piece.data(), readRequestSize(source, piece.size()));
        if (count <= 0)
            return count == 0;
        if (!SFileHelper::writeAll(target, QByteArrayView(piece.constData(), count)))
            return false;
        if (isKnownToEnd(source))
            return true;
    }
}

bool resized(QByteArray &data, qsizetype size)
{
    try {
        data.resize(size);
    } catch (const std::bad_alloc &) {
        return false;
    }
    return true;
}

// The name of a QSaveFile is that of the file it replaces later, and its handle another file's.
std::optional<FileIdentity> identityOf(const QFileDevice &file)
{
    const bool isOpenFile = qobject_cast<const QFile *>(&file) && file.isOpen();
    return isOpenFile ? fileIdentity(file.handle()) : fileIdentity(file.fileName());
}

struct ExitFiles
{
    QMutex mutex;
    QList<QString> names;
};

// Leaked on purpose: it is worked off after the statics of other files are gone.
ExitFiles &exitFiles()
{
    static auto *instance = new ExitFiles;
    return *instance;
}

void removeExitFiles()
{
    QMutexLocker lock(&exitFiles().mutex);
    const QList<QString> names = std::exchange(exitFiles().names, {});
    lock.unlock();
    for (const QString &name : names)
        QFile::remove(name);
}

} // namespace

bool SFileHelper::copyDevice(QIODevice *target, QIODevice *source, int bufferSize)
{
    if (!target || !source)
        return false;
    OpenDevice openSource(source, QIODevice::ReadOnly);
    if (!openSource.isOpen())
        return false;
    OpenDevice openTarget(target, QIODevice::WriteOnly);
    if (!openTarget.isOpen())
        return false;
    QByteArray piece(std::max(bufferSize, 1), Qt::Uninitialized);
    try {
        return copyPieces(target, source, piece) && openTarget.flush();
    } catch (const std::bad_alloc &) {
        // A buffer can't grow any more.
        return false;
    }
}

bool SFileHelper::writeAll(QIODevice *target, QByteArrayView bytes)
{
    while (!bytes.isEmpty()) {
        const qint64 count = target->write(bytes.data(), writeRequestSize(target, bytes.size()));
        if (count < 1)
            return false;
        bytes = bytes.sliced(count);
    }
    return true;
}

QByteArray SFileHelper::readAllBuffer(QIODevice *device, qint64 size, int bufferSize)
{
    QByteArray data;
    readAllBuffer(device, size, bufferSize, &data);
    return data;
}

void SFileHelper::readAllBuffer(QIODevice *device, qint64 size, int bufferSize, QByteArray *data)
{
    data->resize(0);
    if (!device)
        return;
    const qint64 step = std::max(bufferSize, 1);
    while (data->size() < size) {
        const qsizetype done = data->size();
        const qint64 room = readRequestSize(device, std::min(step, size - done));
        if (!resized(*data, done + room))
            break;
        const qint64 count = device->read(data->data() + done, room);
        data->truncate(done + std::max(count, qint64(0)));
        if (count <= 0)
            break;
    }
}

bool SFileHelper::isSameFile(const QString &a, const QString &b)
{
    const std::optional<FileIdentity> identity = fileIdentity(a);
    return identity && identity == fileIdentity(b);
}

bool SFileHelper::isSameFile(const QFileDevice &a, const QFileDevice &b)
{
    const std::optional<FileIdentity> identity = identityOf(a);
    return identity && identity == identityOf(b);
}

void SFileHelper::deleteFileOnExit(const QString &fileName)
{
    if (fileName.isEmpty())
        return;
    // Each comes where the other may not: a program can do without an application object.
    static const bool registered = [] {
        qAddPostRoutine(removeExitFiles);
        return std::atexit(removeExitFiles) == 0;
    }();
    Q_UNUSED(registered)
    const QMutexLocker lock(&exitFiles().mutex);
    exitFiles().names.append(QFileInfo(fileName).absoluteFilePath());
}

} // namespace Talverine
