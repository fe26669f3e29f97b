// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QByteArray>
#include <QtCore/QProcess>

#include <chrono>
#include <functional>

/*!
 * A child process that is killed by SIGKILL at a chosen moment, so that it can clear nothing away;
 * what it leaves behind is the test's to look at.
 *
 *     KilledProcess child;
 *     child.process().setProgram(program);
 *     QVERIFY(child.start());
 *     QCOMPARE(child.killAfter(moment), KilledProcess::End::Killed);
 *
 * Its output is read all the time and kept. Lives in one thread, whose events go on during the
 * waits. Its end kills the process.
 */
class KilledProcess final
{
public:
    //! How the process came to its end.
    enum class End {
        Killed,
        EndedBefore,   //!< it ended by itself before the moment came
        MomentNotCome, //!< patience was over before the moment came; it was killed then
    };

    static constexpr std::chrono::milliseconds kPatience{30'000};

    ~KilledProcess();

    //! For its program, arguments and environment.
    QProcess &process() { return m_process; }

    //! Starts it and waits until it runs.
    [[nodiscard]] bool start();

    //! Kills it after so long a time.
    End killAfter(std::chrono::milliseconds moment);
    //! Kills it as soon as \a condition holds, which is asked every few milliseconds.
    End killWhen(const std::function<bool()> &condition,
                 std::chrono::milliseconds patience = kPatience);
    //! Kills it as soon as it has written \a text to its standard output.
    End killAtOutput(const QByteArray &text, std::chrono::milliseconds patience = kPatience);

    //! What it has written to its standard output so far.
    QByteArray output();

private:
    bool isRunning() const { return m_process.state() != QProcess::NotRunning; }
    void kill();

    QProcess m_process;
    QByteArray m_output;
};
