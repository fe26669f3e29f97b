// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QStringView>

#include <vector>

namespace Talverine {

//! The indexes of \a keys in their order; those of equal keys as they come.
std::vector<quint32> keyOrder(const std::vector<QStringView> &keys);

} // namespace Talverine
