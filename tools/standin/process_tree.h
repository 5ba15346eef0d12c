// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <QtCore/QSet>

#include <sys/types.h>

/**
 * All descendants of this process, orphans included: this process becomes the parent of orphaned descendants.
 */
class ProcessTree
{
public:
    /// Create the object before the first process is started.
    ProcessTree();

    /// Waits for orphans that have ended, so that they do not remain as zombies. Ignores the processes in \a others,
    /// for which other code waits.
    void reapOrphans(const QSet<pid_t> &others) const;

    /// Ends all processes but \a spared (0 for none) and its descendants, with SIGTERM and, after \a grace
    /// milliseconds, with SIGKILL. Blocks until they have ended, at most twice that time. Returns the processes that
    /// have not ended. Calls \a meanwhile from time to time.
    QSet<pid_t> endAll(
        pid_t spared, int grace, void (*meanwhile)() = [] {}) const;

private:
    QSet<pid_t> descendants(pid_t spared = 0) const;
};
