// SPDX-License-Identifier: MIT
#include "stormcrowd.h"

#include <shared/rawbytes.h>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

namespace {

constexpr qint64 kGreetingBytes = 16;
constexpr qint64 kAnswerBytes = 8;
// As many bytes as a command may have before the login.
constexpr quint32 kTrickledBytes = 4096;
constexpr auto kDripEvery = 1s;
// A socket that does not read does not see the end of its connection either.
constexpr auto kListerStays = 20s;
// From the end of a connection to the next one; it bounds how many there are.
constexpr auto kGuesserPause = 250ms;
constexpr auto kOtherPause = 5s;

//! How many programs of a kind there are, and the last byte of their loopback address.
struct Group
{
    Stranger::Kind kind;
    int size;
    int address;
};

constexpr Group kGroups[] = {
    {Stranger::Kind::Guesser, 16, 2},
    {Stranger::Kind::Silent, 60, 3},
    {Stranger::Kind::Trickler, 30, 4},
    {Stranger::Kind::Lister, 8, 5},
};

} // namespace

Stranger::Stranger(Kind kind, const QHostAddress &from, quint16 port, StormTally *tally)
    : m_kind(kind)
    , m_from(from)
    , m_port(port)
    , m_tally(tally)
{
    m_next.setSingleShot(true);
    connect(&m_next, &QTimer::timeout, this, &Stranger::begin);
    connect(&m_tick, &QTimer::timeout, this, &Stranger::onTick);
}

void Stranger::begin()
{
    m_isGreeted = false;
    m_socket = std::make_unique<QTcpSocket>();
    if (m_kind == Kind::Lister)
        m_socket->setReadBufferSize(kGreetingBytes);
    connect(m_socket.get(), &QTcpSocket::connected, this, [this] { ++m_tally->connections; });
    connect(m_socket.get(), &QTcpSocket::readyRead, this, &Stranger::onReadyRead);
    connect(m_socket.get(), &QTcpSocket::stateChanged, this,
            [this](QAbstractSocket::SocketState state) {
                if (state == QAbstractSocket::UnconnectedState)
                    endConnection();
            });
    if (!m_socket->bind(m_from))
        return endConnection();
    m_socket->connectToHost(QHostAddress(QHostAddress::LocalHost), m_port);
}

// The socket itself may be the caller, so it lives until the next connection.
void Stranger::endConnection()
{
    m_tick.stop();
    m_next.start(m_kind == Kind::Guesser ? kGuesserPause : kOtherPause);
}

void Stranger::onReadyRead()
{
    if (!m_isGreeted && m_socket->bytesAvailable() >= kGreetingBytes) {
        m_isGreeted = true;
        ++m_tally->greeted;
        onGreeting();
    }
    if (m_isGreeted && m_kind == Kind::Guesser && m_socket->bytesAvailable() >= kAnswerBytes)
        onAnswer();
}

void Stranger::onGreeting()
{
    const QByteArray salt = m_socket->read(kGreetingBytes);
    switch (m_kind) {
    case Kind::Guesser:
        m_socket->write(RawBytes::authentication(
            u"ann"_s, RawBytes::challengeAnswer(u"guess %1"_s.arg(++m_guesses), salt)));
        break;
    case Kind::Lister:
        m_socket->write(
            RawBytes::authentication(u"bob"_s, RawBytes::challengeAnswer(u"open"_s, salt)) +
            RawBytes::command("lstd", RawBytes::text(u"")));
        ++m_tally->listings;
        m_tick.start(kListerStays);
        break;
    case Kind::Trickler:
        m_socket->write(RawBytes::u32(kTrickledBytes));
        m_tick.start(kDripEvery);
        break;
    case Kind::Silent:
        break;
    }
}

void Stranger::onAnswer()
{
    const QByteArray refusal = RawBytes::ack() + RawBytes::u32(0);
    ++(m_socket->read(kAnswerBytes) == refusal ? m_tally->guesses : m_tally->guessed);
    m_socket->abort();
}

void Stranger::onTick()
{
    if (m_kind == Kind::Trickler)
        m_socket->write("x", 1);
    else
        m_socket->abort();
}

StormCrowd::StormCrowd(quint16 port, StormTally *tally)
{
    for (const Group &group : kGroups) {
        const QHostAddress from(u"127.0.0.%1"_s.arg(group.address));
        for (int i = 0; i < group.size; ++i)
            m_strangers.emplace_back(std::make_unique<Stranger>(group.kind, from, port, tally))
                ->begin();
    }
}
