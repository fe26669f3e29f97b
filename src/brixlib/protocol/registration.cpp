// SPDX-License-Identifier: MIT
// Registers at load what makes the arguments of this folder's signals and calls travel in queues.
#include <brixlib/protocol/scommandid.h>
#include <brixlib/protocol/socket/stcpsocketspeedcontroller.h>

#include <QtCore/QHash>
#include <QtCore/QList>
#include <QtNetwork/QHostAddress>

namespace Talverine {

namespace {

// Calls by name spell types without their namespace, so both spellings are registered.
[[maybe_unused]] const bool registered = [] {
    qRegisterMetaType<SCommandId>("SCommandId");
    qRegisterMetaType<QList<SCommandId>>("QList<SCommandId>");
    qRegisterMetaType<QHash<SCommandId, qint32>>("QHash<SCommandId,qint32>");
    qRegisterMetaType<QHash<SCommandId, qint32>>("QHash<SCommandId,int>");
    qRegisterMetaType<QHash<SCommandId, qint32>>("QHash<Talverine::SCommandId,qint32>");
    qRegisterMetaType<STcpSocketSpeedController *>("STcpSocketSpeedController*");
    qRegisterMetaType<QHostAddress>();
    return true;
}();

} // namespace

} // namespace Talverine
