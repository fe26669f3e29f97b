// SPDX-License-Identifier: MIT
#pragma once

#include <brixlib/database/records/sdbrecord.h>

#include <QtCore/QString>

namespace Brix {

/*!
 * Throws Failure unless the signature of \a record matches. Writing the record would sign it again,
 * and hide that it was changed.
 *
 * The failure names the \a file, the line of the \a key in it, and
 * the option that accepts the record. \a keyName is the key field of the database.
 */
void requireSignature(const QString &file, const QString &keyName, const QString &key,
                      const Talverine::SDBRecord &record);

} // namespace Brix
