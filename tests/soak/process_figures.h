// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <QtCore/QtGlobal>

#include <sys/types.h>

/// The resources of a process at one moment.
struct ProcessFigures
{
    /// In KiB: what it has written, in memory or swapped out, its heap above all. A leak shows here; which pages of
    /// libraries other processes map too, and whether it has just forked, does not.
    qint64 memory = 0;
    int descriptors = 0;

    static ProcessFigures of(pid_t process);
};
