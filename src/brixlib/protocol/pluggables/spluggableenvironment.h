// SPDX-License-Identifier: MIT
#pragma once

#include <brixlib/brixlib_export.h>
#include <brixlib/foundation/interfaces.h>

#include <QtCore/QHash>
#include <QtCore/QList>
#include <QtCore/QString>
#include <QtCore/QVariant>

namespace Talverine {

/*!
 * What a server tells a pluggable about the session that calls it: named values, some of them with
 * accessors of their own. The server also sets "serverName" (QString).
 *
 * Thread: a value with implicit sharing; one thread at a time.
 */
class BRIXLIB_EXPORT SPluggableEnvironment final
{
public:
    //! Replaces a value of that name.
    void setValue(const QString &name, const QVariant &value);
    //! An invalid variant for an unknown name.
    QVariant value(const QString &name) const;
    //! The names, in no order.
    QList<QString> keys() const;
    bool isEmpty() const;

    //! Under "user": who is logged in. The caller keeps \a user alive while the value is in use.
    void setUser(const Interfaces::ISUser *user);
    //! Null when none was set, and when the user has just been removed from the server's table.
    const Interfaces::ISUser *user() const;

    //! Under "documentRootEnabled": whether the client sees its folder as "/".
    void setDocumentRootEnabled(bool enabled);
    //! False when it was not set.
    bool documentRootEnabled() const;

    //! Compares names and values; users by identity.
    bool operator==(const SPluggableEnvironment &other) const;
    bool operator!=(const SPluggableEnvironment &other) const;

private:
    QHash<QString, QVariant> m_values;
};

} // namespace Talverine

Q_DECLARE_METATYPE(Talverine::SPluggableEnvironment)
