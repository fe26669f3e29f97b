// SPDX-License-Identifier: MIT
#pragma once

#include <brixrt/brixrt_export.h>
#include <brixrt/iprogress.h>

#include <QtCore/QObject>

namespace Talverine {

/*!
 * A progress that tells of its changes by signals.
 *
 * Fully shared, as its base; signals go out in the thread of the call, after the lock is released
 * and the children were reached.
 */
class BRIXRT_EXPORT SProgress : public QObject, public Interfaces::IProgress
{
    Q_OBJECT

public:
    explicit SProgress(QObject *parent = nullptr);
    ~SProgress() override;

public Q_SLOTS:
    void reset() override;
    void abort() override;
    void setProgress(int percent) override;

Q_SIGNALS:
    //! After each call that changed the value, reset() included.
    void progressChanged(int percent);
    //! Once for each wish to abort; comes again only after reset().
    void abortRequested();
};

} // namespace Talverine
