// SPDX-License-Identifier: MIT
#pragma once

#include "exitcode.h"
#include "failure.h"
#include "output.h"

#include <CLI/CLI.hpp>

#include <QtCore/QString>
#include <QtCore/QStringList>

#include <functional>
#include <limits>

namespace Brix {

//! What the sub-commands share: the output, and the work of the one that was chosen.
struct Tool
{
    Output output;
    //! Throws Failure.
    std::function<ExitCode()> run;
};

//! Adds an argument or option whose text lands in \a target.
CLI::Option *addText(CLI::App *command, const std::string &name, QString *target,
                     const std::string &description);
//! Adds an argument that may be given several times.
CLI::Option *addTexts(CLI::App *command, const std::string &name, QStringList *target,
                      const std::string &description);
//! Adds an argument for a file or folder of this machine, resolved by the caller's folder; an empty
//! one is wrong usage.
CLI::Option *addPath(CLI::App *command, const std::string &name, QString *target,
                     const std::string &description);
//! Holds an option to whole numbers from 0 to \a largest; the default stands for any number.
CLI::Validator wholeNumber(qint64 largest = std::numeric_limits<qint64>::max());
/*!
 * Adds the sub-command \a name to \a parent, with the \a example that its --help shows. When it is
 * chosen, \a work runs with the options that it has read; it may throw Failure. The options are
 * made here and live with the work.
 */
template<typename Options>
CLI::App *addCommand(CLI::App *parent, Tool *tool, const std::string &name,
                     const std::string &description, const std::string &example,
                     void (*declare)(CLI::App *, Options *),
                     ExitCode (*work)(const Output &, const Options &))
{
    auto *command = parent->add_subcommand(name, description);
    command->footer("Example:\n  " + example);
    auto options = std::make_shared<Options>();
    declare(command, options.get());
    command->callback([tool, options, work] {
        tool->run = [tool, options, work] { return work(tool->output, *options); };
    });
    return command;
}

// One function for each family of sub-commands.
void addCompressCommands(CLI::App *cli, Tool *tool);
void addDbCommands(CLI::App *cli, Tool *tool);
void addFileCommands(CLI::App *cli, Tool *tool);
void addLogCommands(CLI::App *cli, Tool *tool);
void addServeCommand(CLI::App *cli, Tool *tool);
void addServerCommands(CLI::App *cli, Tool *tool);
void addStreamCommands(CLI::App *cli, Tool *tool);
void addTransferCommands(CLI::App *cli, Tool *tool);
void addUserCommands(CLI::App *cli, Tool *tool);

} // namespace Brix
