// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <QtCore/QtGlobal>

#include <sys/types.h>

/// The resources of a process at one moment.
struct ProcessFigures
{
    /// The memory that the process has written, in KiB: mainly its heap, swapped pages included. A leak increases it.
    /// Pages of libraries that are shared with other processes do not count.
    qint64 memory = 0;
    int descriptors = 0;

    static ProcessFigures of(pid_t process);
};
