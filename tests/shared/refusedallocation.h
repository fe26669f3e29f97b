// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QtGlobal>

//! More bytes than any machine has, though a pointer difference could span them.
constexpr quint64 kBytesNobodyHas = quint64(1) << 62;

// A sanitizer ends the program at such a request unless it is told to refuse it as malloc() does.
#if defined(__SANITIZE_ADDRESS__)
extern "C" [[gnu::visibility("default")]] const char *__asan_default_options()
{
    return "allocator_may_return_null=1";
}
#elif defined(__SANITIZE_THREAD__)
extern "C" [[gnu::visibility("default")]] const char *__tsan_default_options()
{
    return "allocator_may_return_null=1";
}
#endif
