// SPDX-License-Identifier: MIT
// Runs the command-line tool as a child process. The test defines BRIX_TOOL as the program's path.
#pragma once

#include <QtCore/QByteArray>
#include <QtCore/QList>
#include <QtCore/QProcess>
#include <QtCore/QProcessEnvironment>
#include <QtCore/QString>
#include <QtCore/QStringList>
#include <QtTest/QTest>

//! How a run of the tool ended, and what it wrote.
struct ToolResult
{
    //! -1 when it did not start, did not end in time, or was ended by a signal.
    int exitCode = -1;
    QByteArray out;
    QByteArray err;

    //! The lines of stdout.
    QList<QByteArray> lines() const
    {
        auto lines = out.split('\n');
        if (!lines.isEmpty() && lines.last().isEmpty())
            lines.removeLast();
        return lines;
    }
};

//! One way to call the tool; each call of run() starts a process.
class ToolProcess
{
public:
    //! The value of BRIX_PASSWORD; null leaves the variable unset.
    QString password;
    QByteArray input;
    QString workingDirectory;

    ToolResult run(const QStringList &arguments) const
    {
        QProcess process;
        prepare(&process, arguments);
        process.start();
        process.write(input);
        process.closeWriteChannel();
        // Events go on, since the peer of the process may live in this thread.
        const bool ended =
            QTest::qWaitFor([&] { return process.state() == QProcess::NotRunning; }, 60'000);
        ToolResult result;
        if (ended && process.exitStatus() == QProcess::NormalExit)
            result.exitCode = process.exitCode();
        result.out = process.readAllStandardOutput();
        result.err = process.readAllStandardError();
        return result;
    }

    //! Gives \a process the program, its arguments and this object's environment.
    void prepare(QProcess *process, const QStringList &arguments) const
    {
        auto environment = QProcessEnvironment::systemEnvironment();
        environment.remove(QStringLiteral("BRIX_PASSWORD"));
        if (!password.isNull())
            environment.insert(QStringLiteral("BRIX_PASSWORD"), password);
        process->setProcessEnvironment(environment);
        process->setWorkingDirectory(workingDirectory);
        process->setProgram(QStringLiteral(BRIX_TOOL));
        process->setArguments(arguments);
    }
};
