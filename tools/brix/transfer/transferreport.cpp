// SPDX-License-Identifier: MIT
#include "transferreport.h"

#include <cli/output.h>

#include <QtCore/QJsonArray>
#include <QtCore/QJsonObject>

namespace Brix {

using namespace Qt::StringLiterals;

namespace {

// Names that are written out in text; --json has them all.
constexpr qsizetype namesShown = 20;

// How grave an end is: the gravest of all failures is the tool's own end.
int gravity(ExitCode code)
{
    switch (code) {
    case ExitCode::Done:
        return 0;
    case ExitCode::Refused:
        return 1;
    case ExitCode::Usage:
        return 2;
    case ExitCode::LocalIo:
        return 3;
    case ExitCode::Connection:
        return 4;
    case ExitCode::Interrupted:
        return 5;
    }
    return 0;
}

double rate(qint64 bytes, double seconds)
{
    return seconds > 0 ? double(bytes) / seconds : 0;
}

} // namespace

TransferReport::TransferReport()
{
    m_sinceStart.start();
}

void TransferReport::addFile(qint64 bytes)
{
    ++m_files;
    m_bytes += bytes;
}

void TransferReport::addFailure(const QString &name, ExitCode code, const QString &why)
{
    m_failures.append({name, why});
    if (gravity(code) > gravity(m_code))
        m_code = code;
}

void TransferReport::addSkipped(const QString &name, const QString &why)
{
    m_skipped.append({name, why});
}

void TransferReport::addNotTried(const QString &name, ExitCode why)
{
    m_notTried.append(name);
    m_whyNotTried = why;
}

ExitCode TransferReport::write(const Output &output) const
{
    const double seconds = double(m_sinceStart.nsecsElapsed()) / 1e9;
    for (const auto &failure : m_failures)
        output.error(u"%1: %2"_s.arg(failure.name, failure.why));
    if (!m_notTried.isEmpty()) {
        const QString reason = m_whyNotTried == ExitCode::Interrupted
                                   ? u"since interrupted"_s
                                   : u"since the connection had ended"_s;
        output.error(u"not tried, %1: %2"_s.arg(
            reason, m_notTried.first(std::min(m_notTried.size(), namesShown)).join(u", "_s) +
                        (m_notTried.size() > namesShown
                             ? u" and %1 more"_s.arg(m_notTried.size() - namesShown)
                             : QString())));
    }
    if (output.json)
        writeObject(output, seconds);
    else if (!output.quiet)
        writeText(output, seconds);
    // What failed before the connection ended tells more than that it did.
    if (m_code == ExitCode::Done || m_whyNotTried == ExitCode::Interrupted)
        return m_whyNotTried;
    return m_code;
}

void TransferReport::writeText(const Output &output, double seconds) const
{
    for (const auto &skipped : m_skipped)
        output.note(u"left out: %1: %2"_s.arg(skipped.name, skipped.why));
    QString text = u"%1 %2, %3 in %4 s, %5/s"_s.arg(
        QString::number(m_files), m_files == 1 ? u"file"_s : u"files"_s, Output::bytes(m_bytes),
        QString::number(seconds, 'f', 1), Output::bytes(qint64(rate(m_bytes, seconds))));
    if (hasFailures())
        text += u", %1 failed"_s.arg(m_failures.size() + m_notTried.size());
    if (!m_skipped.isEmpty())
        text += u", %1 left out"_s.arg(m_skipped.size());
    if (m_unfinishedBytes > 0)
        text += u", %1 of unfinished files discarded"_s.arg(Output::bytes(m_unfinishedBytes));
    output.line(text);
}

void TransferReport::writeObject(const Output &output, double seconds) const
{
    const auto toArray = [](const QList<Entry> &entries) {
        QJsonArray array;
        for (const auto &entry : entries)
            array.append(QJsonObject{{u"name"_s, entry.name}, {u"reason"_s, entry.why}});
        return array;
    };
    output.object({{u"files"_s, m_files},
                   {u"bytes"_s, m_bytes},
                   {u"seconds"_s, seconds},
                   {u"rate"_s, rate(m_bytes, seconds)},
                   {u"unfinishedBytes"_s, m_unfinishedBytes},
                   {u"failures"_s, toArray(m_failures)},
                   {u"notTried"_s, QJsonArray::fromStringList(m_notTried)},
                   {u"leftOut"_s, toArray(m_skipped)}});
}

} // namespace Brix
