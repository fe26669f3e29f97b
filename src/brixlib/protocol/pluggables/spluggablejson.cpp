// SPDX-License-Identifier: MIT
#include <brixlib/protocol/pluggables/spluggablejson.h>

#include "spluggabletag_p.h"

namespace Talverine {

namespace {

constexpr QByteArrayView jsonTag("JSON");

} // namespace

SPluggableJson::SPluggableJson(QObject *parent)
    : SPluggable(parent)
{
}

SPluggableJson::SPluggableJson(const QJsonDocument &value, QObject *parent)
    : SPluggable(parent)
    , m_value(value)
{
}

bool SPluggableJson::execute(const QByteArray &, QByteArray &output, const SPluggableEnvironment &)
{
    output = documentToByteArray(m_value);
    return true;
}

QJsonDocument SPluggableJson::value() const
{
    return m_value;
}

void SPluggableJson::setValue(const QJsonDocument &value)
{
    m_value = value;
}

void SPluggableJson::setValue(const QString &text)
{
    m_value = QJsonDocument::fromJson(text.toUtf8());
}

QByteArray SPluggableJson::documentToByteArray(const QJsonDocument &document)
{
    if (document.isNull())
        return {};
    return jsonTag.toByteArray() + document.toJson(QJsonDocument::Indented);
}

QJsonDocument SPluggableJson::byteArrayToDocument(const QByteArray &bytes)
{
    const auto text = afterTag(bytes, jsonTag);
    return text ? QJsonDocument::fromJson(text->toByteArray()) : QJsonDocument();
}

} // namespace Talverine

#include "moc_spluggablejson.cpp"
