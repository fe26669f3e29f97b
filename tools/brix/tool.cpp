// SPDX-License-Identifier: MIT
#include "tool.h"

#include <QtCore/QDir>
#include <QtCore/QFile>

#include <algorithm>

namespace Brix {

CLI::Option *addText(CLI::App *command, const std::string &name, QString *target,
                     const std::string &description)
{
    return command
        ->add_option_function<std::string>(
            name,
            [target](const std::string &text) {
                *target = QString::fromLocal8Bit(text.data(), qsizetype(text.size()));
            },
            description)
        ->type_name("TEXT");
}

CLI::Option *addTexts(CLI::App *command, const std::string &name, QStringList *target,
                      const std::string &description)
{
    return command
        ->add_option_function<std::vector<std::string>>(
            name,
            [target](const std::vector<std::string> &texts) {
                for (const std::string &text : texts)
                    target->append(QString::fromLocal8Bit(text.data(), qsizetype(text.size())));
            },
            description)
        ->type_name("TEXT");
}

CLI::Option *addPath(CLI::App *command, const std::string &name, QString *target,
                     const std::string &description)
{
    return command
        ->add_option_function<std::string>(
            name,
            [target](const std::string &text) {
                *target =
                    QDir().absoluteFilePath(QFile::decodeName(QByteArray::fromStdString(text)));
            },
            description)
        ->type_name("PATH")
        // It would stand for the caller's folder, which nobody means who wrote "$FOLDER".
        ->check([](const std::string &text) { return text.empty() ? "the path is empty" : ""; });
}

// As CLI::NonNegativeNumber, whose message writes out the largest double.
CLI::Validator wholeNumber(qint64 largest)
{
    const auto problem = [largest](const std::string &text) {
        const auto isDigit = [](char c) { return c >= '0' && c <= '9'; };
        if (text.empty() || !std::all_of(text.begin(), text.end(), isDigit))
            return text + " is no whole number from 0 on";
        // What a qint64 can't hold is read as the largest.
        bool fits = false;
        const qint64 number = QByteArray::fromStdString(text).toLongLong(&fits);
        const bool isLimited = largest < std::numeric_limits<qint64>::max();
        return isLimited && (!fits || number > largest)
                   ? text + " is larger than " + std::to_string(largest)
                   : std::string();
    };
    return CLI::Validator(problem, "NONNEGATIVE");
}

} // namespace Brix
