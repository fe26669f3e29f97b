// SPDX-License-Identifier: MIT
// Making a database file.
#pragma once

#include "opendatabase.h"

#include <brixlib/database/dbauthgrants.h>

#include <QtCore/QLocale>
#include <QtCore/QString>

namespace Brix {

//! What the head of a new database says, beside its owner.
struct NewDatabase
{
    QString file;
    QString key;
    Talverine::DBAuthGrants grants;
    QLocale culture;
    QString version;
};

/*!
 * Writes the database without records, in one step, so that only the file's owner may ever read it.
 * False when there is anything of that name already; throws Failure when it can't be written.
 */
[[nodiscard]] bool writeNewDatabase(const NewDatabase &database, const DatabaseLogin &owner);

} // namespace Brix
