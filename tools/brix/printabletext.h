// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QString>

namespace Brix {

/*!
 * Returns \a text so that it can be printed in one line of a terminal or a log, whoever wrote it:
 * without control characters, without line ends, without characters that change the direction of
 * the text or cannot be seen.
 *
 * Such a character becomes an escape: \c \\n, \c \\r, \c \\t, or \c \\u{202E} with its number in
 * hexadecimal; a backslash is doubled, so that no two texts have the same result. All other
 * characters stay.
 */
QString printableText(QStringView text);

} // namespace Brix
