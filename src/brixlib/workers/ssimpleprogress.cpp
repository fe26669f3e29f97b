// SPDX-License-Identifier: MIT
#include <brixlib/workers/ssimpleprogress.h>

#include <QtCore/QCoreApplication>
#include <QtCore/QThread>

namespace Talverine {

namespace {

// The main thread can't be interrupted; Qt would answer with a warning and nothing else.
bool isMainThread(const QThread *thread)
{
    const QCoreApplication *application = QCoreApplication::instance();
    return application && application->thread() == thread;
}

} // namespace

SSimpleProgress::SSimpleProgress(QObject *parent)
    : SProgress(parent)
{
}

SSimpleProgress::~SSimpleProgress() = default;

void SSimpleProgress::abort()
{
    QThread *thread = QThread::currentThread();
    if (!isMainThread(thread))
        thread->requestInterruption();
    SProgress::abort();
}

bool SSimpleProgress::isAbortRequested() const
{
    return QThread::currentThread()->isInterruptionRequested() || SProgress::isAbortRequested();
}

} // namespace Talverine

#include "moc_ssimpleprogress.cpp"
