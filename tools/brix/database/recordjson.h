// SPDX-License-Identifier: MIT
#pragma once

#include <brixlib/database/records/sdbrecord.h>

#include <QtCore/QByteArray>
#include <QtCore/QString>

#include <optional>

/*!
 * A record as a JSON object in one line: a text under each name, an array of texts where the field
 * has several, in the order of the record's fields.
 */
namespace Brix::RecordJson {

//! Without a line end.
QByteArray fromRecord(const Talverine::SDBRecord &record);
/*!
 * Takes numbers, true and false for values too; a field of null is left out. Nothing, with the
 * reason in \a error, for what is no record.
 */
std::optional<Talverine::SDBRecord> toRecord(const QByteArray &line, QString *error);

} // namespace Brix::RecordJson
