// SPDX-License-Identifier: MIT
#include <brixlib/protocol/pluggables/spluggableserverversion.h>

#include <QtCore/QCoreApplication>

namespace Talverine {

using namespace Qt::StringLiterals;

SPluggableServerVersion::SPluggableServerVersion(QObject *parent)
    : SPluggableString(u"%1 %2"_s.arg(QCoreApplication::applicationName(),
                                      QCoreApplication::applicationVersion()),
                       parent)
{
}

} // namespace Talverine

#include "moc_spluggableserverversion.cpp"
