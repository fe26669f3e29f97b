// SPDX-License-Identifier: MIT
#include "socketcork_p.h"

namespace Talverine {

void setSocketCorked(qintptr, bool) {}

} // namespace Talverine
