// SPDX-License-Identifier: MIT
#include <shared/filecallfaults.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdarg>

#include <dlfcn.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

struct State
{
    FileFaultPlan plan;
    bool isArmed = false;
    bool isFull = false;
    int calls = 0;
    QByteArrayList names;
};

// Leaked: the functions below are called before and after the life of any static object.
State &state()
{
    static auto *instance = new State;
    return *instance;
}

// The function that the C library has under this name.
template<typename Function>
Function original(Function, const char *name)
{
    return reinterpret_cast<Function>(dlsym(RTLD_NEXT, name));
}

bool isFile(int descriptor)
{
    struct stat status = {};
    return fstat(descriptor, &status) == 0 && (S_ISREG(status.st_mode) || S_ISDIR(status.st_mode));
}

QByteArray baseName(const char *path)
{
    const QByteArray name(path);
    return name.mid(name.lastIndexOf('/') + 1);
}

QByteArray nameOf(int descriptor)
{
    char target[4096] = {};
    const QByteArray link = "/proc/self/fd/" + QByteArray::number(descriptor);
    return readlink(link.constData(), target, sizeof target - 1) > 0 ? baseName(target)
                                                                     : QByteArray("?");
}

// What is to happen to this call, which is counted.
FileFault next(const char *call, const QByteArray &file)
{
    State &now = state();
    now.isArmed = false; // what follows allocates, and may call such a function itself
    now.names.append(call + (' ' + file));
    const bool isPlanned = ++now.calls == now.plan.call;
    now.isArmed = true;
    if (isPlanned && now.plan.fault == FileFault::DiskFull)
        now.isFull = true;
    if (isPlanned && now.plan.fault == FileFault::Kill)
        kill(getpid(), SIGKILL);
    return isPlanned ? now.plan.fault : FileFault::None;
}

// Of a call that has no half.
bool goesWrong(const char *call, const QByteArray &file)
{
    const FileFault fault = next(call, file);
    if (fault == FileFault::KillHalfway)
        kill(getpid(), SIGKILL);
    if (fault == FileFault::Fail)
        errno = EIO;
    return fault == FileFault::Fail;
}

bool makesFile(int flags)
{
    return (flags & (O_CREAT | O_TRUNC)) != 0;
}

template<typename Function>
int openWith(Function function, const char *path, int flags, mode_t mode)
{
    if (!state().isArmed || !makesFile(flags))
        return function(path, flags, mode);
    if (goesWrong("open", baseName(path)))
        return -1;
    if (state().isFull && access(path, F_OK) != 0) {
        errno = ENOSPC;
        return -1;
    }
    return function(path, flags, mode);
}

mode_t modeOf(int flags, va_list arguments)
{
    return (flags & (O_CREAT | O_TMPFILE)) != 0 ? va_arg(arguments, mode_t) : 0;
}

} // namespace

void FileCallFaults::arm(const FileFaultPlan &plan)
{
    state() = State{plan, true, false, 0, {}};
}

QByteArrayList FileCallFaults::disarm()
{
    state().isArmed = false;
    return state().names;
}

#define BRIX_REPLACES extern "C" [[gnu::visibility("default")]]

// NOLINTBEGIN: these have the names and parameters of the C library.

BRIX_REPLACES int open(const char *path, int flags, ...)
{
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = modeOf(flags, arguments);
    va_end(arguments);
    static const auto function = original(&::open, "open");
    return openWith(function, path, flags, mode);
}

BRIX_REPLACES int open64(const char *path, int flags, ...)
{
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = modeOf(flags, arguments);
    va_end(arguments);
    static const auto function = original(&::open, "open64");
    return openWith(function, path, flags, mode);
}

BRIX_REPLACES ssize_t write(int descriptor, const void *bytes, size_t size)
{
    static const auto function = original(&::write, "write");
    if (!state().isArmed || !isFile(descriptor))
        return function(descriptor, bytes, size);
    const bool wasFull = state().isFull;
    const FileFault fault = next("write", nameOf(descriptor));
    if (fault == FileFault::Fail || wasFull) {
        errno = wasFull ? ENOSPC : EIO;
        return -1;
    }
    if (fault == FileFault::None)
        return function(descriptor, bytes, size);
    const ssize_t written = function(descriptor, bytes, std::max<size_t>(size / 2, 1));
    if (fault == FileFault::KillHalfway)
        kill(getpid(), SIGKILL);
    return written;
}

BRIX_REPLACES int ftruncate(int descriptor, off_t size) noexcept
{
    static const auto function = original(&::ftruncate, "ftruncate");
    return state().isArmed && goesWrong("ftruncate", nameOf(descriptor))
               ? -1
               : function(descriptor, size);
}

BRIX_REPLACES int ftruncate64(int descriptor, off64_t size) noexcept
{
    static const auto function = original(&::ftruncate, "ftruncate64");
    return state().isArmed && goesWrong("ftruncate", nameOf(descriptor))
               ? -1
               : function(descriptor, size);
}

BRIX_REPLACES int rename(const char *from, const char *to) noexcept
{
    static const auto function = original(&::rename, "rename");
    return state().isArmed && goesWrong("rename", baseName(to)) ? -1 : function(from, to);
}

BRIX_REPLACES int unlink(const char *path) noexcept
{
    static const auto function = original(&::unlink, "unlink");
    return state().isArmed && goesWrong("unlink", baseName(path)) ? -1 : function(path);
}

BRIX_REPLACES int fsync(int descriptor)
{
    static const auto function = original(&::fsync, "fsync");
    return state().isArmed && goesWrong("fsync", nameOf(descriptor)) ? -1 : function(descriptor);
}

BRIX_REPLACES int fchmod(int descriptor, mode_t mode) noexcept
{
    static const auto function = original(&::fchmod, "fchmod");
    return state().isArmed && goesWrong("fchmod", nameOf(descriptor)) ? -1
                                                                      : function(descriptor, mode);
}

BRIX_REPLACES int fchown(int descriptor, uid_t user, gid_t group) noexcept
{
    static const auto function = original(&::fchown, "fchown");
    return state().isArmed && goesWrong("fchown", nameOf(descriptor))
               ? -1
               : function(descriptor, user, group);
}

// NOLINTEND
