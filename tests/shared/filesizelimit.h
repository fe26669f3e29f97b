// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QtGlobal>

#include <csignal>
#include <sys/resource.h>

//! As long as this object lives, no file of the process grows beyond so many bytes: what is written
//! behind fails, as on a full disk.
class FileSizeLimit
{
public:
    explicit FileSizeLimit(rlim_t bytes)
        : m_before(std::signal(SIGXFSZ, SIG_IGN))
    {
        getrlimit(RLIMIT_FSIZE, &m_limit);
        const rlimit small{bytes, m_limit.rlim_max};
        setrlimit(RLIMIT_FSIZE, &small);
    }
    ~FileSizeLimit()
    {
        setrlimit(RLIMIT_FSIZE, &m_limit);
        std::signal(SIGXFSZ, m_before);
    }
    Q_DISABLE_COPY_MOVE(FileSizeLimit)

private:
    rlimit m_limit = {};
    void (*m_before)(int);
};
