// SPDX-License-Identifier: MIT
#pragma once

#include <cli/output.h>

#include <brixlib/database/records/sdbrecord.h>

//! How the tool shows the entries of a log.
namespace Brix::LogEntry {

/*!
 * One line: "17  2026-11-20T17:16:39.145Z  HeadCleaned  head=3", with "*" behind the number of a
 * pinned entry. With --json an object of "key", "date", "id", "pinned" and "fields".
 */
void write(const Output &output, const Talverine::SDBRecord &entry);

//! The key in the log of a number as write() shows it; an empty text for what is none.
QString keyOf(const QString &number);
//! The number that write() shows for an entry.
QString numberOf(const Talverine::SDBRecord &entry);

//! Whether the log writes this field itself.
bool isOwnField(const QString &name);

} // namespace Brix::LogEntry
