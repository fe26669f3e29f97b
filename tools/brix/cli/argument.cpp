// SPDX-License-Identifier: MIT
#include "argument.h"

#include <algorithm>
#include <sstream>

namespace Brix {

namespace {

std::string valueNameOf(Argument::Kind kind)
{
    switch (kind) {
    case Argument::Kind::Flag:
        return {};
    case Argument::Kind::Text:
    case Argument::Kind::List:
    case Argument::Kind::Choice:
        return "TEXT";
    case Argument::Kind::Number:
        return "NUMBER";
    case Argument::Kind::Size:
        return "BYTES";
    case Argument::Kind::Path:
        return "PATH";
    }
    return {};
}

std::string joined(const std::vector<std::string> &texts, const std::string &separator)
{
    std::string all;
    for (const std::string &text : texts)
        all += (all.empty() ? std::string() : separator) + text;
    return all;
}

} // namespace

Argument::Argument(Kind kind, std::string names, std::string description, Store store)
    : m_kind(kind)
    , m_names(std::move(names))
    , m_description(std::move(description))
    , m_valueName(valueNameOf(kind))
    , m_stores{std::move(store)}
{
}

bool Argument::isNamed(const std::string &name) const
{
    std::istringstream names(m_names);
    for (std::string one; std::getline(names, one, ',');) {
        if (one == name)
            return true;
    }
    return false;
}

Argument &Argument::setDescription(std::string description)
{
    m_description = std::move(description);
    return *this;
}

Argument &Argument::setRequired()
{
    m_isRequired = true;
    return *this;
}

Argument &Argument::setNeeded(const Argument &other)
{
    m_needed.push_back(&other);
    return *this;
}

Argument &Argument::setExcluded(const Argument &other)
{
    m_excluded.push_back(&other);
    return *this;
}

Argument &Argument::addCheck(Check check)
{
    m_checks.push_back(std::move(check));
    return *this;
}

Argument &Argument::addStore(Store store)
{
    m_stores.push_back(std::move(store));
    return *this;
}

Argument &Argument::setNonEmpty(std::string message)
{
    return addCheck([message = std::move(message)](const std::string &text) {
        return text.empty() ? message : std::string();
    });
}

Argument &Argument::setValueName(std::string name)
{
    m_valueName = std::move(name);
    return *this;
}

Argument &Argument::setDefaultText(std::string text)
{
    m_defaultText = std::move(text);
    return *this;
}

Argument &Argument::setChoices(std::vector<std::string> choices)
{
    m_choices = std::move(choices);
    setValueName('{' + joined(m_choices, ",") + '}');
    return addCheck([this](const std::string &text) {
        return std::find(m_choices.begin(), m_choices.end(), text) != m_choices.end()
                   ? std::string()
                   : text + " is not one of " + joined(m_choices, ", ");
    });
}

std::string Argument::problemOf(const std::string &text) const
{
    for (const Check &check : m_checks) {
        if (std::string problem = check(text); !problem.empty())
            return problem;
    }
    return {};
}

void Argument::store(const std::vector<std::string> &texts) const
{
    for (const Store &store : m_stores)
        store(texts);
}

} // namespace Brix
