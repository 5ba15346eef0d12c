// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <QtCore/QByteArray>

#include <csignal>
#include <cstdio>
#include <ctime>
#include <sys/prctl.h>

/// To be called first: the process does not outlive who has started it.
inline void dieWithParent()
{
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
}

/// Tells who has started the process that it can be reached now.
inline void tellReady()
{
    std::puts("ready");
    std::fflush(stdout);
}

/// Whether the process is to be the calling end, and not the handling one.
inline bool isCaller(int argc, char **argv)
{
    return argc > 1 && qstrcmp(argv[1], "caller") == 0;
}

/// The intent that a handling end handles, and its name on the bus.
inline QByteArray handledIntent()
{
    return qgetenv("HALVIR_APP_INSTANCE_ID");
}

/// The nanoseconds that a clock shows, such as that of a process.
inline qint64 nanoseconds(clockid_t clock)
{
    timespec time = {};
    ::clock_gettime(clock, &time);
    return qint64(time.tv_sec) * 1000000000 + time.tv_nsec;
}
