// SPDX-License-Identifier: MIT
#include <brixrt/iprogress.h>

#include "unshared_p.h"

#include <utility>

namespace Talverine::Interfaces {

IProgress::~IProgress() = default;

void IProgress::reset()
{
    storeReset();
    resetChildren();
}

void IProgress::abort()
{
    storeAbort();
    abortChildren();
}

bool IProgress::isAbortRequested() const
{
    const QMutexLocker lock(&m_mutex);
    return m_aborted;
}

int IProgress::progress() const
{
    const QMutexLocker lock(&m_mutex);
    return m_percent;
}

void IProgress::setProgress(int percent)
{
    storeProgress(percent);
    setChildrenProgress(percent);
}

void IProgress::addChild(IProgress *child)
{
    const QMutexLocker lock(&m_mutex);
    if (child && child != this && !m_children.contains(child))
        m_children.append(child);
}

void IProgress::removeChild(IProgress *child)
{
    const QMutexLocker lock(&m_mutex);
    m_children.removeOne(child);
}

QList<IProgress *> IProgress::childProgresses() const
{
    const QMutexLocker lock(&m_mutex);
    return unshared(m_children);
}

bool IProgress::storeReset()
{
    const QMutexLocker lock(&m_mutex);
    m_aborted = false;
    return std::exchange(m_percent, 0) != 0;
}

bool IProgress::storeAbort()
{
    const QMutexLocker lock(&m_mutex);
    return !std::exchange(m_aborted, true);
}

bool IProgress::storeProgress(int percent)
{
    const QMutexLocker lock(&m_mutex);
    return std::exchange(m_percent, percent) != percent;
}

void IProgress::resetChildren()
{
    const QList<IProgress *> list = childProgresses();
    for (IProgress *child : list)
        child->reset();
}

void IProgress::abortChildren()
{
    const QList<IProgress *> list = childProgresses();
    for (IProgress *child : list) {
        // Its own wish counts: an override may call it aborted for a reason that passes.
        if (!child->IProgress::isAbortRequested())
            child->abort();
    }
}

void IProgress::setChildrenProgress(int percent)
{
    const QList<IProgress *> list = childProgresses();
    for (IProgress *child : list) {
        if (child->progress() != percent)
            child->setProgress(percent);
    }
}

} // namespace Talverine::Interfaces
