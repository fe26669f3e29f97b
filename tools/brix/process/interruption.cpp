// SPDX-License-Identifier: MIT
#include "interruption.h"

#include <cli/output.h>

#include <QtCore/QTimer>

#include <cstdlib>

// How the signals are caught stands in interruption_unix.cpp and interruption_win.cpp.
namespace Brix {

using namespace Qt::StringLiterals;

void Interruption::limitTime(std::chrono::seconds limit)
{
    m_limit = limit;
    QTimer::singleShot(limit, this, [this] {
        if (isRequested())
            return;
        m_isTimeOver = true;
        request();
    });
}

Failure Interruption::failure() const
{
    if (m_isTimeOver)
        return {ExitCode::Connection, u"not done within %1 s, the limit of --max-time"_s.arg(
                                          QString::number(m_limit.count()))};
    return {ExitCode::Interrupted, u"interrupted"_s};
}

void Interruption::endProgram() const
{
    if (m_isTimeOver)
        Output().error(failure().text);
    std::_Exit(int(failure().code));
}

void Interruption::request()
{
    m_requested = true;
    Q_EMIT requested();
}

} // namespace Brix

#include "moc_interruption.cpp"
