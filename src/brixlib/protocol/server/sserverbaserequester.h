// SPDX-License-Identifier: MIT
#pragma once

#include <brixlib/protocol/scommunicatorbaserequester.h>
#include <brixlib/protocol/server/sserverbase.h>

namespace Talverine {

/*!
 * Calls into a server's session that lives in a worker thread, from any other thread.
 *
 * The queries wait for the session's thread, the rest returns at once. See
 * SCommunicatorBaseRequester for the rules of both.
 */
class BRIXLIB_EXPORT SServerBaseRequester : public SCommunicatorBaseRequester
{
    Q_OBJECT

public:
    //! Keeps a weak reference to \a worker.
    explicit SServerBaseRequester(SServerBase *worker, QObject *parent = nullptr);
    ~SServerBaseRequester() override;

    // Queries.

    Interfaces::ISAuthenticationDb *authenticationDb() const;
    QString currentUser() const;
    bool isDocumentRootEnabled() const;
    QHostAddress peerAddress() const;
    QList<QString> pluggableList() const;
    QString serverName() const;

    // Requests.

    /*!
     * \a pluggable, which has no parent and lives in the calling thread, moves to the session's
     * thread first, as the session becomes its parent there. It is deleted with the session, also
     * when that ends before it has come to this call. Without a session it stays the caller's.
     */
    void addPluggable(const QString &name, SPluggable *pluggable);
    void delPluggable(const QString &name);
    void enableDocumentRoot(bool enabled);
    void setAuthenticationDb(Interfaces::ISAuthenticationDb *db);
    void setServerName(const QString &name);
};

} // namespace Talverine
