// SPDX-License-Identifier: MIT
#pragma once

#include <brixlib/brixlib_export.h>
#include <brixlib/protocol/pluggables/spluggableenvironment.h>

#include <QtCore/QByteArray>
#include <QtCore/QObject>
#include <QtCore/QString>

namespace Talverine {
class SPluggable;
}

Q_DECLARE_INTERFACE(Talverine::SPluggable, "Talverine.SPluggable/1.1")

namespace Talverine {

/*!
 * A small function that a server publishes under a name: bytes in, bytes and a bool out.
 *
 * Derive, implement execute(), and hand the object to a server session, which becomes its parent:
 * each session has an object of its own. A plug-in library offers one by naming the interface
 * "Talverine.SPluggable/1.1"; as it gives the same object each time, that is one for one session.
 *
 * Thread: lives in the thread of the server that it was given to.
 */
class BRIXLIB_EXPORT SPluggable : public QObject
{
    Q_OBJECT
    Q_INTERFACES(Talverine::SPluggable)

public:
    explicit SPluggable(QObject *parent = nullptr);
    ~SPluggable() override;

    /*!
     * Runs the function. \a params is what the client sent, at most 1 MiB and to be trusted in
     * nothing; \a output is what it gets back, also when the result is false, which only means that
     * to the client: the session goes on.
     *
     * It is called in the thread of the server's session with the exchange in progress: so it
     * should be quick and may not touch the session's socket. The user in \a environment holds good
     * for this call only, copies of the environment included.
     */
    virtual bool execute(const QByteArray &params, QByteArray &output,
                         const SPluggableEnvironment &environment) = 0;

    //! The name under which it is registered.
    QString command() const;
    void setCommand(const QString &command);
    //! Whether the name is empty.
    bool isNull() const;

private:
    QString m_command;
};

} // namespace Talverine
