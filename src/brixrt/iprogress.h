// SPDX-License-Identifier: MIT
#pragma once

#include <brixrt/brixrt_export.h>

#include <QtCore/QList>
#include <QtCore/QMutex>

namespace Talverine::Interfaces {

/*!
 * A progress in percent and a wish to abort, shared between the one who works and the one who
 * waits.
 *
 * The state lives here; deriving classes override operations to add signals or to reach children of
 * another kind. Fully shared: every operation may be called from any thread. No operation is called
 * on a child while the lock is held.
 */
class BRIXRT_EXPORT IProgress
{
public:
    virtual ~IProgress();

    //! Sets the progress to 0 and clears the wish to abort, here and in the children.
    virtual void reset();
    //! Asks the work to stop, here and in the children.
    virtual void abort();
    virtual bool isAbortRequested() const;
    //! Percent from 0 to 100 by convention; the value is kept as it was set.
    virtual int progress() const;
    virtual void setProgress(int percent);

    //! Adds a progress that reset() and abort() reach too; it stays the caller's property.
    void addChild(IProgress *child);
    void removeChild(IProgress *child);

protected:
    IProgress() = default;
    Q_DISABLE_COPY_MOVE(IProgress)

    //! Guards the state of this class and, where it fits, of deriving ones.
    QMutex &mutex() const { return m_mutex; }

private:
    QList<IProgress *> children() const;

    mutable QMutex m_mutex;
    int m_percent = 0;
    bool m_aborted = false;
    QList<IProgress *> m_children;
};

} // namespace Talverine::Interfaces
