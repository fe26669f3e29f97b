// SPDX-License-Identifier: MIT
// The client's half of a link test: it sends first.
#include <brixlib/protocol/client/sclientbase.h>

#include <brixlib/protocol/commands/scommandlinktest.h>

namespace Talverine {

bool SClientBase::executeCommandLinkTest(const SCommandLinkTest &command)
{
    const auto block = makeLinkTestBlock();
    Q_EMIT linkTestStarted(command.uploadSeconds(), command.downloadSeconds());
    LinkTestPhase upload;
    LinkTestPhase download;
    if (!sendLinkTest(command.uploadSeconds(), block.get(), nullptr, &upload) ||
        !receiveLinkTest(command.downloadSeconds(), block.get(), &upload, &download))
        return false;
    Q_EMIT progress(100);
    Q_EMIT linkTestFinished(upload.bytesPerSecond(), download.bytesPerSecond());
    return true;
}

} // namespace Talverine
