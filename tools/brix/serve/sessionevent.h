// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QDateTime>
#include <QtCore/QList>
#include <QtCore/QString>

#include <utility>

namespace Brix {

/*!
 * Something that happened in a session of a server: a connection, a login, a command or the end.
 *
 * All values have the form of printableText(), no blank at either end, and at most 4096 characters.
 */
struct SessionEvent
{
    //! "Connected", "LoggedIn", "LoginRefused", "Command" or "Disconnected".
    QString id;
    //! In UTC.
    QDateTime time;
    //! Names and values, in the order in which they are shown: the number of the session, the
    //! client's address, the user who is logged in, and what belongs to this kind of event.
    QList<std::pair<QString, QString>> fields;

    //! Adds a field with a value from anywhere.
    void add(const QString &name, const QString &value);
    //! The time, the id, and name="value" for each field, in one line.
    QString text() const;
};

} // namespace Brix
