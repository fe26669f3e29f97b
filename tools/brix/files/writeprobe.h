// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QString>

namespace Brix {

/*!
 * Returns why no file can be written in the directory of \a file, in the words of the system; empty
 * if one can. It tries to write a small file, and removes it. For what failed without a reason.
 */
QString whyNotWritable(const QString &file);

} // namespace Brix
