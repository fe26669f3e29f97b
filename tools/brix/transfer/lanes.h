// SPDX-License-Identifier: MIT
#pragma once

#include <remote/session.h>

#include <QtCore/QObject>

#include <memory>
#include <vector>

namespace Brix {

/*!
 * Sessions that files are moved on side by side. A session has one exchange at a time and mostly
 * waits for its peer, so several move many small files in less time.
 *
 * The first session that ends ends all, as a single one would: what the others have begun or hold
 * ready is finished, and nothing else is begun.
 *
 * Thread: lives in the main thread.
 */
class Lanes final : public QObject
{
    Q_OBJECT

public:
    //! Begins with \a first, which is open and outlives this.
    explicit Lanes(Session &first);
    ~Lanes() override;

    /*!
     * Opens further sessions when \a files of \a bytes in all are so many and so small that it
     * pays. A server that does not take them all is used with those that it takes.
     */
    void widenFor(qsizetype files, qint64 bytes);
    //! The session for the next command, once one has room for it; null after the first end.
    Session *next();
    //! Handles events until every command has ended.
    void waitForAll();

Q_SIGNALS:
    //! The transfers under way have moved so many bytes of so many.
    void transferred(qint64 done, qint64 total);

private:
    struct Lane
    {
        std::unique_ptr<Session> own; // null for the first
        Session *session;
        qint64 done = 0;
        qint64 total = 0;
    };

    void add(Session *session, std::unique_ptr<Session> own);
    bool isOver() const;
    qsizetype pending() const;
    Session &leastBusy() const;
    void waitWhile(const std::function<bool()> &unfinished);
    void reportProgress();

    std::vector<std::unique_ptr<Lane>> m_lanes;
};

} // namespace Brix
