// SPDX-License-Identifier: MIT
#include <brixlib/protocol/scommandqueue.h>

#include <brixlib/protocol/scommand.h>

#include <brixrt/unshared_p.h>

namespace Talverine {

SCommandQueue::SCommandQueue(QObject *parent)
    : QObject(parent)
{
}

SCommandQueue::SCommandQueue(const SCommandQueue &other)
    : QObject()
{
    *this = other;
}

SCommandQueue::~SCommandQueue()
{
    clear();
}

SCommandQueue &SCommandQueue::operator=(const SCommandQueue &other)
{
    if (this == &other)
        return *this;
    const QMutexLocker targetLocker(&m_mutex);
    const QMutexLocker sourceLocker(&other.m_mutex);
    m_commands = unshared(other.m_commands);
    return *this;
}

void SCommandQueue::enqueue(SCommand *command)
{
    const bool isFirst = isEmpty();
    {
        const QMutexLocker locker(&m_mutex);
        m_commands.append(command);
    }
    if (isFirst)
        Q_EMIT firstEnqueued();
    Q_EMIT enqueued();
}

SCommand *SCommandQueue::dequeue()
{
    SCommand *command = nullptr;
    {
        const QMutexLocker locker(&m_mutex);
        command = m_commands.takeFirst();
    }
    Q_EMIT dequeued();
    return command;
}

SCommand *SCommandQueue::tryDequeue()
{
    SCommand *command = nullptr;
    if (take(&command))
        Q_EMIT dequeued();
    return command;
}

void SCommandQueue::clear()
{
    SCommand *command = nullptr;
    while (take(&command))
        delete command;
    Q_EMIT cleared();
}

bool SCommandQueue::contains(SCommand *command) const
{
    const QMutexLocker locker(&m_mutex);
    return m_commands.contains(command);
}

bool SCommandQueue::removeOne(SCommand *command)
{
    const QMutexLocker locker(&m_mutex);
    return m_commands.removeOne(command);
}

qsizetype SCommandQueue::removeAll(SCommand *command)
{
    return m_commands.removeAll(command);
}

qsizetype SCommandQueue::size() const
{
    const QMutexLocker locker(&m_mutex);
    return m_commands.size();
}

bool SCommandQueue::isEmpty() const
{
    return size() == 0;
}

// Hands out the first command; false when there is none.
bool SCommandQueue::take(SCommand **command)
{
    const QMutexLocker locker(&m_mutex);
    if (m_commands.isEmpty())
        return false;
    *command = m_commands.takeFirst();
    return true;
}

} // namespace Talverine

#include "moc_scommandqueue.cpp"
