// SPDX-License-Identifier: MIT
#include "secretline.h"
#include "terminal.h"

#include <array>
#include <csignal>

#include <fcntl.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

namespace Brix::Terminal {

using Talverine::Security::SSecureString;

namespace {

constexpr std::array endingSignals = {SIGINT, SIGTERM, SIGHUP, SIGQUIT};

// What the signal handler needs to put the terminal right; set while a prompt is open.
int promptTerminal = -1;
termios promptSettings;

extern "C" void restoreAndEnd(int signal)
{
    tcsetattr(promptTerminal, TCSAFLUSH, &promptSettings);
    std::signal(signal, SIG_DFL);
    raise(signal);
}

// Turns the echo off for its lifetime, with signals that restore it.
class HiddenInput final
{
public:
    explicit HiddenInput(int terminal)
    {
        promptTerminal = terminal;
        m_hidden = tcgetattr(terminal, &promptSettings) == 0;
        if (!m_hidden)
            return;
        for (size_t i = 0; i < endingSignals.size(); ++i) {
            struct sigaction action = {};
            action.sa_handler = restoreAndEnd;
            sigaction(endingSignals[i], &action, &m_before[i]);
        }
        termios hidden = promptSettings;
        hidden.c_lflag &= ~tcflag_t(ECHO);
        hidden.c_lflag |= ECHONL;
        m_hidden = tcsetattr(terminal, TCSAFLUSH, &hidden) == 0;
    }
    ~HiddenInput()
    {
        if (!m_hidden)
            return;
        tcsetattr(promptTerminal, TCSAFLUSH, &promptSettings);
        for (size_t i = 0; i < endingSignals.size(); ++i)
            sigaction(endingSignals[i], &m_before[i], nullptr);
    }
    Q_DISABLE_COPY_MOVE(HiddenInput)

    bool isHidden() const { return m_hidden; }

private:
    bool m_hidden = false;
    std::array<struct sigaction, endingSignals.size()> m_before = {};
};

// Nothing when the terminal ends before the line does.
std::optional<SSecureString> readLine(int terminal)
{
    SecretLine line;
    char c = 0;
    while (read(terminal, &c, 1) == 1) {
        if (c == '\n')
            return line.take();
        if (!line.append(c))
            return std::nullopt;
    }
    return std::nullopt;
}

} // namespace

bool isOutput()
{
    return isatty(STDOUT_FILENO);
}

bool isDiagnostics()
{
    return isatty(STDERR_FILENO);
}

int width()
{
    winsize size = {};
    if (ioctl(STDERR_FILENO, TIOCGWINSZ, &size) != 0 || size.ws_col == 0)
        return 80;
    return size.ws_col;
}

std::optional<SSecureString> readHidden(const QString &prompt)
{
    const int terminal = open("/dev/tty", O_RDWR | O_CLOEXEC | O_NOCTTY);
    if (terminal < 0)
        return std::nullopt;
    std::optional<SSecureString> line;
    {
        const HiddenInput input(terminal);
        const QByteArray text = prompt.toLocal8Bit();
        if (input.isHidden() && write(terminal, text.constData(), size_t(text.size())) >= 0)
            line = readLine(terminal);
    }
    close(terminal);
    return line;
}

} // namespace Brix::Terminal
