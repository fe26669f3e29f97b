// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QObject>
#include <QtCore/QTimer>
#include <QtNetwork/QHostAddress>
#include <QtNetwork/QTcpSocket>

#include <memory>
#include <vector>

//! What the strangers of a storm have done.
struct StormTally
{
    qint64 connections = 0; //!< that the system of the server has accepted
    qint64 greeted = 0;
    qint64 guesses = 0;  //!< passwords that the server has refused
    qint64 listings = 0; //!< that were asked for and are not read
    qint64 guessed = 0;  //!< passwords that the server has taken; none is right
};

/*!
 * One program that a server does not want: it connects from its own loopback address, does what its
 * kind does, and connects again a while after the server has ended the connection.
 */
class Stranger : public QObject
{
    Q_OBJECT

public:
    enum class Kind {
        Guesser,  //!< sends a wrong password and drops the connection at the answer
        Silent,   //!< says nothing
        Trickler, //!< sends the body of a command byte by byte
        Lister,   //!< logs in as "bob", asks for a long listing and leaves without reading it
    };

    Stranger(Kind kind, const QHostAddress &from, quint16 port, StormTally *tally);

    void begin();

private:
    void onReadyRead();
    void onGreeting();
    void onAnswer();
    void endConnection();
    void onTick();

    const Kind m_kind;
    const QHostAddress m_from;
    const quint16 m_port;
    StormTally *const m_tally;
    QTimer m_next;
    QTimer m_tick;
    bool m_isGreeted = false;
    int m_guesses = 0;
    // Destroyed first, because it reports the end of its connection to the timers above.
    std::unique_ptr<QTcpSocket> m_socket;
};

//! All strangers of a storm; they leave when the object is destroyed.
class StormCrowd
{
public:
    StormCrowd(quint16 port, StormTally *tally);

private:
    std::vector<std::unique_ptr<Stranger>> m_strangers;
};
