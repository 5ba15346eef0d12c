// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "child_process.h"

/**
 * A private session bus with the limits of a stock session bus and without activatable services. It
 * becomes the session bus of this process and of the processes that it starts later.
 */
class PrivateBus : public QObject
{
    Q_OBJECT
public:
    /// Starts the bus, and blocks until it is ready or has failed. \a program takes the options of dbus-daemon. The
    /// files of the bus are in \a directory.
    PrivateBus(const QString &program, const QString &directory, QObject *parent = nullptr);

    /// The reason of a failure, for people; empty if the bus is ready.
    QString problem() const { return m_problem; }
    pid_t processId() const { return pid_t(m_daemon.processId()); }

Q_SIGNALS:
    /// The daemon has ended, or has disconnected this process.
    void lost();

private:
    void start(const QString &program, const QString &directory);

    ChildProcess m_daemon{ChildProcess::Terminal::Detached};
    QString m_problem;
};
