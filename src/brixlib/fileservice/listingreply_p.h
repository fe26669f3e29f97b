// SPDX-License-Identifier: MIT
#pragma once

#include <brixlib/foundation/sdatastream.h>

#include <QtCore/QByteArray>

#include <functional>

namespace Talverine {

/*!
 * The body of a reply with a list, written item by item: nothing but the body is held in memory,
 * and the memory that it takes is asked for in steps.
 *
 *     ListingReply reply([this](qint64 bytes) { return holdListing(bytes); });
 *     reply.beginList();
 *     for (…)
 *         if (!reply.add([&](QDataStream &stream) { stream << name; }))
 *             return false;
 *     return writeFrame(socket(), reply.take());
 *
 * Thread: lives in one thread.
 */
class ListingReply
{
public:
    //! \a hold is called with the bytes that the body is about to take, and may refuse them.
    explicit ListingReply(std::function<bool(qint64 bytes)> hold);

    //! For what stands before the list.
    QDataStream &stream() { return m_stream; }
    //! Writes the place of the count.
    void beginList();
    //! Writes one item by \a write(stream). False if there is no more memory.
    template<typename Write>
    [[nodiscard]] bool add(Write write)
    {
        write(m_stream);
        ++m_count;
        return m_body.size() <= m_held || hold();
    }
    //! Sets the count and returns the body, without spare memory.
    QByteArray take();

private:
    bool hold();

    std::function<bool(qint64)> m_hold;
    QByteArray m_body;
    SDataStream m_stream;
    qsizetype m_countAt = 0;
    quint32 m_count = 0;
    qint64 m_held = 0;
};

} // namespace Talverine
