// SPDX-License-Identifier: MIT
#pragma once

#include <cli/failure.h>

#include <QtCore/QByteArray>
#include <QtCore/QFile>
#include <QtCore/QIODevice>
#include <QtCore/QSaveFile>
#include <QtCore/QTemporaryFile>

#include <atomic>
#include <functional>
#include <memory>
#include <optional>

namespace Brix {

//! A file of this machine, or for an empty path the standard stream, as the command line names it.
struct LocalPlace
{
    QString path;

    bool isStandardStream() const { return path.isEmpty(); }
};

//! True for a device, a pipe or the like: a file that took its name would end it for everybody.
bool isSpecialFile(const QString &path);

/*!
 * Reads a file or stdin from end to end. What fails, also a wish to stop the thread, ends the
 * reading and is kept.
 *
 * Lives in one thread.
 */
class LocalInput final : public QIODevice
{
public:
    using Observer = std::function<void(QByteArrayView bytes)>;

    //! Opens the file; throws Failure. \a done, which may be null, counts the bytes read.
    explicit LocalInput(const LocalPlace &place, std::atomic<qint64> *done = nullptr);

    //! Bytes of the file; 0 when it cannot be known.
    qint64 fileSize() const;
    //! The first bytes, up to so many; they are read again as the device's own. Throws Failure.
    QByteArray head(qint64 size);
    //! Gets to see all bytes that are read.
    void setObserver(Observer observer) { m_observer = std::move(observer); }
    //! Reads and drops what is left; true when there was anything.
    bool drain();

    //! Throws what went wrong, if anything did.
    void throwFailure() const;

    bool isSequential() const override { return true; }
    bool open(OpenMode mode) override;

protected:
    qint64 readData(char *data, qint64 maxSize) override;
    qint64 writeData(const char *data, qint64 size) override;

private:
    qint64 readPlace(char *data, qint64 maxSize);

    LocalPlace m_place;
    QFile m_file;
    QByteArray m_ahead;
    Observer m_observer;
    std::atomic<qint64> *m_done;
    std::optional<Failure> m_failure;
};

/*!
 * Writes a file, which takes its name when it is whole, or stdout. What fails is kept.
 *
 * Lives in one thread.
 */
class LocalOutput final : public QIODevice
{
public:
    //! What is written to stdout comes at once, or when it is whole and has not to be seekable.
    enum class Stdout { AtOnce, Whole };

    LocalOutput(const LocalPlace &place, Stdout how);
    //! Removes what has not been committed.
    ~LocalOutput() override;

    //! A new file is one that nobody but its owner may read. To be called before the first write.
    void makePrivate() { m_isPrivate = true; }
    //! Gives the file its name, or writes what stdout is still due; throws Failure.
    void commit();
    //! Throws what went wrong, if anything did.
    void throwFailure() const;
    //! Bytes of the whole.
    qint64 written() const { return m_written; }

    bool isSequential() const override { return !m_file; }
    bool open(OpenMode mode) override;
    bool seek(qint64 position) override;

protected:
    qint64 readData(char *data, qint64 maxSize) override;
    qint64 writeData(const char *data, qint64 size) override;

private:
    void keepFileError();
    void writeSpool();

    LocalPlace m_place;
    std::unique_ptr<QFileDevice> m_file; // null when the bytes go to stdout at once
    bool m_isPrivate = false;
    qint64 m_written = 0;
    std::optional<Failure> m_failure;
};

} // namespace Brix
