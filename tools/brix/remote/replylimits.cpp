// SPDX-License-Identifier: MIT
#include "replylimits.h"

#include <brixlib/protocol/client/sclientbase.h>
#include <brixlib/protocol/wire.h>

namespace Brix {

using namespace Talverine;

void limitReplies(SClientBase *client, std::optional<qint64> bytes)
{
    for (const SCommandId &id : {CommandIds::kCommandList, CommandIds::kServerName,
                                 CommandIds::kWhoAmI, CommandIds::kPwd, CommandIds::kStorageInfo})
        client->setReplyLimit(id, bytes.value_or(kShortReplyBytes));
    for (const SCommandId &id : {CommandIds::kPluggable, CommandIds::kPluggableList,
                                 CommandIds::kListDir, CommandIds::kGetDir, CommandIds::kGetFiles})
        client->setReplyLimit(id, bytes.value_or(kLongReplyBytes));
}

} // namespace Brix
