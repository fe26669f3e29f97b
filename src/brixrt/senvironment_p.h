// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QString>

namespace Talverine {

//! The machine's folder of colour profiles; empty when it has none.
QString systemColorFolder();

} // namespace Talverine
