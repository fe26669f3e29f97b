// SPDX-License-Identifier: MIT
#include <brixlib/protocol/pluggables/spluggablestring.h>

#include "spluggabletag_p.h"

namespace Talverine {

namespace {

constexpr QByteArrayView stringTag("STRG");

} // namespace

SPluggableString::SPluggableString(QObject *parent)
    : SPluggable(parent)
{
}

SPluggableString::SPluggableString(const QString &value, QObject *parent)
    : SPluggable(parent)
    , m_value(value)
{
}

bool SPluggableString::execute(const QByteArray &, QByteArray &output,
                               const SPluggableEnvironment &)
{
    output = stringToByteArray(m_value);
    return true;
}

QString SPluggableString::value() const
{
    return m_value;
}

void SPluggableString::setValue(const QString &value)
{
    m_value = value;
}

QByteArray SPluggableString::stringToByteArray(const QString &value)
{
    if (value.isEmpty())
        return {};
    return stringTag.toByteArray() + value.toUtf8();
}

QString SPluggableString::byteArrayToString(const QByteArray &bytes)
{
    const auto text = afterTag(bytes, stringTag);
    return text ? QString::fromUtf8(*text) : QString();
}

} // namespace Talverine

#include "moc_spluggablestring.cpp"
