// SPDX-License-Identifier: MIT
#include "passwordsource.h"

#include "terminal.h"

#include <QtCore/QFile>

#include <cstdio>

namespace Brix {

using namespace Qt::StringLiterals;
using Talverine::Security::SSecureString;

namespace {

constexpr auto variable = "BRIX_PASSWORD";

std::optional<SSecureString> fromFirstLine(QString *error)
{
    QFile input;
    if (!input.open(stdin, QIODevice::ReadOnly)) {
        *error = u"cannot read the password from stdin: %1"_s.arg(input.errorString());
        return std::nullopt;
    }
    QByteArray line = input.readLine();
    if (line.isEmpty()) {
        *error = u"stdin ended before the password"_s;
        return std::nullopt;
    }
    while (line.endsWith('\n') || line.endsWith('\r'))
        line.chop(1);
    return SSecureString(QString::fromLocal8Bit(line));
}

// What needs no terminal: an answer, or an error, or neither when a prompt is due.
std::optional<SSecureString> withoutPrompt(bool fromStdin, QString *error)
{
    if (fromStdin)
        return fromFirstLine(error);
    if (qEnvironmentVariableIsSet(variable))
        return SSecureString(qEnvironmentVariable(variable));
    return std::nullopt;
}

std::optional<SSecureString> fromPrompt(const QString &prompt, QString *error)
{
    const auto text = Terminal::readHidden(prompt);
    if (text)
        return SSecureString(*text);
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
