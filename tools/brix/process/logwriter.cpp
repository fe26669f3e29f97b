// SPDX-License-Identifier: MIT
#include "logwriter.h"

#include <cli/printabletext.h>

#include <chrono>

namespace Brix {

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

namespace {

constexpr qsizetype kQueueBytes = 1 << 20;
constexpr qsizetype kLongestLine = 4096;
constexpr auto kLastWrites = 1s;
constexpr int kStandardError = 2;

// Returns how many of the bytes were written. A reader that takes a few at a time is served as
// well.
qint64 writeAll(QFile &file, QByteArrayView bytes)
{
    qint64 done = 0;
    while (done < bytes.size()) {
        const qint64 count = file.write(bytes.data() + done, bytes.size() - done);
        if (count <= 0)
            break;
        done += count;
    }
    return done;
}

// Each call of the system costs more than a line does, so a batch is written by one. Returns how
// many lines were lost and are not told yet.
qint64 writeBatch(QFile &file, const QList<QByteArray> &lines, qint64 dropped)
{
    const QByteArray text = lines.join();
    const qint64 done = writeAll(file, text);
    const bool isWritable = done == text.size();
    const qint64 lost = dropped + lines.size() - QByteArrayView(text).first(done).count('\n');
    if (lost == 0)
        return 0;
    const QByteArray notice = "brix: " + QByteArray::number(lost) + " lines of the log were lost\n";
    return isWritable && writeAll(file, notice) == notice.size() ? 0 : lost;
}

} // namespace

LogWriter::LogWriter(std::unique_ptr<QFile> file)
    : m_thread(kQueueBytes, kLastWrites,
               [file = std::shared_ptr<QFile>(std::move(file))](const QList<QByteArray> &lines,
                                                                qint64 dropped) {
                   return writeBatch(*file, lines, dropped);
               })
{
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
    // Cut before it is escaped too, since a name from outside may be very long.
    const QString text = printableText(QStringView(line).left(kLongestLine));
    writePrintable(line.size() > kLongestLine ? text.left(kLongestLine) + u"..."_s : text);
}

void LogWriter::writePrintable(const QString &line)
{
    const bool isLong = line.size() > kLongestLine + 3;
    const QByteArray bytes =
        (isLong ? line.left(kLongestLine) + u"..."_s : line).toLocal8Bit() + '\n';
    m_thread.add(bytes, bytes.size());
}

} // namespace Brix
