// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QtGlobal>

/*!
 * What the process may still take from the system. All functions may be called from any thread.
 */
namespace Talverine::SystemReserve {

/*!
 * Whether \a count more descriptors can be opened, \a newest being the one opened last. Returns
 * true where the system has no limit on descriptors.
 */
bool hasDescriptors(qint64 newest, int count);

//! Whether a block of \a bytes can be allocated. The block is released without being written to.
bool hasMemory(qint64 bytes);

//! Returns the free memory of the heap to the system, where the heap would keep it.
void releaseFreeMemory();

} // namespace Talverine::SystemReserve
