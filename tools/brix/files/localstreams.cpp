// SPDX-License-Identifier: MIT
#include "localstreams.h"

#include <process/standardstreams.h>

#include <QtCore/QFileInfo>
#include <QtCore/QThread>

#include <algorithm>

namespace Brix {

using namespace Qt::StringLiterals;

namespace {

constexpr qint64 kDrainBytes = 65536;

// All that was asked for unless the stream ends: what is compressed at once must not depend on how
// a pipe serves it.
qint64 readStandardInput(char *data, qint64 size)
{
    qint64 done = 0;
    while (done < size) {
        const qint64 count = StandardStreams::readInput(data + done, size - done);
        if (count == 0)
            break;
        done += count;
    }
    return done;
}

} // namespace

bool isSpecialFile(const QString &path)
{
    const QFileInfo info(path);
    return info.exists() && !info.isFile() && !info.isDir();
}

LocalInput::LocalInput(const LocalPlace &place, std::atomic<qint64> *done)
    : m_place(place)
    , m_file(place.path)
    , m_done(done)
{
    if (!place.isStandardStream() && !m_file.open(ReadOnly | Unbuffered))
        throw Failure{ExitCode::LocalIo,
                      u"cannot read %1: %2"_s.arg(place.path, m_file.errorString())};
}

qint64 LocalInput::fileSize() const
{
    return m_place.isStandardStream() ? 0 : m_file.size();
}

QByteArray LocalInput::head(qint64 size)
{
    QByteArray head(size, Qt::Uninitialized);
    qint64 done = 0;
    while (done < size) {
        const qint64 count = readPlace(head.data() + done, size - done);
        if (count <= 0)
            break;
        done += count;
    }
    throwFailure();
    head.truncate(done);
    m_ahead = head;
    return head;
}

bool LocalInput::drain()
{
    if (!isOpen())
        open(ReadOnly);
    QByteArray dropped(kDrainBytes, Qt::Uninitialized);
    bool any = false;
    while (read(dropped.data(), dropped.size()) > 0)
        any = true;
    return any;
}

void LocalInput::throwFailure() const
{
    if (m_failure)
        throw *m_failure;
}

// May be opened again: it goes on where it stood.
bool LocalInput::open(OpenMode mode)
{
    return QIODevice::open(mode | Unbuffered);
}

qint64 LocalInput::readData(char *data, qint64 maxSize)
{
    qint64 count = 0;
    if (m_ahead.isEmpty()) {
        count = readPlace(data, maxSize);
    } else {
        count = std::min<qint64>(maxSize, m_ahead.size());
        std::copy_n(m_ahead.constData(), count, data);
        m_ahead.remove(0, count);
    }
    if (count > 0 && m_done)
        *m_done += count;
    if (count > 0 && m_observer)
        m_observer(QByteArrayView(data, count));
    return count;
}

qint64 LocalInput::writeData(const char *, qint64)
{
    return -1;
}

qint64 LocalInput::readPlace(char *data, qint64 maxSize)
{
    if (m_failure)
        return -1;
    try {
        if (m_place.isStandardStream())
            return readStandardInput(data, maxSize);
        if (QThread::currentThread()->isInterruptionRequested())
            throw Failure{ExitCode::Interrupted, u"interrupted"_s};
        const qint64 count = m_file.read(data, maxSize);
        if (count < 0)
            throw Failure{ExitCode::LocalIo,
                          u"cannot read %1: %2"_s.arg(m_place.path, m_file.errorString())};
        return count;
    } catch (const Failure &failure) {
        m_failure = failure;
        return -1;
    }
}

LocalOutput::LocalOutput(const LocalPlace &place, Stdout how)
    : m_place(place)
{
    if (!place.isStandardStream())
        m_file = std::make_unique<QSaveFile>(place.path);
    else if (how == Stdout::Whole)
        m_file = std::make_unique<QTemporaryFile>();
}

LocalOutput::~LocalOutput() = default;

void LocalOutput::commit()
{
    throwFailure();
    if (auto *file = qobject_cast<QSaveFile *>(m_file.get())) {
        // commit() would not tell that the last bytes could not be written.
        const bool flushed = file->flush() || file->flush();
        if (!flushed || !file->commit())
            keepFileError();
    } else if (m_file) {
        writeSpool();
    }
    throwFailure();
}

void LocalOutput::throwFailure() const
{
    if (m_failure)
        throw *m_failure;
}

bool LocalOutput::open(OpenMode mode)
{
    // A folder would be found out only when all is done.
    if (!m_place.isStandardStream() && QFileInfo(m_place.path).isDir()) {
        m_failure =
            Failure{ExitCode::LocalIo, u"cannot write %1: it is a folder"_s.arg(m_place.path)};
        return false;
    }
    if (!m_place.isStandardStream() && isSpecialFile(m_place.path)) {
        m_failure = Failure{ExitCode::LocalIo,
                            u"cannot write %1: it is no ordinary file"_s.arg(m_place.path)};
        return false;
    }
    if (m_file && !m_file->open(m_place.isStandardStream() ? ReadWrite : WriteOnly)) {
        keepFileError();
        return false;
    }
    if (m_isPrivate && !QFileInfo::exists(m_place.path))
        m_file->setPermissions(QFileDevice::ReadOwner | QFileDevice::WriteOwner);
    return QIODevice::open(mode | Unbuffered);
}

bool LocalOutput::seek(qint64 position)
{
    if (!m_file || !QIODevice::seek(position))
        return false;
    const bool sought = m_file->seek(position);
    if (!sought)
        keepFileError();
    return sought;
}

qint64 LocalOutput::readData(char *, qint64)
{
    return -1;
}

qint64 LocalOutput::writeData(const char *data, qint64 size)
{
    qint64 count = size;
    if (m_file) {
        count = m_file->write(data, size);
        if (count < 0)
            keepFileError();
    } else {
        try {
            StandardStreams::writeOutput(data, size);
        } catch (const Failure &failure) {
            m_failure = failure;
            return -1;
        }
    }
    m_written = std::max(m_written, pos() + count);
    return count;
}

// After a short write of its buffer, Qt has no reason. Writing the rest fails with the system's.
void LocalOutput::keepFileError()
{
    if (m_file->isOpen())
        static_cast<void>(m_file->flush());
    const QString name =
        m_place.isStandardStream() ? u"a temporary file for stdout"_s : m_place.path;
    m_failure =
        Failure{ExitCode::LocalIo, u"cannot write %1: %2"_s.arg(name, m_file->errorString())};
}

void LocalOutput::writeSpool()
{
    QByteArray piece(kDrainBytes, Qt::Uninitialized);
    if (!m_file->seek(0))
        return keepFileError();
    for (;;) {
        const qint64 count = m_file->read(piece.data(), piece.size());
        if (count < 0)
            return keepFileError();
        if (count == 0)
            return;
        StandardStreams::writeOutput(piece.constData(), count);
    }
}

} // namespace Brix
