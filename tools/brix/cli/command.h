// SPDX-License-Identifier: MIT
#pragma once

#include "argument.h"
#include "exitcode.h"

#include <QtCore/QString>
#include <QtCore/QStringList>

#include <cstdint>
#include <limits>
#include <memory>
#include <optional>

namespace Brix {

class Output;

/*!
 * A command of the tool: its name, its help text, its arguments, and either sub-commands or the
 * work that it does.
 *
 * The commands form a tree whose root is the program itself. The tree can be walked to list all
 * commands and arguments; CommandLine matches the words of a command line with it.
 *
 * \code
 * struct Options { QString file; int count = 1; };
 * auto options = std::make_shared<Options>();
 * Command &list = root.addCommand("list", "List the records");
 * list.addPath("FILE", &options->file, "The database file").setRequired();
 * list.addNumber("--count", &options->count, "Records to list");
 * list.setWork([options](const Output &output) { ... return ExitCode::Done; });
 * \endcode
 *
 * The functions that add an argument take a pointer to the place where its value is stored. The
 * place must exist until the command line has been parsed. The default value is the one it has
 * before.
 *
 * Thread: used in the main thread only.
 */
class Command final
{
public:
    //! May throw Failure.
    using Work = std::function<ExitCode(const Output &output)>;

    static constexpr std::int64_t kLargest = std::numeric_limits<std::int64_t>::max();

    Command(std::string name, std::string description);

    const std::string &name() const { return m_name; }
    const std::string &description() const { return m_description; }
    //! The text at the end of the help, usually an example.
    const std::string &footer() const { return m_footer; }
    const Work &work() const { return m_work; }
    const std::vector<std::unique_ptr<Command>> &commands() const { return m_commands; }
    const std::vector<std::unique_ptr<Argument>> &arguments() const { return m_arguments; }
    //! The argument that has the name \a name. It must exist.
    Argument &argument(const std::string &name) const;

    void setFooter(std::string footer);
    //! Sets the footer to "Example:" and \a example.
    void setExample(const std::string &example);
    void setWork(Work work);

    //! Adds a sub-command. A command line must name one of the sub-commands if there are any.
    Command &addCommand(std::string name, std::string description);

    //! Adds an option without a value, which sets \a target to true.
    Argument &addFlag(std::string names, bool *target, std::string description);
    //! Adds an argument whose value is a text in the encoding of the locale.
    Argument &addText(std::string names, QString *target, std::string description);
    //! Adds an argument that takes one value or more. The values are appended to \a target.
    Argument &addList(std::string names, QStringList *target, std::string description);
    /*!
     * Adds an argument whose value is the path of a file or directory. The stored path is absolute,
     * resolved against the current directory. An empty path is invalid.
     */
    Argument &addPath(std::string names, QString *target, std::string description);
    //! Adds an argument whose value is one of \a choices, compared case-sensitively.
    Argument &addChoice(std::string names, QString *target, std::vector<std::string> choices,
                        std::string description);
    /*!
     * Adds an argument whose value is a whole number from \a lowest to \a highest, written in
     * decimal digits. A number that a 64-bit integer cannot hold is stored as \a highest if that is
     * kLargest.
     */
    template<typename Number>
    Argument &addNumber(std::string names, Number *target, std::string description,
                        std::int64_t lowest = 0, std::int64_t highest = largest<Number>())
    {
        return addNumberArgument(Argument::Kind::Number, std::move(names), std::move(description),
                                 lowest, highest, defaultOf(*target),
                                 [target](std::int64_t number) { assign(target, number); });
    }
    //! Adds an argument whose value is a number of bytes, as addNumber() does.
    template<typename Number>
    Argument &addSize(std::string names, Number *target, std::string description,
                      std::int64_t lowest = 0, std::int64_t highest = largest<Number>())
    {
        return addNumberArgument(Argument::Kind::Size, std::move(names), std::move(description),
                                 lowest, highest, defaultOf(*target),
                                 [target](std::int64_t number) { assign(target, number); });
    }
    //! Adds an argument of any kind, with a function that stores its value.
    Argument &addArgument(Argument::Kind kind, std::string names, std::string description,
                          Argument::Store store);

private:
    template<typename Number>
    struct Value
    {
        using Type = Number;
    };
    template<typename Number>
    struct Value<std::optional<Number>>
    {
        using Type = Number;
    };

    template<typename Number>
    static constexpr std::int64_t largest()
    {
        return std::int64_t(std::numeric_limits<typename Value<Number>::Type>::max());
    }
    template<typename Number>
    static void assign(Number *target, std::int64_t number)
    {
        *target = static_cast<typename Value<Number>::Type>(number);
    }
    template<typename Number>
    static std::string defaultOf(Number number)
    {
        return std::to_string(number);
    }
    template<typename Number>
    static std::string defaultOf(const std::optional<Number> &number)
    {
        return number ? std::to_string(*number) : std::string();
    }

    Argument &addNumberArgument(Argument::Kind kind, std::string names, std::string description,
                                std::int64_t lowest, std::int64_t highest, std::string defaultText,
                                std::function<void(std::int64_t)> assign);

    std::string m_name;
    std::string m_description;
    std::string m_footer;
    Work m_work;
    std::vector<std::unique_ptr<Command>> m_commands;
    std::vector<std::unique_ptr<Argument>> m_arguments;
};

/*!
 * Adds the sub-command \a name to \a parent, with the \a example that its --help shows. \a declare
 * adds the arguments, whose values are stored in an Options object that exists as long as the
 * command. \a work runs with these values; it may throw Failure.
 */
template<typename Options>
Command &addCommand(Command *parent, std::string name, std::string description,
                    const std::string &example, void (*declare)(Command *, Options *),
                    ExitCode (*work)(const Output &, const Options &))
{
    Command &command = parent->addCommand(std::move(name), std::move(description));
    command.setExample(example);
    auto options = std::make_shared<Options>();
    declare(&command, options.get());
    command.setWork([options, work](const Output &output) { return work(output, *options); });
    return command;
}

} // namespace Brix
