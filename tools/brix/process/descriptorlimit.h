// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QtGlobal>

#include <optional>

namespace Brix::DescriptorLimit {

/*!
 * Raises the number of descriptors that the process may have open to the largest that the system
 * allows it, and returns the limit that holds then. Nothing where there is no such limit.
 */
std::optional<qint64> raise();

} // namespace Brix::DescriptorLimit
