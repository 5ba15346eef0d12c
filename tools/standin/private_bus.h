// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "child_process.h"

#include <QtCore/QTemporaryDir>

/**
 * A private session bus with the limits of a stock session bus and without activatable services. It
 * becomes the session bus of this process and of the processes that it starts later. If they have no runtime directory,
 * its directory becomes that too.
 */
class PrivateBus : public QObject
{
    Q_OBJECT
public:
    /// Starts the bus, and blocks until it is ready or has failed. \a program takes the options of dbus-daemon.
    explicit PrivateBus(const QString &program, QObject *parent = nullptr);

    /// The reason of a failure, for people; empty if the bus is ready.
    QString problem() const { return m_problem; }
    pid_t processId() const { return pid_t(m_daemon.processId()); }

Q_SIGNALS:
    /// The daemon has ended, or has disconnected this process.
    void lost();

private:
    void start(const QString &program);

    QTemporaryDir m_directory;
    ChildProcess m_daemon{ChildProcess::Terminal::Detached};
    QString m_problem;
};
