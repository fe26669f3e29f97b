// SPDX-License-Identifier: MIT
#include <brixlib/fileservice/sserverftprequester.h>

#include <brixlib/fileservice/sserverftp.h>

namespace Talverine {

SServerFtpRequester::SServerFtpRequester(SServerFtp *worker, QObject *parent)
    : SServerBaseRequester(worker, parent)
{
}

SServerFtpRequester::~SServerFtpRequester() = default;

} // namespace Talverine

#include "moc_sserverftprequester.cpp"
