// SPDX-License-Identifier: MIT
#include "senvironment_p.h"

namespace Talverine {

QString systemColorFolder()
{
    return QStringLiteral("/Library/ColorSync/Profiles");
}

} // namespace Talverine
