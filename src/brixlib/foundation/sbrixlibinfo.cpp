// SPDX-License-Identifier: MIT
#include <brixlib/foundation/sbrixlibinfo.h>

#include <brixlib/brixlib_version.h>

namespace Talverine {

using namespace Qt::StringLiterals;

QString SBrixlibInfo::title()
{
    return u"brixlib"_s;
}

QString SBrixlibInfo::moduleName()
{
    return u"brixlib"_s;
}

SVersion SBrixlibInfo::version()
{
    return SVersion(BRIXLIB_VERSION);
}

int SBrixlibInfo::build()
{
    return 1;
}

QString SBrixlibInfo::company()
{
    return u"The brixlib developers"_s;
}

QString SBrixlibInfo::copyright()
{
    return u"Copyright (c) 2026 The brixlib developers"_s;
}

QString SBrixlibInfo::description()
{
    return u"Framework library of the control and service software of industrial printing machines"_s;
}

} // namespace Talverine
