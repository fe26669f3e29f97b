// SPDX-License-Identifier: MIT
#pragma once

#include <brixlib/database/records/sdbrecord.h>

#include <QtCore/QString>

/*!
 * What the file of a database can hold. Its writer does not ask, and what it can't hold comes back
 * as something else; the tool refuses that instead. Each function tells what is wrong, or nothing.
 */
namespace Brix::FieldRules {

QString faultOfName(const QString &name);
//! Of a value, or of an element of a list.
QString faultOfValue(const QString &value);
QString faultOfKey(const QString &key);
//! Of the name of a new database's key field.
QString faultOfKeyName(const QString &name);
//! Of all fields of a record to insert, but not of its having a key.
QString faultOfRecord(const Talverine::SDBRecord &record, const QString &keyName);

//! Whether the database writes this field itself at each insertion.
bool isWrittenByDatabase(const QString &name);

} // namespace Brix::FieldRules
