// SPDX-License-Identifier: MIT
#pragma once

#include <brixlib/brixlib_export.h>
#include <brixlib/foundation/sfileentry.h>

#include <QtCore/QDataStream>
#include <QtCore/QList>

namespace Talverine::Replies {

//! The entries of a directory: a count and so many records of version, name, size, flags, date.
BRIXLIB_EXPORT void writeEntries(QDataStream &stream, const QList<SFileEntry> &entries);
//! One such record.
BRIXLIB_EXPORT void writeEntry(QDataStream &stream, const SFileEntry &entry);
/*!
 * Reads them; empty when the stream fails, whose status says so. A record of a version below
 * Wire::kEntryRecordVersion has no date, and its entry a null one.
 */
BRIXLIB_EXPORT QList<SFileEntry> readEntries(QDataStream &stream);

} // namespace Talverine::Replies
