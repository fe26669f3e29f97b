// SPDX-License-Identifier: MIT
#include "command.h"

#include <QtCore/QDir>
#include <QtCore/QFile>

#include <algorithm>
#include <charconv>

namespace Brix {

namespace {

QString decoded(const std::string &text)
{
    return QString::fromLocal8Bit(text.data(), qsizetype(text.size()));
}

// The number that text denotes; empty if text is not a whole number. Saturates at 64 bits.
std::optional<std::int64_t> parsedNumber(const std::string &text)
{
    std::int64_t number = 0;
    const char *const end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, number);
    if (stop != end || error == std::errc::invalid_argument)
        return {};
    if (error == std::errc::result_out_of_range)
        return text.front() == '-' ? std::numeric_limits<std::int64_t>::min() : Command::kLargest;
    return number;
}

std::string problemOfNumber(const std::string &text, std::int64_t lowest, std::int64_t highest)
{
    const auto number = parsedNumber(text);
    if (!number)
        return text + " is not a whole number";
    if (*number < lowest)
        return text + " is smaller than " + std::to_string(lowest);
    if (*number > highest)
        return text + " is larger than " + std::to_string(highest);
    return {};
}

// "{1..60}", "{1..}", or nothing for all numbers from 0 on. A limit of an integer type is not
// shown.
std::string rangeText(std::int64_t lowest, std::int64_t highest)
{
    const bool hasHighest = highest < std::numeric_limits<std::int32_t>::max();
    if (lowest < 0 || (lowest == 0 && !hasHighest))
        return {};
    return '{' + std::to_string(lowest) + ".." + (hasHighest ? std::to_string(highest) : "") + '}';
}

} // namespace

Command::Command(std::string name, std::string description)
    : m_name(std::move(name))
    , m_description(std::move(description))
{
}

Argument &Command::argument(const std::string &name) const
{
    const auto found =
        std::find_if(m_arguments.begin(), m_arguments.end(),
                     [&name](const auto &argument) { return argument->isNamed(name); });
    Q_ASSERT_X(found != m_arguments.end(), "Command::argument", name.c_str());
    return **found;
}

void Command::setFooter(std::string footer)
{
    m_footer = std::move(footer);
}

void Command::setExample(const std::string &example)
{
    setFooter("Example:\n  " + example);
}

void Command::setWork(Work work)
{
    m_work = std::move(work);
}

Command &Command::addCommand(std::string name, std::string description)
{
    m_commands.push_back(std::make_unique<Command>(std::move(name), std::move(description)));
    return *m_commands.back();
}

Argument &Command::addFlag(std::string names, bool *target, std::string description)
{
    return addArgument(Argument::Kind::Flag, std::move(names), std::move(description),
                       [target](const auto &) { *target = true; });
}

Argument &Command::addText(std::string names, QString *target, std::string description)
{
    return addArgument(Argument::Kind::Text, std::move(names), std::move(description),
                       [target](const auto &texts) { *target = decoded(texts.front()); });
}

Argument &Command::addList(std::string names, QStringList *target, std::string description)
{
    return addArgument(Argument::Kind::List, std::move(names), std::move(description),
                       [target](const auto &texts) {
                           for (const std::string &text : texts)
                               target->append(decoded(text));
                       });
}

Argument &Command::addPath(std::string names, QString *target, std::string description)
{
    return addArgument(Argument::Kind::Path, std::move(names), std::move(description),
                       [target](const auto &texts) {
                           const auto bytes = QByteArray::fromStdString(texts.front());
                           *target = QDir().absoluteFilePath(QFile::decodeName(bytes));
                       })
        // An unset shell variable would otherwise select the current directory.
        .setNonEmpty("the path is empty");
}

Argument &Command::addChoice(std::string names, QString *target, std::vector<std::string> choices,
                             std::string description)
{
    return addArgument(Argument::Kind::Choice, std::move(names), std::move(description),
                       [target](const auto &texts) { *target = decoded(texts.front()); })
        .setChoices(std::move(choices))
        .setDefaultText(target->toStdString());
}

Argument &Command::addArgument(Argument::Kind kind, std::string names, std::string description,
                               Argument::Store store)
{
    m_arguments.push_back(std::make_unique<Argument>(kind, std::move(names), std::move(description),
                                                     std::move(store)));
    return *m_arguments.back();
}

Argument &Command::addNumberArgument(Argument::Kind kind, std::string names,
                                     std::string description, std::int64_t lowest,
                                     std::int64_t highest, std::string defaultText,
                                     std::function<void(std::int64_t)> assign)
{
    Argument &argument = addArgument(
        kind, std::move(names), std::move(description),
        [assign = std::move(assign)](const auto &texts) { assign(*parsedNumber(texts.front())); });
    if (const std::string range = rangeText(lowest, highest); !range.empty())
        argument.setValueName(argument.valueName() + range);
    return argument.setDefaultText(std::move(defaultText))
        .addCheck([lowest, highest](const std::string &text) {
            return problemOfNumber(text, lowest, highest);
        });
}

} // namespace Brix
