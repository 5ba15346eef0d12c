// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "child_process.h"

#include <QtCore/QTemporaryDir>

/**
 * A session bus that only this process and those below it know, with the limits of a stock session bus and nothing to
 * activate. It becomes the session bus of this process and of those that it starts from then on, and its
 * directory their one for runtime files if they have none.
 */
class PrivateBus : public QObject
{
    Q_OBJECT
public:
    /// Starts the bus, and blocks until it is ready. problem() tells whether it is.
    /// \a program starts as dbus-daemon does, with the same options.
    explicit PrivateBus(const QString &program, QObject *parent = nullptr);

    QString problem() const { return m_problem; }
    pid_t processId() const { return pid_t(m_daemon.processId()); }

Q_SIGNALS:
    /// The daemon has ended by itself, or has cut off this process.
    void lost();

private:
    void start(const QString &program);

    QTemporaryDir m_directory;
    ChildProcess m_daemon{ChildProcess::Terminal::Detached};
    QString m_problem;
};
