// SPDX-License-Identifier: MIT
#include <brixrt/sprogress.h>

namespace Talverine {

SProgress::SProgress(QObject *parent)
    : QObject(parent)
{
}

SProgress::~SProgress() = default;

void SProgress::reset()
{
    const bool changed = storeReset();
    resetChildren();
    if (changed)
        Q_EMIT progressChanged(0);
}

void SProgress::abort()
{
    const bool changed = storeAbort();
    abortChildren();
    if (changed)
        Q_EMIT abortRequested();
}

void SProgress::setProgress(int percent)
{
    const bool changed = storeProgress(percent);
    setChildrenProgress(percent);
    if (changed)
        Q_EMIT progressChanged(percent);
}

} // namespace Talverine

#include "moc_sprogress.cpp"
