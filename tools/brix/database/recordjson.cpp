// SPDX-License-Identifier: MIT
#include "recordjson.h"

#include <brixrt/sconvert.h>

#include <QtCore/QJsonArray>
#include <QtCore/QJsonDocument>
#include <QtCore/QJsonObject>

namespace Brix::RecordJson {

using namespace Qt::StringLiterals;
using Talverine::SConvert;
using Talverine::SDBField;
using Talverine::SDBRecord;

namespace {

QByteArray jsonText(const QVariant &value)
{
    const QJsonArray list{SConvert::toString(value)};
    const QByteArray bytes = QJsonDocument(list).toJson(QJsonDocument::Compact);
    return bytes.sliced(1, bytes.size() - 2);
}

QByteArray jsonValue(const SDBField &field)
{
    if (!field.isArray())
        return jsonText(field.value());
    QByteArrayList texts;
    for (const QVariant &value : field.valueList())
        texts.append(jsonText(value));
    return '[' + texts.join(',') + ']';
}

// The offset of the quotation mark that ends the text that begins here.
qsizetype endOfText(const QByteArray &json, qsizetype begin)
{
    qsizetype end = begin + 1;
    while (json[end] != '"')
        end += json[end] == '\\' ? 2 : 1;
    return end;
}

// The names of a sound object in their order, which QJsonObject does not keep.
QStringList namesInOrder(const QByteArray &json)
{
    QStringList names;
    QByteArray text;
    int depth = 0;
    for (qsizetype i = 0; i < json.size(); ++i) {
        const char c = json[i];
        if (c == '"') {
            const qsizetype end = endOfText(json, i);
            text = json.sliced(i, end + 1 - i);
            i = end;
        } else if (c == '{' || c == '[') {
            ++depth;
        } else if (c == '}' || c == ']') {
            --depth;
        } else if (c == ':' && depth == 1) {
            names.append(QJsonDocument::fromJson('[' + text + ']').array().at(0).toString());
        }
    }
    return names;
}

bool isScalar(const QJsonValue &value)
{
    return value.isString() || value.isDouble() || value.isBool();
}

std::optional<QVariant> listOf(const QJsonArray &array)
{
    QVariantList list;
    for (const QJsonValue &element : array) {
        if (!isScalar(element))
            return std::nullopt;
        list.append(element.toVariant());
    }
    if (list.isEmpty())
        return std::nullopt;
    // A single one has the form of a field without a list in the file.
    return list.size() == 1 ? list.first() : QVariant(list);
}

std::optional<QVariant> valueOf(const QJsonValue &value)
{
    if (value.isArray())
        return listOf(value.toArray());
    return isScalar(value) ? std::optional(value.toVariant()) : std::nullopt;
}

} // namespace

QByteArray fromRecord(const SDBRecord &record)
{
    QByteArrayList fields;
    for (const SDBField &field : record.fields()) {
        if (!field.isEmpty())
            fields.append(jsonText(field.key()) + ':' + jsonValue(field));
    }
    return '{' + fields.join(',') + '}';
}

std::optional<SDBRecord> toRecord(const QByteArray &line, QString *error)
{
    QJsonParseError parseError;
    const QJsonDocument document = QJsonDocument::fromJson(line, &parseError);
    if (!document.isObject()) {
        *error = document.isNull() ? parseError.errorString() : u"it is not a JSON object"_s;
        return std::nullopt;
    }
    const QJsonObject object = document.object();
    const QStringList names = namesInOrder(line);
    if (names.size() != object.size()) {
        *error = u"it has a name twice"_s;
        return std::nullopt;
    }
    SDBRecord record;
    for (const QString &name : names) {
        const QJsonValue json = object.value(name);
        if (json.isNull())
            continue;
        const std::optional<QVariant> value = valueOf(json);
        if (!value || !record.insert(name, *value)) {
            *error = value ? u"a field has no name"_s
                           : u"the value of \"%1\" is neither a text, a number, true or false, "
                             "nor a list of these with at least one"_s.arg(name);
            return std::nullopt;
        }
    }
    return record;
}

} // namespace Brix::RecordJson
