// SPDX-License-Identifier: MIT
#pragma once

#include <brixlib/foundation/sfileentry.h>

#include <QtCore/QList>
#include <QtCore/QString>

//! Directories as a server lists them.
namespace Brix::Listing {

/*!
 * Returns the entry of that name or, without one, an entry whose name differs only in case, as a
 * server lists it that ignores case; null if there is neither.
 */
const Talverine::SFileEntry *find(const QList<Talverine::SFileEntry> &entries, const QString &name);

} // namespace Brix::Listing
