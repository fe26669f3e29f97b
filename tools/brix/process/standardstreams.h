// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QtGlobal>

/*!
 * The bytes of stdin and stdout as they are; one source file for each kind of system. All calls
 * block, and throw Failure when the stream fails or the calling thread is asked to stop.
 */
namespace Brix::StandardStreams {

/*!
 * Takes the places of standard streams that were closed when the program began, so that no socket
 * gets them; they fail on use as before. To be called before anything is opened.
 */
void keepPlaces();
//! The next bytes of stdin, at most \a size and as soon as there are any; 0 at its end.
qint64 readInput(char *data, qint64 size);
//! Writes all of \a data to stdout. A reader that has gone is a failure, not the program's end.
void writeOutput(const char *data, qint64 size);
//! Whether somebody may still read stdout. Without writing to it, not every system can tell.
bool hasReader();

} // namespace Brix::StandardStreams
