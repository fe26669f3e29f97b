// SPDX-License-Identifier: MIT
// brix serve: its options, and the course of the command.
#include "fileserver.h"
#include "processrights.h"
#include <cli/failure.h>
#include <process/interruption.h>
#include <tool.h>

namespace Brix {

using namespace Qt::StringLiterals;

namespace {

bool isOctalMask(const std::string &text)
{
    return !text.empty() && text.size() <= 4 &&
           text.find_first_not_of("01234567") == std::string::npos &&
           std::stoi(text, nullptr, 8) <= 0777;
}

void declareServe(Command *command, ServeOptions *options)
{
    command
        ->addPath("--users", &options->users,
                  "The user file (see brix user); read again when it changes and on SIGHUP")
        .setRequired();
    command->addText("--address", &options->address,
                     "Address to listen on; 0.0.0.0 or :: for all. Default: 127.0.0.1");
    command->addNumber("--port", &options->port, "Port to listen on; 0 takes a free one");
    command->addText("--name", &options->name, "The server's name. Default: that of this machine");
    command->addFlag("--document-root", &options->documentRoot,
                     "Show each user the own home folder as /");
    command->addFlag("--strict-jail", &options->strictJail,
                     "Keep users in their homes by resolving links and comparing whole names");
    command->addSize("--limit-in", &options->limitIn,
                     "Bytes a second that all clients together may send; 0 for no limit");
    command->addSize("--limit-out", &options->limitOut,
                     "Bytes a second that all clients together may receive; 0 for no limit");
    command
        ->addArgument(Argument::Kind::Text, "--umask",
                      "Permissions that new files of clients do not get, in octal, for instance "
                      "027. Default: those of the caller's umask",
                      [options](const auto &texts) {
                          options->fileMask = std::stoi(texts.front(), nullptr, 8);
                      })
        .setValueName("OCTAL")
        .addCheck([](const std::string &text) {
            return isOctalMask(text) ? std::string()
                                     : text + " is not an octal number from 0 to 777";
        });
    command->addNumber("--clean-partials", &options->partialDays,
                       "Remove, at the start, what killed servers have left of transfers in the "
                       "homes so many days ago (UUID.part); 0 keeps it",
                       0, 36500);
    command->addFlag("--verbose", &options->verbose,
                     "A line on stderr for each login, command and end of a session");
    ServeAuditOptions::declare(command, &options->audit);
    ServeGuards::declare(command, &options->guards);
}

ExitCode serve(const Output &output, const ServeOptions &options)
{
    if (options.fileMask >= 0 && !ProcessRights::setFileMask(options.fileMask))
        throw Failure{ExitCode::Usage, u"--umask: this system has no such mask"_s};
    const Interruption interruption;
    FileServer server(output, options);
    server.cleanPartialFiles();
    server.listen();
    server.run(interruption);
    return ExitCode::Done;
}

} // namespace

void addServeCommand(Command *root)
{
    addCommand<ServeOptions>(
        root, "serve", "Serve files until Ctrl-C; the first line tells the address and port",
        "brix serve --users users.json --address 0.0.0.0 --port 7000", declareServe, serve);
}

} // namespace Brix
