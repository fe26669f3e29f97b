// SPDX-License-Identifier: MIT
// A pseudo-terminal for programs that behave differently on one.
#pragma once

#include <QtCore/QByteArray>
#include <QtCore/QElapsedTimer>
#include <QtCore/QList>
#include <QtCore/QProcess>
#include <QtTest/QTest>

#include <cstdlib>

#include <fcntl.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

//! A terminal whose keyboard and screen are in the hands of the test.
class FakeTerminal final
{
public:
    FakeTerminal()
        : m_master(posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC))
    {
        grantpt(m_master);
        unlockpt(m_master);
        m_slaveName = ptsname(m_master);
        // Kept open so that the settings can be looked at when the program has gone.
        m_slave = open(m_slaveName.constData(), O_RDWR | O_NOCTTY | O_CLOEXEC);
    }
    ~FakeTerminal()
    {
        close(m_slave);
        close(m_master);
    }
    Q_DISABLE_COPY_MOVE(FakeTerminal)

    //! Makes this the controlling terminal of the process about to start, and also what
    //! \a descriptors stand for in it.
    void attach(QProcess *process, const QList<int> &descriptors = {}) const
    {
        process->setChildProcessModifier([name = m_slaveName, descriptors] {
            setsid();
            const int terminal = open(name.constData(), O_RDWR);
            ioctl(terminal, TIOCSCTTY, 0);
            for (const int descriptor : descriptors)
                dup2(terminal, descriptor);
        });
    }

    void type(const QByteArray &keys) const
    {
        QCOMPARE(write(m_master, keys.constData(), size_t(keys.size())), keys.size());
    }

    //! What is on the screen, once it shows the text; waits for it.
    QByteArray screenShowing(const QByteArray &text)
    {
        QElapsedTimer timer;
        timer.start();
        while (!m_screen.contains(text) && timer.elapsed() < 20'000)
            readScreen(100);
        return m_screen;
    }
    QByteArray screen()
    {
        readScreen(0);
        return m_screen;
    }

    bool hasEcho() const
    {
        termios settings = {};
        tcgetattr(m_slave, &settings);
        return settings.c_lflag & tcflag_t(ECHO);
    }

private:
    void readScreen(int milliseconds)
    {
        pollfd ready{m_master, POLLIN, 0};
        char buffer[256];
        while (poll(&ready, 1, milliseconds) == 1 && (ready.revents & POLLIN)) {
            const auto count = read(m_master, buffer, sizeof buffer);
            if (count <= 0)
                return;
            m_screen.append(buffer, count);
        }
    }

    int m_master;
    int m_slave;
    QByteArray m_slaveName;
    QByteArray m_screen;
};
