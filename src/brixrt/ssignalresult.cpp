// SPDX-License-Identifier: MIT
#include <brixrt/ssignalresult.h>

#include <QtCore/QEventLoop>
#include <QtCore/QPointer>
#include <QtCore/QTimer>

namespace Talverine {

SSignalResult::SSignalResult(QObject *parent)
    : QObject(parent)
{
}

SSignalResult::~SSignalResult() = default;

bool SSignalResult::waitResult(int msec)
{
    if (isFinished())
        return succeeded();

    QEventLoop loop;
    connect(this, &SSignalResult::finished, &loop, &QEventLoop::quit);
    connect(this, &QObject::destroyed, &loop, &QEventLoop::quit);
    QTimer timer;
    if (msec >= 0) {
        timer.setSingleShot(true);
        timer.setTimerType(Qt::PreciseTimer);
        connect(&timer, &QTimer::timeout, &loop, &QEventLoop::quit);
        timer.start(msec);
    }
    // A handler that runs inside the loop may delete this object.
    const QPointer<SSignalResult> self(this);
    loop.exec();
    return self && self->succeeded();
}

bool SSignalResult::succeeded() const
{
    return m_state == State::Succeeded;
}

bool SSignalResult::isFinished() const
{
    return m_state != State::Open;
}

void SSignalResult::reset()
{
    m_state = State::Open;
}

void SSignalResult::success()
{
    finish(State::Succeeded);
}

void SSignalResult::failed()
{
    finish(State::Failed);
}

void SSignalResult::finish(State state)
{
    if (isFinished())
        return;
    m_state = state;
    Q_EMIT finished();
}

} // namespace Talverine

#include "moc_ssignalresult.cpp"
