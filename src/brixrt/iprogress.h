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
 * The state lives here, and with it the children: further progresses that follow this one. Deriving
 * classes override operations to add signals or limits, and call the operation here or the store
 * functions. Fully shared: every operation may be called from any thread. No child is called while
 * the lock is held.
 */
class BRIXRT_EXPORT IProgress
{
public:
    virtual ~IProgress();

    //! Sets the progress to 0 and clears the wish to abort, here and in the children.
    virtual void reset();
    //! Asks the work to stop, here and in each child that was not asked yet.
    virtual void abort();
    virtual bool isAbortRequested() const;
    //! Percent, from 0 to 100 by convention; the value is kept as it was set.
    virtual int progress() const;
    //! Sets the progress here and in each child whose own differs.
    virtual void setProgress(int percent);

    /*!
     * Adds a progress that follows this one; adding it again changes nothing. It stays the caller's
     * property, is removed before it dies and while no operation runs here, and neither is this
     * progress nor stands above it.
     */
    void addChild(IProgress *child);
    //! Removes a child; another progress changes nothing.
    void removeChild(IProgress *child);

protected:
    IProgress() = default;
    Q_DISABLE_COPY_MOVE(IProgress)

    //! Guards the state of this class and, where it fits, of deriving ones; not recursive.
    QMutex &mutex() const { return m_mutex; }
    //! The children at this moment.
    QList<IProgress *> childProgresses() const;

    //! Each changes the state here alone, and tells whether the value (the wish) became another.
    bool storeReset();
    bool storeAbort();
    bool storeProgress(int percent);

    //! Each reaches the children alone.
    void resetChildren();
    void abortChildren();
    void setChildrenProgress(int percent);

private:
    mutable QMutex m_mutex;
    int m_percent = 0;
    bool m_aborted = false;
    QList<IProgress *> m_children;
};

} // namespace Talverine::Interfaces
