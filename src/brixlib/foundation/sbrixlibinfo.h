// SPDX-License-Identifier: MIT
#pragma once

#include <brixlib/brixlib_export.h>

#include <brixrt/sversion.h>

#include <QtCore/QString>

namespace Talverine {

//! What the library says of itself. Calls may come from any thread.
class BRIXLIB_EXPORT SBrixlibInfo
{
public:
    SBrixlibInfo() = default;

    static QString title();
    static QString moduleName();
    static SVersion version();
    //! Number of the build of this version.
    static int build();
    static QString company();
    static QString copyright();
    //! One sentence on what the library is for.
    static QString description();
};

} // namespace Talverine
