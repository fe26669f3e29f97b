// SPDX-License-Identifier: MIT
#include <brixrt/iprogress.h>

namespace Talverine::Interfaces {

IProgress::~IProgress() = default;

void IProgress::reset()
{
    {
        const QMutexLocker lock(&m_mutex);
        m_percent = 0;
        m_aborted = false;
    }
    for (IProgress *child : children())
        child->reset();
}

void IProgress::abort()
{
    {
        const QMutexLocker lock(&m_mutex);
        m_aborted = true;
    }
    for (IProgress *child : children())
        child->abort();
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
    const QMutexLocker lock(&m_mutex);
    m_percent = percent;
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

QList<IProgress *> IProgress::children() const
{
    const QMutexLocker lock(&m_mutex);
    return m_children;
}

} // namespace Talverine::Interfaces
