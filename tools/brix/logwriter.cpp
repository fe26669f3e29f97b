// SPDX-License-Identifier: MIT
#include "logwriter.h"

#include "printabletext.h"

#include <QtCore/QByteArray>
#include <QtCore/QList>

#include <chrono>
#include <condition_variable>
#include <mutex>

namespace Brix {

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

namespace {

constexpr qsizetype kQueueBytes = 1 << 20;
constexpr qsizetype kLongestLine = 4096;
constexpr auto kLastWrites = 1s;
constexpr int kStandardError = 2;

QByteArray lineOf(const QString &text)
{
    // Cut before it is escaped too, since a name from outside may be very long.
    QString line = printableText(QStringView(text).left(kLongestLine));
    if (line.size() > kLongestLine || text.size() > kLongestLine)
        line = line.left(kLongestLine) + u"..."_s;
    return line.toLocal8Bit() + '\n';
}

// A reader that takes a few bytes at a time is served as well.
bool writeAll(QFile &file, QByteArrayView bytes)
{
    while (!bytes.isEmpty()) {
        const qint64 count = file.write(bytes.data(), bytes.size());
        if (count <= 0)
            return false;
        bytes = bytes.sliced(count);
    }
    return true;
}

} // namespace

struct LogWriter::State
{
    std::unique_ptr<QFile> file;
    std::mutex mutex;
    std::condition_variable changed;
    QList<QByteArray> queue;
    qsizetype queuedBytes = 0;
    qint64 dropped = 0;
    bool isEnding = false;
    bool hasEnded = false;

    void run();
    void writeBatch(const QList<QByteArray> &lines, qint64 droppedAfter);
};

// Lines are dropped only while others wait, so the count belongs after these.
void LogWriter::State::run()
{
    std::unique_lock lock(mutex);
    while (true) {
        changed.wait(lock, [this] { return isEnding || !queue.isEmpty(); });
        if (queue.isEmpty())
            break;
        const QList<QByteArray> lines = std::exchange(queue, {});
        const qint64 droppedAfter = std::exchange(dropped, 0);
        queuedBytes = 0;
        lock.unlock();
        writeBatch(lines, droppedAfter);
        lock.lock();
    }
    hasEnded = true;
    changed.notify_all();
}

void LogWriter::State::writeBatch(const QList<QByteArray> &lines, qint64 droppedAfter)
{
    qint64 lost = droppedAfter;
    bool isWritable = true;
    for (const QByteArray &line : lines) {
        isWritable = writeAll(*file, line);
        lost += isWritable ? 0 : 1;
    }
    if (lost == 0)
        return;
    const QByteArray notice = "brix: " + QByteArray::number(lost) + " lines of the log were lost\n";
    if (isWritable && writeAll(*file, notice))
        return;
    const std::lock_guard lock(mutex);
    dropped += lost;
}

LogWriter::LogWriter(std::unique_ptr<QFile> file)
    : m_state(std::make_shared<State>())
{
    m_state->file = std::move(file);
    m_thread = std::thread([state = m_state] { state->run(); });
}

// A thread that is stuck ends with the program.
LogWriter::~LogWriter()
{
    std::unique_lock lock(m_state->mutex);
    m_state->isEnding = true;
    m_state->changed.notify_all();
    const bool hasEnded =
        m_state->changed.wait_for(lock, kLastWrites, [this] { return m_state->hasEnded; });
    lock.unlock();
    if (hasEnded)
        m_thread.join();
    else
        m_thread.detach();
}

std::unique_ptr<QFile> LogWriter::standardError()
{
    auto file = std::make_unique<QFile>();
    // Not by the stream, whose lock the end of the program would wait for.
    static_cast<void>(file->open(kStandardError, QIODevice::WriteOnly | QIODevice::Unbuffered));
    return file;
}

void LogWriter::write(const QString &line)
{
    const QByteArray bytes = lineOf(line);
    const std::lock_guard lock(m_state->mutex);
    if (m_state->queuedBytes + bytes.size() > kQueueBytes) {
        ++m_state->dropped;
        return;
    }
    m_state->queue.append(bytes);
    m_state->queuedBytes += bytes.size();
    m_state->changed.notify_all();
}

} // namespace Brix
