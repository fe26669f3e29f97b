// SPDX-License-Identifier: MIT
// Linked into the tests when they are built with the thread sanitizer. The system's Qt is built
// without it, so the sanitizer does not see what orders threads there: the locks inside Qt, its
// semaphores, the queues of posted events and the ends of its threads. Each function below stands
// in front of Qt's own of the same name, calls it, and tells the sanitizer of the order that Qt
// guarantees. Nothing is told that does not hold: what our code forgets to order is still found.
#include <QtCore/QByteArrayView>
#include <QtCore/QCoreApplication>
#include <QtCore/QDeadlineTimer>
#include <QtCore/QEvent>
#include <QtCore/QMetaObject>
#include <QtCore/QThread>
#include <QtCore/QThreadStorage>

#include <dlfcn.h>
#include <link.h>
#include <sanitizer/tsan_interface.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <sched.h>
#include <sys/types.h>

class QMutex;
class QReadWriteLock;

// Of the sanitizer's run-time library.
extern "C" void AnnotateIgnoreReadsBegin(const char *file, int line);
extern "C" void AnnotateIgnoreReadsEnd(const char *file, int line);
extern "C" void AnnotateIgnoreWritesBegin(const char *file, int line);
extern "C" void AnnotateIgnoreWritesEnd(const char *file, int line);
extern "C" void __interceptor_free(void *memory);
extern "C" void *__interceptor_memcpy(void *to, const void *from, std::size_t size);
extern "C" void *__interceptor_memmove(void *to, const void *from, std::size_t size);

namespace {

// A place that stands for an order; only its address matters.
using Token = char;
Token posted;  // before a call or an event is queued, after it is taken out of the queue
Token handled; // after an event was handled, before whoever waited for that goes on

// Tells of the end of the thread that it belongs to: Qt destroys it after all events, just before
// it wakes those who wait for the thread.
class EndOfThread
{
public:
    ~EndOfThread() { __tsan_release(QThread::currentThread()); }
};

QThreadStorage<EndOfThread *> &endsOfThreads()
{
    static auto *ends = new QThreadStorage<EndOfThread *>;
    return *ends;
}

// A stretch of memory that holds code; no function is executed from an empty one.
struct Code
{
    const char *begin = nullptr;
    const char *end = nullptr;

    [[gnu::no_sanitize("thread")]] bool contains(const void *code) const
    {
        return code >= begin && code < end;
    }
};

Code qtCore;
std::array<Code, 4> ours; // the program and the libraries under test

int findCode(dl_phdr_info *info, std::size_t, void *)
{
    static std::size_t found = 0;
    const QByteArrayView name(info->dlpi_name);
    const bool isQtCore = name.contains("libQt6Core");
    if (!isQtCore && !name.isEmpty() && !name.contains("libbrix"))
        return 0;
    for (int i = 0; i < info->dlpi_phnum; ++i) {
        const auto &segment = info->dlpi_phdr[i];
        if (segment.p_type != PT_LOAD || !(segment.p_flags & PF_X))
            continue;
        const auto *begin = reinterpret_cast<const char *>(info->dlpi_addr + segment.p_vaddr);
        const Code code{begin, begin + segment.p_memsz};
        if (isQtCore)
            qtCore = code;
        else if (found < ours.size())
            ours[found++] = code;
    }
    return 0;
}

[[maybe_unused]] const int found = dl_iterate_phdr(findCode, nullptr);

[[gnu::no_sanitize("thread")]] bool isOurs(const void *code)
{
    for (const Code &library : ours) {
        if (library.contains(code))
            return true;
    }
    return false;
}

// Reading the type is not ordered yet.
bool isQueued(const QEvent *event)
{
    AnnotateIgnoreReadsBegin(__FILE__, __LINE__);
    const QEvent::Type type = event->type();
    AnnotateIgnoreReadsEnd(__FILE__, __LINE__);
    return type == QEvent::MetaCall || type == QEvent::DeferredDelete || type >= QEvent::User;
}

// Called by Qt for each event before it is handled; true means that it has been handled here.
bool handleEvent(void **data)
{
    thread_local QEvent *passedOn = nullptr;
    auto *event = static_cast<QEvent *>(data[1]);
    if (passedOn == event) {
        passedOn = nullptr;
        return false;
    }
    if (!isQueued(event))
        return false;
    __tsan_acquire(&posted);
    passedOn = event;
    *static_cast<bool *>(data[2]) =
        QCoreApplication::sendEvent(static_cast<QObject *>(data[0]), event);
    __tsan_release(&handled);
    return true;
}

[[maybe_unused]] const bool registered =
    QInternal::registerCallback(QInternal::EventNotifyCallback, handleEvent);

} // namespace

// Declares the function `name` under the linker's name of Qt's own.
// Aligned, since a pointer to a member function keeps a mark in the lowest bit of its address.
#define STAND_IN(result, name, symbol, ...)                                                        \
    [[gnu::visibility("default"), gnu::aligned(16)]] result name(__VA_ARGS__) __asm__(symbol);     \
    result name(__VA_ARGS__)

// The function that would have been called without the one of this name here.
#define QTS_OWN(name, symbol)                                                                      \
    static const auto own = reinterpret_cast<decltype(&name)>(dlsym(RTLD_NEXT, symbol))

// -- locks: what was done under a lock comes before what is done under it next
// ---------------------

#define LOCK(name, symbol)                                                                         \
    STAND_IN(void, name, symbol, void *lock)                                                       \
    {                                                                                              \
        QTS_OWN(name, symbol);                                                                     \
        own(lock);                                                                                 \
        __tsan_acquire(lock);                                                                      \
    }

#define TRY_LOCK(name, symbol)                                                                     \
    STAND_IN(bool, name, symbol, void *lock)                                                       \
    {                                                                                              \
        QTS_OWN(name, symbol);                                                                     \
        const bool locked = own(lock);                                                             \
        if (locked)                                                                                \
            __tsan_acquire(lock);                                                                  \
        return locked;                                                                             \
    }

#define TIMED_LOCK(name, symbol)                                                                   \
    STAND_IN(bool, name, symbol, void *lock, int msec)                                             \
    {                                                                                              \
        QTS_OWN(name, symbol);                                                                     \
        const bool locked = own(lock, msec);                                                       \
        if (locked)                                                                                \
            __tsan_acquire(lock);                                                                  \
        return locked;                                                                             \
    }

#define UNLOCK(name, symbol)                                                                       \
    STAND_IN(void, name, symbol, void *lock)                                                       \
    {                                                                                              \
        QTS_OWN(name, symbol);                                                                     \
        __tsan_release(lock);                                                                      \
        own(lock);                                                                                 \
    }

// A QMutex that nobody contends for is locked by inline code, which the sanitizer sees.
LOCK(mutexLock, "_ZN11QBasicMutex12lockInternalEv")
TIMED_LOCK(mutexTimedLock, "_ZN11QBasicMutex12lockInternalEi")
UNLOCK(mutexUnlock, "_ZN11QBasicMutex14unlockInternalEv")

TIMED_LOCK(recursiveTimedLock, "_ZN15QRecursiveMutex7tryLockEi")
UNLOCK(recursiveUnlock, "_ZN15QRecursiveMutex6unlockEv")

LOCK(readLock, "_ZN14QReadWriteLock11lockForReadEv")
LOCK(writeLock, "_ZN14QReadWriteLock12lockForWriteEv")
TRY_LOCK(readTryLock, "_ZN14QReadWriteLock14tryLockForReadEv")
TRY_LOCK(writeTryLock, "_ZN14QReadWriteLock15tryLockForWriteEv")
TIMED_LOCK(readTimedLock, "_ZN14QReadWriteLock14tryLockForReadEi")
TIMED_LOCK(writeTimedLock, "_ZN14QReadWriteLock15tryLockForWriteEi")
UNLOCK(readWriteUnlock, "_ZN14QReadWriteLock6unlockEv")

// -- semaphores and conditions
// ---------------------------------------------------------------------

STAND_IN(void, semaphoreAcquire, "_ZN10QSemaphore7acquireEi", void *semaphore, int count)
{
    QTS_OWN(semaphoreAcquire, "_ZN10QSemaphore7acquireEi");
    own(semaphore, count);
    __tsan_acquire(semaphore);
}

TIMED_LOCK(semaphoreTryAcquire, "_ZN10QSemaphore10tryAcquireEi")

STAND_IN(bool, semaphoreTimedAcquire, "_ZN10QSemaphore10tryAcquireEii", void *semaphore, int count,
         int msec)
{
    QTS_OWN(semaphoreTimedAcquire, "_ZN10QSemaphore10tryAcquireEii");
    const bool acquired = own(semaphore, count, msec);
    if (acquired)
        __tsan_acquire(semaphore);
    return acquired;
}

STAND_IN(void, semaphoreRelease, "_ZN10QSemaphore7releaseEi", void *semaphore, int count)
{
    QTS_OWN(semaphoreRelease, "_ZN10QSemaphore7releaseEi");
    __tsan_release(semaphore);
    own(semaphore, count);
}

// The lock is given up and taken again inside Qt.
#define CONDITION_WAIT(name, symbol, Lock, Time)                                                   \
    STAND_IN(bool, name, symbol, void *condition, Lock *lock, Time time)                           \
    {                                                                                              \
        QTS_OWN(name, symbol);                                                                     \
        __tsan_release(lock);                                                                      \
        const bool woken = own(condition, lock, time);                                             \
        __tsan_acquire(lock);                                                                      \
        return woken;                                                                              \
    }

CONDITION_WAIT(conditionWait, "_ZN14QWaitCondition4waitEP6QMutex14QDeadlineTimer", QMutex,
               QDeadlineTimer)
CONDITION_WAIT(conditionWaitMsec, "_ZN14QWaitCondition4waitEP6QMutexm", QMutex, unsigned long)
CONDITION_WAIT(conditionWaitLock, "_ZN14QWaitCondition4waitEP14QReadWriteLock14QDeadlineTimer",
               QReadWriteLock, QDeadlineTimer)
CONDITION_WAIT(conditionWaitLockMsec, "_ZN14QWaitCondition4waitEP14QReadWriteLockm", QReadWriteLock,
               unsigned long)

// -- threads: all that a thread did comes before its end is seen
// -----------------------------------

STAND_IN(void, threadStart, "_ZN7QThread5startENS_8PriorityE", QThread *thread,
         QThread::Priority priority)
{
    QTS_OWN(threadStart, "_ZN7QThread5startENS_8PriorityE");
    const auto once =
        static_cast<Qt::ConnectionType>(Qt::DirectConnection | Qt::SingleShotConnection);
    QObject::connect(
        thread, &QThread::started, thread, [] { endsOfThreads().setLocalData(new EndOfThread); },
        once);
    own(thread, priority);
}

STAND_IN(bool, threadWait, "_ZN7QThread4waitE14QDeadlineTimer", QThread *thread,
         QDeadlineTimer deadline)
{
    QTS_OWN(threadWait, "_ZN7QThread4waitE14QDeadlineTimer");
    const bool ended = own(thread, deadline);
    if (ended)
        __tsan_acquire(thread);
    return ended;
}

STAND_IN(bool, threadIsFinished, "_ZNK7QThread10isFinishedEv", const QThread *thread)
{
    QTS_OWN(threadIsFinished, "_ZNK7QThread10isFinishedEv");
    const bool ended = own(thread);
    if (ended)
        __tsan_acquire(const_cast<QThread *>(thread));
    return ended;
}

STAND_IN(bool, threadIsRunning, "_ZNK7QThread9isRunningEv", const QThread *thread)
{
    QTS_OWN(threadIsRunning, "_ZNK7QThread9isRunningEv");
    const bool running = own(thread);
    if (!running)
        __tsan_acquire(const_cast<QThread *>(thread));
    return running;
}

// -- event loops: what wakes one is made before it wakes
// ---------------------------------------

namespace {

// Qt hands out the event dispatcher of a thread, which owns the descriptor, by an atomic pointer.
std::array<Token, 1024> wakers;

[[gnu::no_sanitize("thread")]] Token *wakerOf(int descriptor)
{
    return &wakers[static_cast<std::size_t>(descriptor) % wakers.size()];
}

} // namespace

STAND_IN(int, eventDescriptor, "eventfd", unsigned count, int flags)
{
    QTS_OWN(eventDescriptor, "eventfd");
    const int descriptor = own(count, flags);
    if (descriptor >= 0 && qtCore.contains(__builtin_return_address(0)))
        __tsan_release(wakerOf(descriptor));
    return descriptor;
}

STAND_IN(int, wakeByDescriptor, "eventfd_write", int descriptor, std::uint64_t value)
{
    QTS_OWN(wakeByDescriptor, "eventfd_write");
    if (qtCore.contains(__builtin_return_address(0)))
        __tsan_acquire(wakerOf(descriptor));
    return own(descriptor, value);
}

// -- shared data: what was done with it comes before its end
// ---------------------------------------

// The count of references stands at its beginning. Whoever drops the last one comes after all who
// dropped theirs, also when that is Qt.
[[gnu::no_sanitize("thread")]] STAND_IN(void, freeMemory, "free", void *memory)
{
    if (memory && qtCore.contains(__builtin_return_address(0)))
        __tsan_acquire(memory);
    __interceptor_free(memory);
}

// Of all that Qt reads the sanitizer sees only what it copies by this function, and not that Qt
// drops its reference afterwards, which is why the memory may go.
[[gnu::no_sanitize("thread")]] STAND_IN(void *, copyMemory, "memcpy", void *to, const void *from,
                                        std::size_t size)
{
    if (!qtCore.contains(__builtin_return_address(0)))
        return __interceptor_memcpy(to, from, size);
    AnnotateIgnoreReadsBegin(__FILE__, __LINE__);
    void *const copy = __interceptor_memcpy(to, from, size);
    AnnotateIgnoreReadsEnd(__FILE__, __LINE__);
    return copy;
}

// Qt moves what its own lists hold, as the posted events of a thread, under locks that it takes by
// inline code. Lists of ours are moved by code that was compiled here.
[[gnu::no_sanitize("thread")]] STAND_IN(void *, moveMemory, "memmove", void *to, const void *from,
                                        std::size_t size)
{
    if (!qtCore.contains(__builtin_return_address(0)))
        return __interceptor_memmove(to, from, size);
    AnnotateIgnoreReadsBegin(__FILE__, __LINE__);
    AnnotateIgnoreWritesBegin(__FILE__, __LINE__);
    void *const moved = __interceptor_memmove(to, from, size);
    AnnotateIgnoreWritesEnd(__FILE__, __LINE__);
    AnnotateIgnoreReadsEnd(__FILE__, __LINE__);
    return moved;
}

// -- futures: a function comes after its start, the end of the results after all who used them
// ----------------------------------------------------------------------------------------------

namespace {

// What the parts of a future share lies behind the pointer to the virtual table.
[[gnu::no_sanitize("thread")]] void *sharedBy(const void *future)
{
    return static_cast<void *const *>(future)[1];
}

} // namespace

// Called before the function is handed to the pool, whose threads ask whether it has been cancelled
// before they run it.
STAND_IN(void, startFuture, "_ZN20QFutureInterfaceBase13reportStartedEv", void *future)
{
    QTS_OWN(startFuture, "_ZN20QFutureInterfaceBase13reportStartedEv");
    __tsan_release(sharedBy(future));
    own(future);
}

STAND_IN(bool, isFutureCanceled, "_ZNK20QFutureInterfaceBase10isCanceledEv", const void *future)
{
    QTS_OWN(isFutureCanceled, "_ZNK20QFutureInterfaceBase10isCanceledEv");
    __tsan_acquire(sharedBy(future));
    return own(future);
}

// Whoever drops the last reference clears the results.
STAND_IN(bool, dropFuture, "_ZNK20QFutureInterfaceBase6derefTEv", const void *future)
{
    QTS_OWN(dropFuture, "_ZNK20QFutureInterfaceBase6derefTEv");
    void *const shared = sharedBy(future);
    __tsan_release(shared);
    const bool isHeld = own(future);
    if (!isHeld)
        __tsan_acquire(shared);
    return isHeld;
}

// -- processes
// ----------------------------------------------------------------------------------------------

// QProcess starts a program from a child that shares the memory until it executes that program. The
// sanitizer takes it for a copy of this process: it stops looking at the calling thread and lets no
// other one begin. The system's own function leaves it as it is.
STAND_IN(int, cloneProcess, "clone", int (*function)(void *), void *stack, int flags,
         void *argument, pid_t *parent, void *storage, pid_t *child)
{
    static void *const system = dlopen("libc.so.6", RTLD_LAZY | RTLD_NOLOAD);
    static const auto systems = reinterpret_cast<decltype(&cloneProcess)>(dlsym(system, "clone"));
    QTS_OWN(cloneProcess, "clone");
    return ((flags & CLONE_VM) ? systems : own)(function, stack, flags, argument, parent, storage,
                                                child);
}

// -- queues: what was done before a call was queued comes before the call
// --------------------------

STAND_IN(void, activate, "_ZN11QMetaObject8activateEP7QObjectPKS_iPPv", QObject *sender,
         const QMetaObject *meta, int signal, void **arguments)
{
    QTS_OWN(activate, "_ZN11QMetaObject8activateEP7QObjectPKS_iPPv");
    __tsan_release(&posted);
    own(sender, meta, signal, arguments);
}

STAND_IN(void, activateIndex, "_ZN11QMetaObject8activateEP7QObjectiPPv", QObject *sender,
         int signal, void **arguments)
{
    QTS_OWN(activateIndex, "_ZN11QMetaObject8activateEP7QObjectiPPv");
    __tsan_release(&posted);
    own(sender, signal, arguments);
}

STAND_IN(void, activateOffset, "_ZN11QMetaObject8activateEP7QObjectiiPPv", QObject *sender,
         int offset, int signal, void **arguments)
{
    QTS_OWN(activateOffset, "_ZN11QMetaObject8activateEP7QObjectiiPPv");
    __tsan_release(&posted);
    own(sender, offset, signal, arguments);
}

STAND_IN(void, postEvent, "_ZN16QCoreApplication9postEventEP7QObjectP6QEventi", QObject *receiver,
         QEvent *event, int priority)
{
    QTS_OWN(postEvent, "_ZN16QCoreApplication9postEventEP7QObjectP6QEventi");
    __tsan_release(&posted);
    own(receiver, event, priority);
}

STAND_IN(void, deleteLater, "_ZN7QObject11deleteLaterEv", QObject *object)
{
    QTS_OWN(deleteLater, "_ZN7QObject11deleteLaterEv");
    __tsan_release(&posted);
    own(object);
}

STAND_IN(void, moveToThread, "_ZN7QObject12moveToThreadEP7QThread", QObject *object,
         QThread *thread)
{
    QTS_OWN(moveToThread, "_ZN7QObject12moveToThreadEP7QThread");
    __tsan_release(&posted);
    own(object, thread);
}

// What Qt allocates for a queued call is written after the release above and before it is queued.
// These are called very early in a thread, when the sanitizer does not know it yet.
#define NEW(name, symbol)                                                                          \
    [[gnu::no_sanitize("thread")]] STAND_IN(void *, name, symbol, std::size_t size)                \
    {                                                                                              \
        QTS_OWN(name, symbol);                                                                     \
        void *memory = own(size);                                                                  \
        if (qtCore.contains(__builtin_return_address(0)))                                          \
            __tsan_release(&posted);                                                               \
        return memory;                                                                             \
    }

NEW(newObject, "_Znwm")
NEW(newArray, "_Znam")

// Qt frees an event, and the function object of a connection, when all threads have done with it.
// For the latter it calls code that was compiled here, which keeps its frame pointer, and that
// deletes.
[[gnu::no_sanitize("thread")]] void orderDelete(const void *caller, void *const *frame)
{
    auto *const callersFrame = static_cast<void *const *>(frame[0]);
    if (qtCore.contains(caller) || (isOurs(caller) && qtCore.contains(callersFrame[1]))) {
        __tsan_acquire(&posted);
        __tsan_acquire(&handled);
    }
}

#define FRAME static_cast<void *const *>(__builtin_frame_address(0))

#define DELETE(name, symbol)                                                                       \
    [[gnu::no_sanitize("thread")]] STAND_IN(void, name, symbol, void *memory)                      \
    {                                                                                              \
        QTS_OWN(name, symbol);                                                                     \
        orderDelete(__builtin_return_address(0), FRAME);                                           \
        own(memory);                                                                               \
    }

#define DELETE_SIZED(name, symbol)                                                                 \
    [[gnu::no_sanitize("thread")]] STAND_IN(void, name, symbol, void *memory, std::size_t size)    \
    {                                                                                              \
        QTS_OWN(name, symbol);                                                                     \
        orderDelete(__builtin_return_address(0), FRAME);                                           \
        own(memory, size);                                                                         \
    }

DELETE(deleteObject, "_ZdlPv")
DELETE(deleteArray, "_ZdaPv")
DELETE_SIZED(deleteSizedObject, "_ZdlPvm")
DELETE_SIZED(deleteSizedArray, "_ZdaPvm")

// A blocking call also comes back after the called function has ended.
namespace {

void comeBack(Qt::ConnectionType type)
{
    if (type == Qt::BlockingQueuedConnection)
        __tsan_acquire(&handled);
}

} // namespace

STAND_IN(bool, invokeSlotObject,
         "_ZN11QMetaObject16invokeMethodImplEP7QObjectPN9QtPrivate15QSlotObjectBaseEN2Qt14"
         "ConnectionTypeEPv",
         QObject *object, void *slot, Qt::ConnectionType type, void *result)
{
    QTS_OWN(invokeSlotObject, "_ZN11QMetaObject16invokeMethodImplEP7QObjectPN9QtPrivate15"
                              "QSlotObjectBaseEN2Qt14ConnectionTypeEPv");
    __tsan_release(&posted);
    const bool invoked = own(object, slot, type, result);
    comeBack(type);
    return invoked;
}

using Argument = QGenericArgument;

STAND_IN(bool, invokeByName,
         "_ZN11QMetaObject12invokeMethodEP7QObjectPKcN2Qt14ConnectionTypeE22QGenericReturnArgument"
         "16QGenericArgumentS7_S7_S7_S7_S7_S7_S7_S7_S7_",
         QObject *object, const char *name, Qt::ConnectionType type, QGenericReturnArgument result,
         Argument a0, Argument a1, Argument a2, Argument a3, Argument a4, Argument a5, Argument a6,
         Argument a7, Argument a8, Argument a9)
{
    QTS_OWN(invokeByName, "_ZN11QMetaObject12invokeMethodEP7QObjectPKcN2Qt14ConnectionTypeE22"
                          "QGenericReturnArgument16QGenericArgumentS7_S7_S7_S7_S7_S7_S7_S7_S7_");
    __tsan_release(&posted);
    const bool invoked = own(object, name, type, result, a0, a1, a2, a3, a4, a5, a6, a7, a8, a9);
    comeBack(type);
    return invoked;
}

STAND_IN(bool, invokeMethod,
         "_ZNK11QMetaMethod6invokeEP7QObjectN2Qt14ConnectionTypeE22QGenericReturnArgument16"
         "QGenericArgumentS5_S5_S5_S5_S5_S5_S5_S5_S5_",
         const QMetaMethod *method, QObject *object, Qt::ConnectionType type,
         QGenericReturnArgument result, Argument a0, Argument a1, Argument a2, Argument a3,
         Argument a4, Argument a5, Argument a6, Argument a7, Argument a8, Argument a9)
{
    QTS_OWN(invokeMethod, "_ZNK11QMetaMethod6invokeEP7QObjectN2Qt14ConnectionTypeE22"
                          "QGenericReturnArgument16QGenericArgumentS5_S5_S5_S5_S5_S5_S5_S5_S5_");
    __tsan_release(&posted);
    const bool invoked = own(method, object, type, result, a0, a1, a2, a3, a4, a5, a6, a7, a8, a9);
    comeBack(type);
    return invoked;
}
