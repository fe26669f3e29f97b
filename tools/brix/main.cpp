// SPDX-License-Identifier: MIT
// brix: one tool over the library. Each family of sub-commands has a source file of its own.
#include "tool.h"
#include <cli/commandline.h>
#include <process/messagehandler.h>
#include <process/standardstreams.h>

#include <QtCore/QCoreApplication>
#include <QtCore/QLoggingCategory>

#include <cstdio>
#include <cstdlib>
#include <new>

using namespace Brix;
using namespace Qt::StringLiterals;

namespace {

// No exception passes an event loop, whose code need not be made for it.
class Application final : public QCoreApplication
{
public:
    using QCoreApplication::QCoreApplication;

    bool notify(QObject *receiver, QEvent *event) override
    {
        try {
            return QCoreApplication::notify(receiver, event);
        } catch (const std::bad_alloc &) {
            Output().error(u"out of memory"_s);
            std::_Exit(int(ExitCode::Connection)); // it is the peers' messages that come as events
        }
    }
};

// Results that did not reach their reader must not look like success.
ExitCode flushed(const Output &output, ExitCode code)
{
    if (std::fflush(stdout) == 0 && !std::ferror(stdout))
        return code;
    output.error(u"cannot write to stdout"_s);
    return code == ExitCode::Done ? ExitCode::LocalIo : code;
}

ExitCode run(const Command &command, const Output &output)
{
    try {
        return command.work()(output);
    } catch (const Failure &failure) {
        output.error(failure.text);
        return failure.code;
    } catch (const std::bad_alloc &) {
        output.error(u"out of memory"_s);
        return ExitCode::LocalIo;
    }
}

ExitCode wrongUsage(const Output &output, const CommandLine::Result &result)
{
    output.error(QString::fromLocal8Bit(result.problem.c_str()));
    output.note(u"Try: %1 --help"_s.arg(QString::fromStdString(result.words)));
    return ExitCode::Usage;
}

ExitCode runLine(const Command &root, const Output &output, int argc, char *argv[])
{
    const auto result = CommandLine(root, "brix " BRIX_VERSION).parse(argc, argv);
    switch (result.outcome) {
    case CommandLine::Outcome::Chosen:
        return flushed(output, run(*result.command, output));
    case CommandLine::Outcome::Shown:
        return flushed(output, ExitCode::Done);
    case CommandLine::Outcome::Wrong:
        break;
    }
    return wrongUsage(output, result);
}

} // namespace

int main(int argc, char *argv[])
{
    StandardStreams::keepPlaces();
    installMessageHandler();
    const Application application(argc, argv);
    QCoreApplication::setApplicationName(u"brix"_s);
    QCoreApplication::setApplicationVersion(QStringLiteral(BRIX_VERSION));
    // The library's debug lines are for its developers; QT_LOGGING_RULES brings them back.
    QLoggingCategory::setFilterRules(u"default.debug=false"_s);

    Output output;
    Command root(
        "brix",
        "Serves, moves and inspects files over the brix protocol, compresses them, and keeps\n"
        "text databases and logs.");
    root.setFooter(exitCodesHelp);
    root.addFlag("--json", &output.json, "Results as one JSON object a line");
    root.addFlag("--quiet", &output.quiet, "No progress and no notes");
    root.addFlag("--raw", &output.raw,
                 "Results without escapes for control characters, also on a terminal");
    addServeCommand(&root);
    addTransferCommands(&root);
    addStreamCommands(&root);
    addFileCommands(&root);
    addServerCommands(&root);
    addUserCommands(&root);
    addCompressCommands(&root);
    addDbCommands(&root);
    addLogCommands(&root);
    return int(runLine(root, output, argc, argv));
}
