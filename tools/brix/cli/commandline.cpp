// SPDX-License-Identifier: MIT
// The only source that includes CLI11: its templates take seconds to compile.
#include "commandline.h"

#include "command.h"

#include <CLI/CLI.hpp>

#include <map>

namespace Brix {

namespace {

using Texts = std::vector<std::string>;

// Builds the parser's own tree from a tree of commands.
class Translation final
{
public:
    Translation(const Command &root, const std::string &version)
        : m_app(root.description(), root.name())
    {
        m_app.fallthrough();
        m_app.set_version_flag("--version", version);
        translate(root, &m_app);
    }

    CLI::App &app() { return m_app; }
    const Command *chosen() const { return m_chosen; }

private:
    void translate(const Command &command, CLI::App *app)
    {
        app->footer(command.footer());
        for (const auto &argument : command.arguments())
            m_options[argument.get()] = translate(*argument, app);
        for (const auto &argument : command.arguments())
            relate(*argument);
        for (const auto &child : command.commands())
            translate(*child, app->add_subcommand(child->name(), child->description()));
        if (!command.commands().empty())
            app->require_subcommand(1);
        else
            app->callback([this, &command] { m_chosen = &command; });
    }

    static CLI::Option *translate(const Argument &argument, CLI::App *app)
    {
        CLI::Option *const option = addOption(argument, app);
        option->required(argument.isRequired());
        if (argument.kind() == Argument::Kind::Flag)
            return option;
        option->type_name(argument.valueName());
        if (!argument.defaultText().empty())
            option->default_str(argument.defaultText());
        option->check([&argument](const std::string &text) { return argument.problemOf(text); });
        return option;
    }

    static CLI::Option *addOption(const Argument &argument, CLI::App *app)
    {
        switch (argument.kind()) {
        case Argument::Kind::Flag:
            return app->add_flag_callback(
                argument.names(), [&argument] { argument.store({}); }, argument.description());
        case Argument::Kind::List:
            return app->add_option_function<Texts>(
                argument.names(), [&argument](const Texts &texts) { argument.store(texts); },
                argument.description());
        default:
            return app->add_option_function<std::string>(
                argument.names(), [&argument](const std::string &text) { argument.store({text}); },
                argument.description());
        }
    }

    void relate(const Argument &argument)
    {
        for (const Argument *other : argument.needed())
            m_options.at(&argument)->needs(m_options.at(other));
        for (const Argument *other : argument.excluded())
            m_options.at(&argument)->excludes(m_options.at(other));
    }

    CLI::App m_app;
    std::map<const Argument *, CLI::Option *> m_options;
    const Command *m_chosen = nullptr;
};

std::string recognisedWords(const CLI::App &app)
{
    std::string words = app.get_name();
    for (auto chosen = app.get_subcommands(); !chosen.empty();
         chosen = chosen.back()->get_subcommands())
        words += ' ' + chosen.back()->get_name();
    return words;
}

// A word that is not a sub-command is left over when the missing sub-command is noticed.
std::string problemOf(const CLI::App &app, const CLI::ParseError &error)
{
    const auto rest = app.remaining(true);
    return rest.empty() ? error.what() : "unknown argument: " + rest.front();
}

} // namespace

CommandLine::CommandLine(const Command &root, std::string version)
    : m_root(root)
    , m_version(std::move(version))
{
}

CommandLine::Result CommandLine::parse(int argc, const char *const argv[]) const
{
    Translation translation(m_root, m_version);
    CLI::App &app = translation.app();
    try {
        app.parse(argc, argv);
    } catch (const CLI::Success &shown) {
        app.exit(shown);
        return {Outcome::Shown, nullptr, {}, {}};
    } catch (const CLI::ParseError &error) {
        return {Outcome::Wrong, nullptr, problemOf(app, error), recognisedWords(app)};
    }
    return {Outcome::Chosen, translation.chosen(), {}, {}};
}

} // namespace Brix
