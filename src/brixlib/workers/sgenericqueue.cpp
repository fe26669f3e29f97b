// SPDX-License-Identifier: MIT
#include <brixlib/workers/sgenericqueue.h>

namespace Talverine {

SGenericQueue::SGenericQueue(QObject *parent)
    : QObject(parent)
{
}

SGenericQueue::~SGenericQueue() = default;

void SGenericQueue::enqueue(const QVariant &value)
{
    m_queue.enqueue(value);
    Q_EMIT enqueued();
}

void SGenericQueue::enqueueUnique(const QVariant &value)
{
    if (!m_queue.contains(value))
        enqueue(value);
}

QVariant SGenericQueue::dequeue()
{
    QVariant value = m_queue.dequeue();
    Q_EMIT dequeued();
    return value;
}

bool SGenericQueue::tryDequeue(QVariant &value)
{
    if (m_queue.isEmpty())
        return false;
    value = dequeue();
    return true;
}

bool SGenericQueue::tryHead(QVariant &value) const
{
    if (m_queue.isEmpty())
        return false;
    value = m_queue.head();
    return true;
}

bool SGenericQueue::contains(const QVariant &value) const
{
    return m_queue.contains(value);
}

qsizetype SGenericQueue::removeAll(const QVariant &value)
{
    return m_queue.removeAll(value);
}

bool SGenericQueue::removeOne(const QVariant &value)
{
    return m_queue.removeOne(value);
}

void SGenericQueue::clear()
{
    m_queue.clear();
    Q_EMIT cleared();
}

bool SGenericQueue::isEmpty() const
{
    return m_queue.isEmpty();
}

qsizetype SGenericQueue::size() const
{
    return m_queue.size();
}

const QQueue<QVariant> &SGenericQueue::data() const
{
    return m_queue;
}

QQueue<QVariant> &SGenericQueue::data()
{
    return m_queue;
}

QQueue<QVariant> SGenericQueue::toQueue() const
{
    return m_queue;
}

void SGenericQueue::swap(QQueue<QVariant> &other)
{
    m_queue.swap(other);
}

SGenericQueue *SGenericQueue::clone() const
{
    return new SGenericQueue(*this);
}

bool SGenericQueue::isNull() const
{
    return m_queue.isEmpty();
}

bool SGenericQueue::equalsTo(const Interfaces::IEquatable *other) const
{
    return isSameType(other) && *this == *static_cast<const SGenericQueue *>(other);
}

SGenericQueue::SGenericQueue(const SGenericQueue &other)
    : QObject()
    , ICloneable()
    , IEquatable()
    , m_queue(other.m_queue)
{
}

SGenericQueue &SGenericQueue::operator=(const SGenericQueue &other)
{
    m_queue = other.m_queue;
    return *this;
}

bool SGenericQueue::operator==(const SGenericQueue &other) const
{
    return m_queue == other.m_queue;
}

bool SGenericQueue::operator!=(const SGenericQueue &other) const
{
    return !(*this == other);
}

} // namespace Talverine

#include "moc_sgenericqueue.cpp"
