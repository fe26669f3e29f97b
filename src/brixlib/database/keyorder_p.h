// SPDX-License-Identifier: MIT
#pragma once

#include <brixlib/database/keyindex_p.h>

#include <vector>

namespace Talverine {

//! The indexes of \a entries in the order of their keys; those of equal keys in their own.
std::vector<quint32> keyOrder(const std::vector<KeyIndex::Entry> &entries);

} // namespace Talverine
