// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QElapsedTimer>
#include <QtCore/QString>

namespace Brix {

/*!
 * One line on stderr that shows how far a transfer is, redrawn at most ten times a second. It shows
 * nothing unless stderr is a terminal.
 *
 * Thread: used in the main thread only.
 */
class ProgressBar final
{
public:
    //! Shows nothing at all with \a hidden. \a total in bytes; 0 when it is unknown.
    explicit ProgressBar(bool hidden, qint64 total = 0);
    //! Wipes the line.
    ~ProgressBar();
    Q_DISABLE_COPY_MOVE(ProgressBar)

    void setTotal(qint64 total);
    //! \a done in bytes.
    void show(qint64 done);
    //! Wipes the line, so that something else can be written there.
    void clear();

    //! The line for \a done of \a total bytes after so many milliseconds, in at most \a width
    //! columns.
    static QString text(qint64 done, qint64 total, qint64 milliseconds, int width);

private:
    bool m_enabled;
    qint64 m_total;
    QElapsedTimer m_sinceStart;
    QElapsedTimer m_sinceDrawn;
};

} // namespace Brix
