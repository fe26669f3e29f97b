// SPDX-License-Identifier: MIT
// brix: one tool over the library. Each family of sub-commands has a source file of its own.
#include "messagehandler.h"
#include "standardstreams.h"
#include "tool.h"

#include <QtCore/QCoreApplication>
#include <QtCore/QLoggingCategory>

#include <cstdio>

using namespace Brix;
using namespace Qt::StringLiterals;

namespace {

// Results that did not reach their reader must not look like success.
ExitCode flushed(const Output &output, ExitCode code)
{
    if (std::fflush(stdout) == 0 && !std::ferror(stdout))
        return code;
    output.error(u"cannot write to stdout"_s);
    return code == ExitCode::Done ? ExitCode::LocalIo : code;
}

ExitCode runChosen(const Tool &tool)
{
    try {
        return tool.run();
    } catch (const Failure &failure) {
        tool.output.error(failure.text);
        return failure.code;
    }
}

ExitCode wrongUsage(const Output &output, const CLI::App &cli, const CLI::ParseError &error)
{
    QString command = u"brix"_s;
    for (auto chosen = cli.get_subcommands(); !chosen.empty();
         chosen = chosen.back()->get_subcommands())
        command += u' ' + QString::fromStdString(chosen.back()->get_name());
    // A word that is no sub-command is left over when the missing sub-command is noticed.
    const auto rest = cli.remaining(true);
    output.error(rest.empty() ? QString::fromLocal8Bit(error.what())
                              : u"unknown argument: %1"_s.arg(QString::fromStdString(rest[0])));
    output.note(u"Try: %1 --help"_s.arg(command));
    return ExitCode::Usage;
}

} // namespace

int main(int argc, char *argv[])
{
    StandardStreams::keepPlaces();
    installMessageHandler();
    QCoreApplication application(argc, argv);
    QCoreApplication::setApplicationName(u"brix"_s);
    QCoreApplication::setApplicationVersion(QStringLiteral(BRIX_VERSION));
    // The library's debug lines are for its developers; QT_LOGGING_RULES brings them back.
    QLoggingCategory::setFilterRules(u"default.debug=false"_s);

    Tool tool;
    CLI::App cli{
        "Serves, moves and inspects files over the brix protocol, compresses them, and keeps\n"
        "text databases and logs.",
        "brix"};
    cli.footer(exitCodesHelp);
    cli.fallthrough();
    cli.require_subcommand(1);
    cli.set_version_flag("--version", "brix " BRIX_VERSION);
    cli.add_flag("--json", tool.output.json, "Results as one JSON object a line");
    cli.add_flag("--quiet", tool.output.quiet, "No progress and no notes");
    cli.add_flag("--raw", tool.output.raw,
                 "Results without escapes for control characters, also on a terminal");
    addServeCommand(&cli, &tool);
    addTransferCommands(&cli, &tool);
    addStreamCommands(&cli, &tool);
    addFileCommands(&cli, &tool);
    addServerCommands(&cli, &tool);
    addUserCommands(&cli, &tool);
    addCompressCommands(&cli, &tool);
    addDbCommands(&cli, &tool);
    addLogCommands(&cli, &tool);

    try {
        cli.parse(argc, argv);
    } catch (const CLI::Success &help) {
        cli.exit(help);
        return int(flushed(tool.output, ExitCode::Done));
    } catch (const CLI::ParseError &error) {
        return int(wrongUsage(tool.output, cli, error));
    }
    return int(flushed(tool.output, runChosen(tool)));
}
