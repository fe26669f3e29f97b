// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QByteArray>
#include <QtCore/QLocale>

class QIODevice;

namespace Talverine {

class SDBRecord;

//! What stands before each record: two empty lines.
const QByteArray &recordSeparator();

//! Moves the key field to the front and signs the record; false when it has no key.
[[nodiscard]] bool signForWriting(SDBRecord *record, const QString &keyName);

//! The lines of \a record in its own culture or else \a culture, each with its line end. Fields
//! without a name or a value are left out.
QByteArray recordLines(const SDBRecord &record, const QLocale &culture);

//! Writes all of \a bytes. A device that takes none any more ends it with true, as all writing of
//! the database does; false when it fails.
[[nodiscard]] bool writeAll(QIODevice *device, const QByteArray &bytes);

} // namespace Talverine
