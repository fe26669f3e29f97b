// SPDX-License-Identifier: MIT
#pragma once

#include <brixlib/protocol/server/sconnectionguard.h>
#include <brixlib/protocol/server/sserverlimits.h>

#include <QtCore/QString>

namespace Talverine {
class SServerController;
}

namespace Brix {

class Command;

/*!
 * What "brix serve" does against clients that take too much: the options, with their defaults, and
 * the limits of the library that they set. Times are in seconds; 0 turns a limit off.
 */
struct ServeGuards
{
    int maximumConnections = 500;
    int maximumPerAddress = 200;
    int maximumLoginsPending = 100;
    int maximumLoginsPerAddress = 50;
    int loginTimeout = 30;
    int idleTimeout = 0;
    int minimumRate = 1024;
    int loginBody = 4096;
    int loginFailures = 3;
    int loginDelay = 1;
    int longestLoginDelay = 60;
    int loginsDelayed = 4;
    int keepAlive = 60;
    int reservedDescriptors = 64;
    qint64 listingMemory = 256 << 20;

    //! Adds the options to "serve".
    static void declare(Command *command, ServeGuards *guards);

    //! The limits of one session.
    Talverine::SServerLimits sessionLimits() const;
    //! Sets the limits of all connections together.
    void apply(Talverine::SServerController *controller) const;
    /*!
     * Raises the limit on open files as far as the system lets the process, and makes the heap
     * return what it does not need. Returns a note of the limit, which is empty where the system
     * has none.
     */
    static QString prepareProcess();
};

} // namespace Brix
