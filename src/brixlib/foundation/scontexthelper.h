// SPDX-License-Identifier: MIT
#pragma once

#include <brixlib/brixlib_export.h>

#include <QtCore/QtGlobal>

namespace Talverine {

//! Hands out the numbers that tell the connections of a process apart. Fully shared.
class BRIXLIB_EXPORT SContextHelper
{
public:
    SContextHelper() = default;

    //! A number that this process has not had before: 1, 2, 3 and so on.
    static quint32 newContextId();
};

} // namespace Talverine
