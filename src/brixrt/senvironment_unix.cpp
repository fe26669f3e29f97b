// SPDX-License-Identifier: MIT
#include "senvironment_p.h"

#include <QtCore/QStandardPaths>

namespace Talverine {

QString systemColorFolder()
{
    return QStandardPaths::locate(QStandardPaths::GenericDataLocation, QStringLiteral("color/icc"),
                                  QStandardPaths::LocateDirectory);
}

} // namespace Talverine
