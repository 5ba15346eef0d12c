// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <QtCore/QByteArray>

#include <csignal>
#include <cstdio>
#include <ctime>
#include <sys/prctl.h>

/// Ends the process together with its parent. Call it first.
inline void dieWithParent()
{
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
}

/// Notifies the parent that the process is available.
inline void tellReady()
{
    std::puts("ready");
    std::fflush(stdout);
}

/// Whether the process is the caller, not the handler.
inline bool isCaller(int argc, char **argv)
{
    return argc > 1 && qstrcmp(argv[1], "caller") == 0;
}

/// The intent of a handler, and its bus name.
inline QByteArray handledIntent()
{
    return qgetenv("HALVIR_APP_INSTANCE_ID");
}

/// Returns the time of a clock in nanoseconds.
inline qint64 nanoseconds(clockid_t clock)
{
    timespec time = {};
    ::clock_gettime(clock, &time);
    return qint64(time.tv_sec) * 1000000000 + time.tv_nsec;
}
