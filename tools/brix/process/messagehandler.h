// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/qglobal.h>

namespace Brix {

class LogWriter;

/*!
 * Writes the messages of Qt and of the library to stderr, one line each, in the form of
 * printableText(): they can have bytes in them that a peer sent. Installed once, for the whole
 * program.
 */
void installMessageHandler();

/*!
 * While an instance lives, all messages of the program are written by its LogWriter, so that no
 * thread waits for stderr. One instance at a time.
 */
class MessageRedirection final
{
public:
    explicit MessageRedirection(LogWriter *writer);
    ~MessageRedirection();
    Q_DISABLE_COPY_MOVE(MessageRedirection)
};

} // namespace Brix
