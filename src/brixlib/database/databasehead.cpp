// SPDX-License-Identifier: MIT
#include "databasehead_p.h"

#include <brixlib/database/records/recordreader_p.h>
#include <brixlib/database/records/recordwriter_p.h>

#include <brixrt/slocale.h>

#include <QtCore/QIODevice>

using namespace Qt::StringLiterals;

namespace Talverine {

namespace {

using Field = DatabaseSpecialRecordField;

// A special record is some hundred bytes. Where its end is missing, the whole file would be taken
// for a part of it.
constexpr qint64 kSpecialRecordBytes = 1024 * 1024;

const QByteArray &comment()
{
    static const QByteArray lines(
        "# TextDB file type.\r\n"
        "#\r\n"
        "# *** DO NOT EDIT! ***\r\n"
        "#\r\n"
        "# Special chars:\r\n"
        "#\r\n"
        "# '#' is a text comment identifier: a line that starts with this char is ignored\r\n"
        "# '$' is a delete identifier: a key that starts with this char match a deleted record\r\n"
        "# '_' is a special field identifier: fields starting with this char are reserved\r\n");
    return lines;
}

QString textOf(const SDBRecord &record, Field field)
{
    return record.value(specialFieldName(field)).toString();
}

} // namespace

SDBRecord DatabaseHead::toRecord() const
{
    const QString grantsText = DBAuthGrants_T::instance().toString(grants, QLocale::c()).toLower();
    SDBRecord record;
    record.insert(specialFieldName(Field::dbKey), key);
    record.insert(specialFieldName(Field::dbOwner), owner);
    record.insert(specialFieldName(Field::dbPasswd), passwd);
    record.insert(specialFieldName(Field::dbGrants), grantsText);
    record.insert(specialFieldName(Field::dbCultureInfo), SLocale::lcName(culture, false));
    record.insert(specialFieldName(Field::dbVersion), version);
    return record;
}

DatabaseHead DatabaseHead::fromRecord(const SDBRecord &record)
{
    DatabaseHead head;
    head.key = textOf(record, Field::dbKey);
    head.owner = textOf(record, Field::dbOwner);
    head.passwd = textOf(record, Field::dbPasswd);
    head.grants =
        DBAuthGrants_T::instance().fromString(textOf(record, Field::dbGrants), DBAuthGrants::None);
    const QString version = textOf(record, Field::dbVersion);
    head.version = version.isEmpty() ? u"2"_s : version;
    const QString culture = textOf(record, Field::dbCultureInfo);
    head.culture = SLocale(culture.isEmpty() ? u"en-US"_s : culture, QLocale::OmitGroupSeparator);
    return head;
}

bool DatabaseHead::isReadable() const
{
    SDBRecord record = toRecord();
    return record.updateSignature() && recordLines(record, culture).size() <= kSpecialRecordBytes;
}

bool DatabaseHead::write(QIODevice *device) const
{
    SDBRecord record = toRecord();
    if (!signForWriting(&record, specialFieldName(Field::dbKey)))
        return false;
    return writeAll(device,
                    comment() + recordSeparator() + recordLines(record, culture) + headEnd());
}

SDBRecord readSpecialRecord(QIODevice *device, bool *hasEnd)
{
    RecordReader reader(device, specialFieldName(Field::dbKey), 0);
    reader.setRecordLimit(kSpecialRecordBytes);
    SDBRecord record;
    reader.next(&record);
    if (hasEnd)
        *hasEnd = reader.isEndedByKeyLine();
    return record;
}

QByteArray headEnd()
{
    return specialFieldName(Field::dbKey).toUtf8() +
           " = ! <-- this char ends the special record\r\n" + recordSeparator() +
           "# --- Data starts here ---\r\n";
}

QString specialFieldName(DatabaseSpecialRecordField field)
{
    return DatabaseSpecialRecordField_T::instance().toString(field, QLocale::c()).toLower();
}

} // namespace Talverine
