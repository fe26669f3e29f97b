// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QtGlobal>

#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

//! As long as this object lives, the process can open no more than so many descriptors.
class DescriptorShortage
{
public:
    explicit DescriptorShortage(int left = 0)
    {
        getrlimit(RLIMIT_NOFILE, &m_limit);
        // The lowest number that is free; what is already open stays open.
        const int free = ::open("/dev/null", O_RDONLY | O_CLOEXEC);
        ::close(free);
        const rlimit few{static_cast<rlim_t>(free + left), m_limit.rlim_max};
        setrlimit(RLIMIT_NOFILE, &few);
    }
    ~DescriptorShortage() { setrlimit(RLIMIT_NOFILE, &m_limit); }
    Q_DISABLE_COPY_MOVE(DescriptorShortage)

private:
    rlimit m_limit = {};
};
