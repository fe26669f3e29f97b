// SPDX-License-Identifier: MIT
#pragma once

#include <cli/exitcode.h>

#include <QtCore/QElapsedTimer>
#include <QtCore/QList>
#include <QtCore/QString>

namespace Brix {

class Output;

//! What became of the files of one get or put, for the summary at its end.
class TransferReport final
{
public:
    TransferReport();

    void addFile(qint64 bytes);
    void addFailure(const QString &name, ExitCode code, const QString &why);
    //! Bytes of a file that did not arrive whole.
    void addUnfinished(qint64 bytes) { m_unfinishedBytes += bytes; }
    //! Left out on purpose, which is no failure.
    void addSkipped(const QString &name, const QString &why);
    //! Never begun, since the session had ended; \a why is Interrupted or Connection.
    void addNotTried(const QString &name, ExitCode why);

    //! Bytes of the files that are done.
    qint64 bytes() const { return m_bytes; }
    bool hasFailures() const { return !m_failures.isEmpty() || !m_notTried.isEmpty(); }

    //! Writes failures, what was left out, and the summary. Gives how the tool ends.
    ExitCode write(const Output &output) const;

private:
    struct Entry
    {
        QString name;
        QString why;
    };

    void writeText(const Output &output, double seconds) const;
    void writeObject(const Output &output, double seconds) const;

    QElapsedTimer m_sinceStart;
    qint64 m_files = 0;
    qint64 m_bytes = 0;
    qint64 m_unfinishedBytes = 0;
    ExitCode m_code = ExitCode::Done;
    ExitCode m_whyNotTried = ExitCode::Done;
    QList<Entry> m_failures;
    QList<Entry> m_skipped;
    QList<QString> m_notTried;
};

} // namespace Brix
