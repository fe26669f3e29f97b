// SPDX-License-Identifier: MIT
#pragma once

namespace Talverine {
class SServerFtp;
}

namespace Brix {

class LogWriter;

/*!
 * Writes a line to \a log for each connection, login, command and end of \a session, each with the
 * \a number of the session in front. \a log must outlive the session.
 */
void logSession(Talverine::SServerFtp *session, int number, LogWriter *log);

} // namespace Brix
