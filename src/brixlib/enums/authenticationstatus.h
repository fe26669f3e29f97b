// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QMetaType>

namespace Talverine {

//! Whether a user is logged in on a connection; travels as an unsigned 32-bit word.
enum class AuthenticationStatus : quint32 {
    NotAuthenticated = 0, //!< no user is logged in, or the last attempt failed
    Authenticated = 1,    //!< the user was accepted
};

} // namespace Talverine

Q_DECLARE_METATYPE(Talverine::AuthenticationStatus)
