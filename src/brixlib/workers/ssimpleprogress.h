// SPDX-License-Identifier: MIT
#pragma once

#include <brixlib/brixlib_export.h>

#include <brixrt/sprogress.h>

namespace Talverine {

/*!
 * A progress tied to the thread that works: an abort interrupts the calling thread, and an
 * interrupted thread counts as aborted.
 *
 * Fully shared, as its base; which thread is meant is a matter of the call.
 */
class BRIXLIB_EXPORT SSimpleProgress : public SProgress
{
    Q_OBJECT

public:
    explicit SSimpleProgress(QObject *parent = nullptr);
    ~SSimpleProgress() override;

    //! Requests interruption of the calling thread, then asks the work to stop.
    void abort() override;
    //! Whether the calling thread was asked to stop, or the work was.
    bool isAbortRequested() const override;
};

} // namespace Talverine
