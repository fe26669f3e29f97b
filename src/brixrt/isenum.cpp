// SPDX-License-Identifier: MIT
#include <brixrt/isenum.h>

namespace Talverine {

ISEnum::~ISEnum() = default;

} // namespace Talverine
