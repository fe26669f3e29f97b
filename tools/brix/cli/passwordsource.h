// SPDX-License-Identifier: MIT
#pragma once

#include <brixsec/ssecurestring.h>

#include <QtCore/QString>

#include <optional>

namespace Brix {

/*!
 * Where a password comes from: the first line of stdin when that was asked for, else the variable
 * BRIX_PASSWORD, else a prompt on the terminal. Never from an argument, which everyone on the
 * machine can read.
 */
struct PasswordSource
{
    //! Set by --password-stdin.
    bool fromStdin = false;

    //! The password to log in with; on failure tells in \a error why there is none.
    std::optional<Talverine::Security::SSecureString> existing(const QString &user,
                                                               QString *error) const;
    //! As existing(), but an empty one is not taken, and a prompt asks twice for the same answer.
    std::optional<Talverine::Security::SSecureString> chosen(const QString &user,
                                                             QString *error) const;
};

} // namespace Brix
