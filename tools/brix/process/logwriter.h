// SPDX-License-Identifier: MIT
#pragma once

#include "batchthread.h"

#include <QtCore/QByteArray>
#include <QtCore/QFile>
#include <QtCore/QString>

#include <memory>

namespace Brix {

/*!
 * Writes lines to a file, a pipe or a terminal in a thread of its own, so that a reader who stalls
 * or a disk that is slow holds up nobody who writes a line.
 *
 * At most 1 MiB of lines waits. Lines for which there is no room, and lines that could not be
 * written, are dropped; when writing works again, a line states how many.
 *
 * Thread: fully shared.
 */
class LogWriter final
{
public:
    //! Takes an open \a file, best opened without a buffer. The destructor writes the lines that
    //! wait, for a second at most.
    explicit LogWriter(std::unique_ptr<QFile> file);
    Q_DISABLE_COPY_MOVE(LogWriter)

    //! The process's stderr, open for writing.
    static std::unique_ptr<QFile> standardError();

    /*!
     * Queues \a line, in the form of printableText() and cut after 4096 characters, and returns at
     * once.
     */
    void write(const QString &line);
    //! As write(), for a line whose foreign parts have the form of printableText() already.
    void writePrintable(const QString &line);

private:
    BatchThread<QByteArray> m_thread;
};

} // namespace Brix
