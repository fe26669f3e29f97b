// SPDX-License-Identifier: MIT
// Lets a test play a machine with another count of processors. Replaces a function of Qt for the
// whole program, so one source file of it includes this.
#pragma once

#include <QtCore/QThread>

//! While one lives, the machine has so many logical processors.
class Processors
{
public:
    explicit Processors(int count) { s_count = count; }
    ~Processors() { s_count = kUsual; }
    Q_DISABLE_COPY_MOVE(Processors)

    static int count() { return s_count; }

private:
    static constexpr int kUsual = 2;
    static inline int s_count = kUsual;
};

int QThread::idealThreadCount() noexcept
{
    return Processors::count();
}
