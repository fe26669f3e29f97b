// SPDX-License-Identifier: MIT
#pragma once

#include <brixlib/brixlib_export.h>
#include <brixlib/protocol/scommandid.h>

#include <QtCore/QHash>
#include <QtCore/QList>

class QByteArray;
class QDataStream;

namespace Talverine {

class SCommand;

/*!
 * The process-wide registry of command prototypes. Each end of a connection has a context of its
 * own (SContextHelper::newContextId()) and so a set of prototypes of its own.
 *
 * May be called from any thread: one lock serialises all calls, building a command included. The
 * cost of a call depends on its own context only, never on how many others there are.
 */
class BRIXLIB_EXPORT SCommandHelper
{
public:
    //! Adds \a prototype behind those of \a context and takes ownership; null is ignored. Several
    //! of one id may be there; the first one counts.
    static void registerCommand(SCommand *prototype, unsigned int context);
    //! Deletes all prototypes of \a context.
    static void deregisterCommands(unsigned int context);

    //! In order of registration.
    static QList<SCommandId> registeredCommands(unsigned int context);
    static QHash<SCommandId, int> registeredCommandVersions(unsigned int context);

    /*!
     * Builds the command that stands at the position of \a stream, whose device must be able to
     * seek. The caller owns the result; null when the header is damaged, the id is not registered
     * in \a context, or the fields cannot be read.
     */
    [[nodiscard]] static SCommand *createCommand(QDataStream &stream, unsigned int context);
    //! The same for \a bytes, read at the calling thread's stream version.
    [[nodiscard]] static SCommand *createCommand(const QByteArray &bytes, unsigned int context);
};

} // namespace Talverine
