// SPDX-License-Identifier: MIT
#pragma once

#include "userfile.h"

#include <QtCore/QDateTime>
#include <QtCore/QObject>
#include <QtCore/QTimer>

namespace Brix {

/*!
 * Keeps a table of users in step with a user file: reads the file again when it has changed and has
 * then stayed the same for half a second, and when it is asked to.
 *
 * A file that is missing or not sound is refused, and the table keeps its users.
 *
 * Thread: the main thread. The table may be shared with others.
 */
class UserFileWatch final : public QObject
{
    Q_OBJECT

public:
    //! Reads \a fileName into \a users, which must outlive this object. Throws Failure.
    UserFileWatch(const QString &fileName, Talverine::SAuthenticationDb *users);

    //! Reads the file now, whether it has changed or not.
    void reload();

Q_SIGNALS:
    //! The file has been read again, and the table has its users.
    void reloaded();
    //! The file could not be read, for that \a reason; comes once for each state of the file.
    void refused(const QString &reason);

private:
    struct State
    {
        bool exists = false;
        qint64 size = 0;
        QDateTime modified;
        QDateTime changed;

        friend bool operator==(const State &, const State &) = default;
    };

    State currentState() const;
    void look();

    const QString m_fileName;
    Talverine::SAuthenticationDb *const m_users;
    //! The state of the file when it was read, and when it was looked at last.
    State m_read;
    State m_seen;
    QTimer m_timer;
};

} // namespace Brix
