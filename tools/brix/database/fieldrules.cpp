// SPDX-License-Identifier: MIT
#include "fieldrules.h"

#include <brixlib/database/sdbtext.h>

namespace Brix::FieldRules {

using namespace Qt::StringLiterals;
using Talverine::SDBField;
using Talverine::SDBRecord;
using Talverine::SDBText;

namespace {

// Half of a surrogate pair would be written as "?".
QString faultOfText(const QString &text)
{
    if (!text.isValidUtf16())
        return u"it is not well-formed Unicode"_s;
    if (text.contains(u'\n'))
        return u"it has a line feed"_s;
    if (text.trimmed() != text)
        return u"it begins or ends with a blank"_s;
    return {};
}

QString quoted(const QString &what, const QString &name, const QString &fault)
{
    return fault.isEmpty() ? QString() : u"%1 \"%2\": %3"_s.arg(what, name, fault);
}

QString faultOfField(const SDBField &field)
{
    const QString fault = faultOfName(field.key());
    if (!fault.isEmpty())
        return fault;
    for (const QVariant &value : field.valueList()) {
        const QString valueFault = faultOfValue(value.toString());
        if (!valueFault.isEmpty())
            return u"the value of %1: %2"_s.arg(field.key(), valueFault);
    }
    return {};
}

} // namespace

QString faultOfName(const QString &name)
{
    QString fault = faultOfText(name);
    if (name.isEmpty())
        fault = u"it is empty"_s;
    else if (name.contains(u'.') || name.contains(u'='))
        fault = u"it has a \".\" or \"=\""_s;
    else if (name.startsWith(u'#'))
        fault = u"it begins with \"#\""_s;
    else if (isWrittenByDatabase(name))
        fault = u"the database writes this field itself"_s;
    return quoted(u"the field name"_s, name, fault);
}

QString faultOfValue(const QString &value)
{
    return faultOfText(value);
}

QString faultOfKey(const QString &key)
{
    QString fault = faultOfText(key);
    if (key.isEmpty())
        fault = u"it is empty"_s;
    else if (key.startsWith(u'$'))
        fault = u"it begins with \"$\", as those of removed records do"_s;
    return quoted(u"the key"_s, key, fault);
}

QString faultOfKeyName(const QString &name)
{
    if (name == SDBRecord::uniqueIncKey())
        return {};
    // The head has lines of these names, which would read as records.
    for (const QString &own : {SDBText::Key, SDBText::Owner, SDBText::Password, SDBText::Grants,
                               SDBText::Version, SDBText::Culture}) {
        if (name == own)
            return quoted(u"the field name"_s, name, u"the head of the file has it"_s);
    }
    return faultOfName(name);
}

QString faultOfRecord(const SDBRecord &record, const QString &keyName)
{
    for (const SDBField &field : record.fields()) {
        QString fault = faultOfField(field);
        if (fault.isEmpty() && field.key() == keyName)
            fault = field.isArray() ? u"the key is a list"_s : faultOfKey(field.value().toString());
        if (!fault.isEmpty())
            return fault;
    }
    return {};
}

bool isWrittenByDatabase(const QString &name)
{
    return name == SDBRecord::ownerKey() || name == SDBRecord::cultureKey() ||
           name == SDBRecord::dateTimeKey() || name == SDBRecord::signatureKey() ||
           name == SDBRecord::uniqueIncKey();
}

} // namespace Brix::FieldRules
