// SPDX-License-Identifier: MIT
#include "listingreply_p.h"

#include <QtCore/QtEndian>

#include <algorithm>
#include <utility>

namespace Talverine {

namespace {

// Small listings, which are most of them, ask once.
constexpr qint64 kStepBytes = 64 * 1024;

} // namespace

ListingReply::ListingReply(std::function<bool(qint64)> hold)
    : m_hold(std::move(hold))
    , m_stream(&m_body, QIODevice::WriteOnly)
{
}

void ListingReply::beginList()
{
    m_countAt = m_body.size();
    m_stream << m_count;
}

// The array grows by doubling, so that it is its capacity that takes the memory.
bool ListingReply::hold()
{
    const qint64 wanted = std::max<qint64>(m_body.capacity(), m_body.size() + kStepBytes);
    if (!m_hold(wanted))
        return false;
    m_held = wanted;
    return true;
}

QByteArray ListingReply::take()
{
    qToBigEndian(m_count, m_body.data() + m_countAt);
    m_body.squeeze();
    return std::exchange(m_body, {});
}

} // namespace Talverine
