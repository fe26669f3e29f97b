// SPDX-License-Identifier: MIT
#pragma once

#include <brixlib/foundation/senum.h>

#include <QtCore/QMetaType>

namespace Talverine {

/*!
 * Why a simple worker has finished: its work is done, its start or a step has failed, or its thread
 * was interrupted or the worker told to terminate.
 */
// clang-format off
S_ENUM(SimpleWorkerError,
    NoError = 0,
    InitError = 1,
    WorkError = 2,
    InterruptRequested = 3
)
// clang-format on

} // namespace Talverine

Q_DECLARE_METATYPE(Talverine::SimpleWorkerError)
