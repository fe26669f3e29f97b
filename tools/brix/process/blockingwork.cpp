// SPDX-License-Identifier: MIT
#include "blockingwork.h"

#include "interruption.h"
#include <cli/failure.h>

#include <QtCore/QEventLoop>
#include <QtCore/QThread>
#include <QtCore/QTimer>

#include <memory>
#include <new>
#include <optional>

#include <openssl/crypto.h>

namespace Brix {

using namespace std::chrono_literals;

namespace {

// Long enough for an exchange that is under way on a connection that works.
constexpr auto interruptionGrace = 3s;

} // namespace

void runBlocking(const Interruption &interruption, const std::function<void()> &work)
{
    std::optional<Failure> failure;
    bool isOutOfMemory = false;
    const std::unique_ptr<QThread> thread(QThread::create([&] {
        try {
            work();
        } catch (const Failure &thrown) {
            failure = thrown;
        } catch (const std::bad_alloc &) {
            isOutOfMemory = true;
        }
        // A thread of Qt's counts as finished before what others hold for it is freed. OpenSSL
        // would take locks for that which the end of the program destroys.
        OPENSSL_thread_stop();
    }));
    QEventLoop loop;
    QObject::connect(thread.get(), &QThread::finished, &loop, &QEventLoop::quit);
    QObject::connect(&interruption, &Interruption::requested, &loop, [&] {
        thread->requestInterruption();
        QTimer::singleShot(interruptionGrace, &loop,
                           [&interruption] { interruption.endProgram(); });
    });
    thread->start();
    loop.exec();
    thread->wait();
    if (isOutOfMemory)
        throw std::bad_alloc();
    if (failure && failure->code == ExitCode::Interrupted)
        throw interruption.failure();
    if (failure)
        throw *failure;
}

} // namespace Brix
