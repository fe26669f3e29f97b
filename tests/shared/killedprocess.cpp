// SPDX-License-Identifier: MIT
#include <shared/killedprocess.h>

#include <shared/eventwait.h>

KilledProcess::~KilledProcess()
{
    kill();
}

bool KilledProcess::start()
{
    m_process.start();
    return m_process.waitForStarted();
}

KilledProcess::End KilledProcess::killAfter(std::chrono::milliseconds moment)
{
    const QDeadlineTimer deadline(moment, Qt::PreciseTimer);
    return killWhen([&deadline] { return deadline.hasExpired(); }, moment + kPatience);
}

KilledProcess::End KilledProcess::killWhen(const std::function<bool()> &condition,
                                           std::chrono::milliseconds patience)
{
    bool hasCome = false;
    const bool decided =
        waitWithEvents([&] { return (hasCome = condition()) || !isRunning(); }, patience);
    if (decided && !hasCome)
        return End::EndedBefore;
    kill();
    if (!hasCome)
        return End::MomentNotCome;
    // It may have come to its own end at the very moment.
    return m_process.exitStatus() == QProcess::CrashExit ? End::Killed : End::EndedBefore;
}

KilledProcess::End KilledProcess::killAtOutput(const QByteArray &text,
                                               std::chrono::milliseconds patience)
{
    return killWhen([&] { return output().contains(text); }, patience);
}

QByteArray KilledProcess::output()
{
    m_output += m_process.readAllStandardOutput();
    return m_output;
}

void KilledProcess::kill()
{
    m_process.kill();
    m_process.waitForFinished();
}
