// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "child_process.h"
#include "joined_process.h"
#include "manifest.h"
#include "trace.h"

#include <Corvane/lifecycle.h>

#include <QtCore/QPointer>
#include <QtCore/QTimer>
#include <QtDBus/QDBusServiceWatcher>

#include <functional>
#include <memory>

/**
 * An application of a manifest, running or not: its process, and the bus name that the process claims.
 *
 * Each process of an application has its own instance id: "viewer.instance2" is the second process of the application
 * "viewer". The application has ended when the process that was started here has ended, or the one that has joined.
 */
class Application : public QObject
{
    Q_OBJECT
public:
    /// \param startTimeout time in which a process must claim its name, in milliseconds
    Application(const Manifest &manifest, int startTimeout, const Trace &trace, QObject *parent = nullptr);

    const Manifest &manifest() const { return m_manifest; }
    /// Replaces the description. A running instance is not changed.
    void setManifest(const Manifest &manifest);
    /// Marks the application as removed. A running instance goes on.
    void remove() { m_isRemoved = true; }
    bool isRemoved() const { return m_isRemoved; }

    /// The id of the running instance; empty if there is none.
    QString instanceId() const { return m_instanceId; }
    /// The connection that owns the instance id as its bus name; empty if there is none.
    QString connection() const { return m_connection; }

    /// Ends the running instance with SIGTERM and, after the grace period, SIGKILL, and calls \a stopped when it has
    /// ended; at once if there is none.
    void stop(const std::function<void()> &stopped);

    /// Makes \a process the next instance. Call it before the process is started.
    void adopt(ChildProcess *process);

    /// Makes a process that was not started here the next instance. Returns the reason of a failure, for people; empty
    /// if the process is the instance now.
    QString join(pid_t processId);

    bool isRunning() const { return m_process || m_joined; }
    /// A Corvane::ApplicationState.
    uint state() const { return m_state; }
    /// The process of the running instance; 0 if there is none.
    qint64 processId() const;
    /// Announces the state of the running instance: foreground, background, or suspended. Before the process is
    /// suspended, it has time to handle the announcement. It gets SIGSTOP then, and SIGCONT in the other states. Calls
    /// \a done with the reason of a failure, for people; empty on success.
    void setState(uint state, const std::function<void(const QString &problem)> &done);

    /// \a problem is the reason why the application is not available, for people; empty if it is available.
    using Ready = std::function<void(const QString &problem)>;
    /// Calls \a ready when an instance owns its name; at once if one already does. Starts an instance if none is
    /// running or the running one is about to end. Callbacks are called in the order of the calls.
    void whenReady(const Ready &ready);

Q_SIGNALS:
    /// \param state a Corvane::ApplicationState
    void stateChanged(const QString &instanceId, uint state);

private:
    void announce(uint state);
    void signal(int number);
    void begin();
    void start();
    void onNameOwnerChanged(const QString &connection);
    void onTimeout();
    void onChildEnded(const QString &how);
    void onEnded(const QString &how);
    void finishWaiting(const QString &problem);

    Manifest m_manifest;
    bool m_isRemoved = false;
    const Trace &m_trace;
    int m_instances = 0;
    QString m_instanceId;
    QString m_connection;
    uint m_state = Corvane::StoppedState;
    bool m_hasBeenReady = false;
    QPointer<ChildProcess> m_process;
    QPointer<JoinedProcess> m_joined; ///< the process if m_process is null
    std::unique_ptr<QDBusServiceWatcher> m_nameWatcher;
    QVector<Ready> m_waiting;
    QVector<std::function<void()>> m_stopping;
    QTimer m_timer;
};
