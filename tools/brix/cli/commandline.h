// SPDX-License-Identifier: MIT
#pragma once

#include <string>

namespace Brix {

class Command;

/*!
 * Parses the command line of a tree of commands.
 *
 * Options of the root are accepted before and after the name of a sub-command. Every command has
 * the options -h and --help, the root also has --version.
 */
class CommandLine final
{
public:
    //! How parse() ended.
    enum class Outcome {
        Chosen, //!< the values are stored and the command is to run
        Shown,  //!< a help text or the version was written to stdout
        Wrong,  //!< the command line is invalid
    };

    struct Result
    {
        Outcome outcome = Outcome::Wrong;
        //! The command to run, with Chosen.
        const Command *command = nullptr;
        //! What is wrong, with Wrong.
        std::string problem;
        //! The words of the command up to the last sub-command that was recognised, with Wrong.
        std::string words;
    };

    //! \a root must exist longer than this object. \a version is the text that --version shows.
    CommandLine(const Command &root, std::string version);

    //! Stores the values of \a argv. With another outcome than Chosen, some may have been stored.
    Result parse(int argc, const char *const argv[]) const;

private:
    const Command &m_root;
    std::string m_version;
};

} // namespace Brix
