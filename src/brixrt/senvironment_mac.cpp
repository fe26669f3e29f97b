// SPDX-License-Identifier: MIT
#include <brixrt/senvironment_p.h>

namespace Talverine {

QString systemColorFolder()
{
    return QStringLiteral("/Library/ColorSync/Profiles");
}

} // namespace Talverine
