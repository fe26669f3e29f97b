// SPDX-License-Identifier: MIT
#include "senvironment_p.h"

#include <QtCore/QDir>

namespace Talverine {

QString systemColorFolder()
{
    const QString root = qEnvironmentVariable("SystemRoot");
    if (root.isEmpty())
        return QString();
    return QDir::fromNativeSeparators(root) + QStringLiteral("/System32/spool/drivers/color");
}

} // namespace Talverine
