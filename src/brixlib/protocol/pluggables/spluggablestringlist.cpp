// SPDX-License-Identifier: MIT
#include <brixlib/protocol/pluggables/spluggablestringlist.h>

#include "spluggabletag_p.h"

#include <QtCore/QtEndian>

namespace Talverine {

namespace {

constexpr QByteArrayView stringListTag("STRL");

void appendNumber(QByteArray *bytes, qint32 number)
{
    char raw[sizeof number];
    qToBigEndian(number, raw);
    bytes->append(raw, sizeof raw);
}

// Takes a number off the front of the bytes; -1, which ends a list, when too few are left.
qint32 takeNumber(QByteArrayView *bytes)
{
    if (bytes->size() < qsizetype(sizeof(qint32)))
        return -1;
    const auto number = qFromBigEndian<qint32>(bytes->data());
    *bytes = bytes->sliced(sizeof(qint32));
    return number;
}

} // namespace

SPluggableStringList::SPluggableStringList(QObject *parent)
    : SPluggable(parent)
{
}

SPluggableStringList::SPluggableStringList(const QList<QString> &values, QObject *parent)
    : SPluggable(parent)
    , m_values(values)
{
}

bool SPluggableStringList::execute(const QByteArray &, QByteArray &output,
                                   const SPluggableEnvironment &)
{
    output = stringListToByteArray(m_values);
    return true;
}

QList<QString> SPluggableStringList::values() const
{
    return m_values;
}

void SPluggableStringList::setValues(const QList<QString> &values)
{
    m_values = values;
}

QByteArray SPluggableStringList::stringListToByteArray(const QList<QString> &values)
{
    if (values.isEmpty())
        return {};
    QByteArray bytes = stringListTag.toByteArray();
    appendNumber(&bytes, qint32(values.size()));
    for (const auto &value : values) {
        const QByteArray text = value.toUtf8();
        appendNumber(&bytes, qint32(text.size()));
        bytes += text;
    }
    return bytes;
}

QList<QString> SPluggableStringList::byteArrayToStringList(const QByteArray &bytes)
{
    auto rest = afterTag(bytes, stringListTag);
    if (!rest)
        return {};
    QList<QString> values;
    const qint32 count = takeNumber(&*rest);
    while (values.size() < count) {
        const qint32 length = takeNumber(&*rest);
        if (length < 0 || length > rest->size())
            break;
        values.append(QString::fromUtf8(rest->first(length)));
        *rest = rest->sliced(length);
    }
    return values;
}

} // namespace Talverine

#include "moc_spluggablestringlist.cpp"
