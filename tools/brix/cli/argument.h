// SPDX-License-Identifier: MIT
#pragma once

#include <functional>
#include <string>
#include <vector>

namespace Brix {

/*!
 * A positional argument or an option of a Command: its names, its help text, and where its value is
 * stored. Command creates and owns it.
 *
 * The setters return the argument itself, so that calls can be chained.
 *
 * Thread: used in the main thread only.
 */
class Argument final
{
public:
    enum class Kind {
        Flag,   //!< no value
        Text,   //!< one text
        List,   //!< one text or more
        Number, //!< a whole number
        Size,   //!< a whole number of bytes
        Choice, //!< one of choices()
        Path,   //!< a file or directory of this machine
    };

    //! Returns why a text is not a valid value, or an empty string if it is valid.
    using Check = std::function<std::string(const std::string &text)>;
    //! Stores the given values: one, all values of a list, or none for a flag.
    using Store = std::function<void(const std::vector<std::string> &texts)>;

    /*!
     * \a names is the name of a positional argument ("FILE"), or the names of an option separated
     * by commas ("-r,--recursive").
     */
    Argument(Kind kind, std::string names, std::string description, Store store);

    Kind kind() const { return m_kind; }
    const std::string &names() const { return m_names; }
    const std::string &description() const { return m_description; }
    const std::string &valueName() const { return m_valueName; }
    const std::string &defaultText() const { return m_defaultText; }
    const std::vector<std::string> &choices() const { return m_choices; }
    const std::vector<const Argument *> &needed() const { return m_needed; }
    const std::vector<const Argument *> &excluded() const { return m_excluded; }
    bool isRequired() const { return m_isRequired; }
    bool isPositional() const { return m_names.front() != '-'; }
    //! Whether \a name is one of the names.
    bool isNamed(const std::string &name) const;

    Argument &setDescription(std::string description);
    //! Whether a command line without this argument is invalid. Default: it is valid.
    Argument &setRequired();
    //! A command line with this argument is invalid without \a other.
    Argument &setNeeded(const Argument &other);
    //! A command line with this argument is invalid if it also has \a other.
    Argument &setExcluded(const Argument &other);
    //! Adds a check. The value is invalid if one of the checks returns a message.
    Argument &addCheck(Check check);
    //! Adds a function that stores the values too, after those before it.
    Argument &addStore(Store store);
    //! Makes an empty text invalid, with \a message.
    Argument &setNonEmpty(std::string message);
    //! The word that --help shows in place of the value. Default: a word for the kind.
    Argument &setValueName(std::string name);
    //! The value that --help shows as the default.
    Argument &setDefaultText(std::string text);
    //! The valid values. --help lists them.
    Argument &setChoices(std::vector<std::string> choices);

    //! Returns why \a text is not a valid value, or an empty string if it is valid.
    std::string problemOf(const std::string &text) const;
    //! Stores \a texts, which must be valid.
    void store(const std::vector<std::string> &texts) const;

private:
    Kind m_kind;
    bool m_isRequired = false;
    std::string m_names;
    std::string m_description;
    std::string m_valueName;
    std::string m_defaultText;
    std::vector<std::string> m_choices;
    std::vector<const Argument *> m_needed;
    std::vector<const Argument *> m_excluded;
    std::vector<Check> m_checks;
    std::vector<Store> m_stores;
};

} // namespace Brix
