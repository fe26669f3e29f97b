// SPDX-License-Identifier: MIT
// Processes of the tool that may not do what the tests' own may; for systems of the Unix kind.
#pragma once

#include <QtCore/QProcess>

#include <csignal>

#include <sys/resource.h>
#ifdef __linux__
#include <linux/capability.h>
#include <sys/prctl.h>
#endif

//! No file of the process may grow beyond \a bytes, as on a disk that is full.
inline void limitFileSize(QProcess *process, rlim_t bytes)
{
    process->setChildProcessModifier([bytes] {
        const rlimit limit{bytes, bytes};
        setrlimit(RLIMIT_FSIZE, &limit);
        std::signal(SIGXFSZ, SIG_IGN);
    });
}

//! Takes root's right to open any file away from the process.
inline void obeyPermissions(QProcess *process)
{
#ifdef __linux__
    process->setChildProcessModifier([] {
        prctl(PR_CAPBSET_DROP, CAP_DAC_OVERRIDE, 0, 0, 0);
        prctl(PR_CAPBSET_DROP, CAP_DAC_READ_SEARCH, 0, 0, 0);
    });
#else
    Q_UNUSED(process);
#endif
}
