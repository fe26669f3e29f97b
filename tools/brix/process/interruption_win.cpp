// SPDX-License-Identifier: MIT
#include "interruption.h"

#include <QtCore/QMetaObject>

#include <atomic>

#include <windows.h>

namespace Brix {

namespace {

std::atomic<Interruption *> current = nullptr;

} // namespace

class InterruptionPrivate final
{
public:
    explicit InterruptionPrivate(Interruption *q)
    {
        current = q;
        SetConsoleCtrlHandler(handle, TRUE);
    }
    ~InterruptionPrivate()
    {
        SetConsoleCtrlHandler(handle, FALSE);
        current = nullptr;
    }
    Q_DISABLE_COPY_MOVE(InterruptionPrivate)

private:
    // Windows calls this in a thread of its own.
    static BOOL WINAPI handle(DWORD)
    {
        // Taken out, so that the second one finds nothing and ends the program.
        Interruption *interruption = current.exchange(nullptr);
        if (!interruption)
            return FALSE;
        QMetaObject::invokeMethod(
            interruption, [interruption] { interruption->request(); }, Qt::QueuedConnection);
        return TRUE;
    }
};

Interruption::Interruption()
    : d(std::make_unique<InterruptionPrivate>(this))
{
}

Interruption::~Interruption() = default;

} // namespace Brix
