// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "child_process.h"
#include "manifest.h"
#include "trace.h"

#include <QtCore/QPointer>
#include <QtCore/QTimer>
#include <QtDBus/QDBusServiceWatcher>

#include <functional>
#include <memory>

/**
 * An application, which runs or doesn't: its process, and the bus name that the process is to claim.
 *
 * Each process of an application has an instance id of its own, "viewer.instance2" for the second of the application
 * "viewer". The application counts as ended when the process that was started here ends.
 */
class Application : public QObject
{
    Q_OBJECT
public:
    /// \param startTimeout milliseconds that a process has to claim its name
    Application(const Manifest &manifest, int startTimeout, const Trace &trace, QObject *parent = nullptr);

    const Manifest &manifest() const { return m_manifest; }
    /// The instance that runs; empty if none does.
    QString instanceId() const { return m_instanceId; }
    /// The connection that owns the instance id as its bus name; empty if there is none.
    QString connection() const { return m_connection; }

    /// Ends the instance that runs, with SIGTERM and two seconds later with SIGKILL, and calls \a stopped then; at once
    /// if none runs.
    void stop(const std::function<void()> &stopped);

    /// Makes a process that is about to be started the next instance.
    void adopt(ChildProcess *process);

    /// Why the application cannot be reached, for people; empty if it can.
    using Ready = std::function<void(const QString &problem)>;
    /// Calls \a ready as soon as an instance owns its name, starting one if none runs or the one that runs is about
    /// to end; at once if one does already. Several are called in their order.
    void whenReady(const Ready &ready);

Q_SIGNALS:
    /// \param state a Corvane::ApplicationState
    void stateChanged(const QString &instanceId, uint state);

private:
    void start();
    void onNameOwnerChanged(const QString &connection);
    void onTimeout();
    void onEnded(const QString &how);
    void finishWaiting(const QString &problem);

    const Manifest m_manifest;
    const Trace &m_trace;
    int m_instances = 0;
    QString m_instanceId;
    QString m_connection;
    bool m_hasBeenReady = false;
    QPointer<ChildProcess> m_process;
    std::unique_ptr<QDBusServiceWatcher> m_nameWatcher;
    QVector<Ready> m_waiting;
    QVector<std::function<void()>> m_stopping;
    QTimer m_timer;
};
