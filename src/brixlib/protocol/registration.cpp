// SPDX-License-Identifier: MIT
// Registers at load what makes the values of this folder travel in queued signals.
#include <brixlib/protocol/scommandid.h>

#include <QtCore/QHash>
#include <QtCore/QList>

namespace Talverine {

namespace {

// Calls by name spell types without their namespace, so both spellings are registered.
[[maybe_unused]] const bool registered = [] {
    qRegisterMetaType<SCommandId>("SCommandId");
    qRegisterMetaType<QList<SCommandId>>("QList<SCommandId>");
    qRegisterMetaType<QHash<SCommandId, qint32>>("QHash<SCommandId,qint32>");
    qRegisterMetaType<QHash<SCommandId, qint32>>("QHash<SCommandId,int>");
    qRegisterMetaType<QHash<SCommandId, qint32>>("QHash<Talverine::SCommandId,qint32>");
    return true;
}();

} // namespace

} // namespace Talverine
