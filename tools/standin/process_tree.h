// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <QtCore/QSet>

#include <sys/types.h>

/**
 * The processes below this one, however deep, and those that they left behind: this process becomes the parent of each
 * that loses its own. Those that were there before, children of a shell that became this program, do not count.
 */
class ProcessTree
{
public:
    /// Make it before the first process is started.
    ProcessTree();

    /// Releases the orphans that have ended, which would be there as "defunct" for ever. Not those in \a others, which
    /// somebody else waits for.
    void reapOrphans(const QSet<pid_t> &others) const;

    /// Ends all but \a spared and those below it, with SIGTERM and, after \a grace milliseconds, SIGKILL. Blocks until
    /// they are gone, or for as long again. Returns those that are left, since they cannot be ended.
    QSet<pid_t> endAll(pid_t spared, int grace) const;

private:
    QSet<pid_t> descendants(pid_t spared = 0) const;

    QSet<pid_t> m_before;
};
