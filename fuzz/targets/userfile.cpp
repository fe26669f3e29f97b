// SPDX-License-Identifier: MIT
// The reader of the file of a server's users: an input is the file.
#include "../fuzztarget.h"
#include "../targets.h"

#include <brixlib/protocol/users/sauthenticationdb.h>
#include <brixlib/protocol/users/suserdata.h>

#include <QtCore/QBuffer>

using namespace Talverine;

namespace Fuzz {

namespace {

SAuthenticationDb read(const QByteArray &bytes)
{
    QBuffer buffer;
    buffer.setData(bytes);
    return SAuthenticationDb::fromDevice(&buffer);
}

QByteArray saved(SAuthenticationDb &users)
{
    QBuffer buffer;
    require(users.save(&buffer), "the users cannot be saved");
    return buffer.data();
}

} // namespace

bool userFile(const QByteArray &input)
{
    SAuthenticationDb users = read(input);
    const auto names = users.users();
    for (const auto &name : names) {
        const auto user = users.sharedUser(name);
        require(user && user->username() == name, "a user has another name");
    }
    // Halves of characters, which only an escape can bring, are lost with the first saving.
    SAuthenticationDb second = read(saved(users));
    SAuthenticationDb third = read(saved(second));
    require(second == third, "the users change when they are saved");
    return !names.isEmpty();
}

} // namespace Fuzz
