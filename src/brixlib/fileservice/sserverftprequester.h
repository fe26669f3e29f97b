// SPDX-License-Identifier: MIT
#pragma once

#include <brixlib/brixlib_export.h>
#include <brixlib/protocol/server/sserverbaserequester.h>

namespace Talverine {

class SServerFtp;

//! Calls the operations of an SServerFtp from any thread; all of them are those of its base.
class BRIXLIB_EXPORT SServerFtpRequester : public SServerBaseRequester
{
    Q_OBJECT

public:
    explicit SServerFtpRequester(SServerFtp *worker, QObject *parent = nullptr);
    ~SServerFtpRequester() override;
};

} // namespace Talverine
