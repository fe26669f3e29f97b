// SPDX-License-Identifier: MIT
#include "passwordsource.h"

#include "secretline.h"
#include "terminal.h"

#include <QtCore/QFile>

namespace Brix {

using namespace Qt::StringLiterals;
using Talverine::Security::SSecureString;

namespace {

constexpr auto variable = "BRIX_PASSWORD";
constexpr int kStandardInput = 0;

// Byte by byte: a buffer would keep a copy, and what follows the line.
std::optional<SSecureString> fromFirstLine(QString *error)
{
    QFile input;
    if (!input.open(kStandardInput, QIODevice::ReadOnly | QIODevice::Unbuffered)) {
        *error = u"cannot read the password from stdin: %1"_s.arg(input.errorString());
        return std::nullopt;
    }
    SecretLine line;
    char byte = 0;
    while (byte != '\n' && input.getChar(&byte)) {
        if (!line.append(byte)) {
            *error = u"the password on stdin is too long"_s;
            return std::nullopt;
        }
    }
    if (line.isEmpty()) {
        *error = u"stdin ended before the password"_s;
        return std::nullopt;
    }
    return line.take();
}

std::optional<SSecureString> fromVariable()
{
    if (!qEnvironmentVariableIsSet(variable))
        return std::nullopt;
    QByteArray value = qgetenv(variable);
    // A variable that is set and empty is an empty password, not a missing one.
    return value.isEmpty() ? SSecureString(u""_s) : takeSecret(value);
}

// What needs no terminal: an answer, or an error, or neither when a prompt is due.
std::optional<SSecureString> withoutPrompt(bool fromStdin, QString *error)
{
    return fromStdin ? fromFirstLine(error) : fromVariable();
}

std::optional<SSecureString> fromPrompt(const QString &prompt, QString *error)
{
    auto password = Terminal::readHidden(prompt);
    if (password)
        return password;
    *error = u"no password: set BRIX_PASSWORD, give --password-stdin, or use a terminal"_s;
    return std::nullopt;
}

std::optional<SSecureString> fromPromptTwice(const QString &user, QString *error)
{
    const auto password = fromPrompt(u"New password of %1: "_s.arg(user), error);
    if (!password)
        return std::nullopt;
    const auto again = fromPrompt(u"The same again: "_s, error);
    if (!again)
        return std::nullopt;
    if (*password == *again)
        return password;
    *error = u"the two passwords differ"_s;
    return std::nullopt;
}

} // namespace

std::optional<SSecureString> PasswordSource::existing(const QString &user, QString *error) const
{
    auto password = withoutPrompt(fromStdin, error);
    if (password || !error->isEmpty())
        return password;
    return fromPrompt(u"Password of %1: "_s.arg(user), error);
}

std::optional<SSecureString> PasswordSource::chosen(const QString &user, QString *error) const
{
    auto password = withoutPrompt(fromStdin, error);
    if (!password && error->isEmpty())
        password = fromPromptTwice(user, error);
    if (!password || !password->isEmpty())
        return password;
    *error = u"an empty password is not taken"_s;
    return std::nullopt;
}

} // namespace Brix
