// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QtGlobal>

namespace Talverine {

//! Closes an accepted connection that nobody serves; a descriptor that is no socket stays open.
void closeConnection(qint64 socketDescriptor);

} // namespace Talverine
