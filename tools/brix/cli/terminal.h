// SPDX-License-Identifier: MIT
#pragma once

#include <brixsec/ssecurestring.h>

#include <QtCore/QString>

#include <optional>

//! What the tool needs of the terminal it runs in; one source file for each kind of system.
namespace Brix::Terminal {

//! Whether stdout is a terminal.
bool isOutput();
//! Whether stderr is a terminal.
bool isDiagnostics();
//! Columns of the terminal behind stderr; 80 when that is unknown.
int width();
/*!
 * Shows \a prompt on the controlling terminal and reads one line from it without echo, whatever
 * stdin and stdout are. Nothing when there is no terminal, it ends, or the line is longer than
 * 4096 bytes. A signal that ends the
 * program meanwhile leaves the terminal with its echo back on.
 */
std::optional<Talverine::Security::SSecureString> readHidden(const QString &prompt);

} // namespace Brix::Terminal
