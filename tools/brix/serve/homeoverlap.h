// SPDX-License-Identifier: MIT
#pragma once

#include <brixlib/protocol/users/sauthenticationdb.h>

#include <QtCore/QStringList>

namespace Brix {

/*!
 * Finds what a user reaches outside the home directory because the path jail compares only the
 * beginning of a path, without case: with the home "/srv/ann" also "/srv/anna" and "/srv/Ann".
 *
 * A home directory below another one is reported as well. Users with the same home are not.
 */
class HomeOverlap final
{
public:
    //! How the sessions of the server compare paths.
    enum class Jail {
        Beginnings, //!< by the beginning of a path, as they do by default
        Strict,     //!< by whole names: only homes below a home are reached
    };

    /*!
     * Reads the parent directories of all homes. Returns one sentence for each pair of homes and
     * for each directory beside a home, with what to do. At most 20; one more sentence then tells
     * how many are left out.
     */
    static QStringList warnings(const Talverine::SAuthenticationDb &users, Jail jail);
    //! The sentences that concern the user \a name, as sessions compare paths by default.
    static QStringList warningsAbout(const Talverine::SAuthenticationDb &users,
                                     const QString &name);
};

} // namespace Brix
