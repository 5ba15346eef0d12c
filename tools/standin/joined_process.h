// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <QtCore/QObject>

#include <sys/types.h>

/// A process that the stand-in has not started: that of "corvane-standin exec --as ID".
class JoinedProcess : public QObject
{
    Q_OBJECT
public:
    explicit JoinedProcess(pid_t processId, QObject *parent = nullptr);
    ~JoinedProcess() override;

    /// Whether the process exists and can be followed.
    bool isValid() const { return m_descriptor >= 0; }
    pid_t processId() const { return m_processId; }

    void signal(int number);
    /// Sends SIGTERM, and SIGKILL after the grace period of child processes.
    void end();

Q_SIGNALS:
    void ended(); ///< The process has ended. The kernel gives its exit code only to its parent.

private:
    const pid_t m_processId;
    int m_descriptor; ///< refers to this process even if its id is reused
};
