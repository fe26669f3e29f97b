// SPDX-License-Identifier: MIT
#include "commandname.h"

#include <QtCore/QtEndian>

namespace Brix {

using namespace Qt::StringLiterals;

QString commandName(const Talverine::SCommandId &id)
{
    const quint32_be letters(id.id());
    return QString::fromLatin1(reinterpret_cast<const char *>(&letters), sizeof letters);
}

QString versionText(qint32 version)
{
    return u"%1.%2.%3"_s.arg(QString::number(version >> 16), QString::number(version >> 8 & 0xFF),
                             QString::number(version & 0xFF));
}

} // namespace Brix
