// SPDX-License-Identifier: MIT
#pragma once

#include "exitcode.h"

#include <brixlib/protocol/sauthenticationdb.h>

#include <QtCore/QString>

#include <functional>
#include <optional>

namespace Brix {

/*!
 * A server's user file as the tool handles it: stricter than the library, which reads what it can.
 * A file that is not wholly understood is refused, so that an edit never loses what somebody wrote.
 */
class UserFile final
{
public:
    explicit UserFile(const QString &fileName);

    //! Whether a missing or empty file is a table without users, or a failure.
    enum class Missing { IsEmpty, IsFailure };

    //! Reads the users into \a users. On anything but Done \a error tells why.
    ExitCode read(Talverine::SAuthenticationDb *users, Missing missing, QString *error) const;

    /*!
     * Reads the users, lets \a change alter them, and when that gives Done puts a new file in the
     * old one's place in one step. Whatever fails, the old file stays as it was. Other edits of the
     * same file wait meanwhile. A new file can be read by its owner alone.
     */
    ExitCode
    edit(const std::function<ExitCode(Talverine::SAuthenticationDb &, QString *error)> &change,
         QString *error) const;

private:
    ExitCode write(Talverine::SAuthenticationDb &users, QString *error) const;

    QString m_fileName;
};

} // namespace Brix
