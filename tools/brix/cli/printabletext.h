// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QByteArray>
#include <QtCore/QByteArrayView>
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

//! The same for UTF-8. A byte that does not belong to a character becomes "\x" and two digits.
QString printableUtf8(QByteArrayView bytes);

//! Returns JSON text with "\u" escapes in place of the characters that printableText() escapes. A
//! parser reads the same values from it; the layout, line feeds and spaces, stays.
QByteArray printableJson(const QByteArray &json);

} // namespace Brix
