// SPDX-License-Identifier: MIT
#include "tool.h"

#include <QtCore/QDir>
#include <QtCore/QFile>

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

} // namespace Brix
