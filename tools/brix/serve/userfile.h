// SPDX-License-Identifier: MIT
#pragma once

#include <brixlib/protocol/users/sauthenticationdb.h>

#include <QtCore/QString>

#include <functional>

namespace Brix {

/*!
 * A server's user file as the tool handles it: stricter than the library, which reads what it can.
 * A file that is not wholly understood is refused, so that an edit never loses what somebody wrote.
 */
class UserFile final
{
public:
    explicit UserFile(const QString &fileName);

    //! The users; throws Failure.
    Talverine::SAuthenticationDb read() const;
    //! As read(), but a missing or empty file is a table without users.
    Talverine::SAuthenticationDb readOrEmpty() const;

    /*!
     * Reads the users, lets \a change alter them, and puts a new file in the old one's place in one
     * step. Whatever fails or throws, the old file stays as it was. A missing or empty file is a
     * table without users. Other edits of the same file wait meanwhile. The file can be read by
     * its owner alone afterwards. Throws Failure.
     */
    void edit(const std::function<void(Talverine::SAuthenticationDb &)> &change) const;

private:
    bool isMissingOrEmpty() const;
    void write(Talverine::SAuthenticationDb &users) const;

    QString m_fileName;
};

} // namespace Brix
