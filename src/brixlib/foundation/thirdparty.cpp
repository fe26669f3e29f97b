// SPDX-License-Identifier: MIT
// Lists at load the modules that the library is built from.
#include <brixrt/s3rdparty.h>

namespace Talverine {

using namespace Qt::StringLiterals;

namespace {

// One initialiser for all, as nothing else keeps their order.
[[maybe_unused]] const bool registered = [] {
    S3rdParty::registerModule(u"Vorne"_s);
    S3rdParty::registerModule(u"LZ4"_s, u":/brixlib/notices/lz4.txt"_s, u"https://lz4.org"_s,
                              SVersion(0x010903));
    S3rdParty::registerModule(u"KDSoapClient"_s, u":/brixlib/notices/kdsoap.txt"_s,
                              u"https://github.com/KDAB/KDSoap"_s, SVersion(0x020000));
    return true;
}();

} // namespace

} // namespace Talverine
