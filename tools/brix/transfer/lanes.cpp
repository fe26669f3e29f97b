// SPDX-License-Identifier: MIT
#include "lanes.h"

#include <QtCore/QEventLoop>

#include <algorithm>

namespace Brix {

namespace {

// More gave nothing on two cores, and each costs the server a thread.
constexpr std::size_t mostLanes = 4;
// Fewer files are moved before the further sessions have logged in.
constexpr qsizetype manyFiles = 200;
// Larger files move most of the time, and a single session fills the line.
constexpr qint64 smallFileBytes = 256 * 1024;
// Commands that wait in a session's queue, so that the line never stands still between two files.
constexpr qsizetype window = 32;

} // namespace

Lanes::Lanes(Session &first)
{
    add(&first, nullptr);
}

Lanes::~Lanes() = default;

void Lanes::add(Session *session, std::unique_ptr<Session> own)
{
    m_lanes.push_back(std::make_unique<Lane>(Lane{std::move(own), session}));
    Lane *const lane = m_lanes.back().get();
    connect(session, &Session::transferred, this, [this, lane](qint64 done, qint64 total) {
        lane->done = done;
        lane->total = total;
        reportProgress();
    });
    connect(session, &Session::changed, this, [lane] { lane->done = lane->total = 0; });
}

void Lanes::widenFor(qsizetype files, qint64 bytes)
{
    if (files < manyFiles || bytes / files > smallFileBytes)
        return;
    try {
        while (m_lanes.size() < mostLanes) {
            auto session = std::make_unique<Session>(m_lanes.front()->session->login());
            session->open();
            Session *const opened = session.get();
            add(opened, std::move(session));
        }
    } catch (const Failure &) {
        // The server takes no more, or the first session has ended too and will tell.
    }
}

Session *Lanes::next()
{
    waitWhile([this] { return !isOver() && leastBusy().pending() >= window; });
    return isOver() ? nullptr : &leastBusy();
}

void Lanes::waitForAll()
{
    waitWhile([this] { return pending() > 0; });
}

bool Lanes::isOver() const
{
    return std::any_of(m_lanes.begin(), m_lanes.end(),
                       [](const auto &lane) { return !lane->session->isOpen(); });
}

qsizetype Lanes::pending() const
{
    qsizetype sum = 0;
    for (const auto &lane : m_lanes)
        sum += lane->session->pending();
    return sum;
}

Session &Lanes::leastBusy() const
{
    return *(*std::min_element(m_lanes.begin(), m_lanes.end(), [](const auto &a, const auto &b) {
                return a->session->pending() < b->session->pending();
            }))->session;
}

void Lanes::waitWhile(const std::function<bool()> &unfinished)
{
    QEventLoop loop;
    for (const auto &lane : m_lanes)
        connect(lane->session, &Session::changed, &loop, &QEventLoop::quit);
    while (unfinished())
        loop.exec();
}

void Lanes::reportProgress()
{
    qint64 done = 0;
    qint64 total = 0;
    for (const auto &lane : m_lanes) {
        done += lane->done;
        total += lane->total;
    }
    Q_EMIT transferred(done, total);
}

} // namespace Brix

#include "moc_lanes.cpp"
