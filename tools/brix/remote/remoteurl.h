// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QString>

#include <optional>

namespace Brix {

/*!
 * A place on a server: brix://USER@HOST:PORT/PATH.
 *
 * PATH is percent-decoded and stands without the slash that divides it from the port. So it is
 * taken from the user's folder on the server; an absolute path there begins with a second slash:
 * brix://ann@press:7000//srv/jobs. A "?" or "#" in a name is written %3F or %23.
 */
struct RemoteUrl
{
    QString user;
    //! A name or an address; without the brackets of an IPv6 address.
    QString host;
    quint16 port = 0;
    //! Empty for the user's folder.
    QString path;

    //! Reads \a text; on failure tells in \a error what is wrong with it.
    static std::optional<RemoteUrl> parse(const QString &text, QString *error);

    //! Without user and path, as it stands in messages: "press:7000", "[::1]:7000".
    QString authority() const;

    bool operator==(const RemoteUrl &) const = default;
};

} // namespace Brix
