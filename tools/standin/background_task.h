// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "child_process.h"
#include "clock.h"
#include "manifest.h"
#include "trace.h"

#include <QtCore/QPointer>
#include <QtCore/QTimer>

/**
 * A task of an application: its description, its next run, and its process while it runs.
 */
class BackgroundTask : public QObject
{
    Q_OBJECT
public:
    enum State : uint { Stopped = 0, Running = 1, Waiting = 2 }; ///< the codes on the bus

    BackgroundTask(const QString &applicationId, const TaskManifest &manifest, const Clock &clock, const Trace &trace,
                   QObject *parent = nullptr);

    const TaskManifest &manifest() const { return m_manifest; }
    /// Replaces the description. A planned or running task is not changed; the next run starts the new command.
    void setManifest(const TaskManifest &manifest);
    /// Marks the task as removed: it has no further run. A running process goes on.
    void remove();
    bool isRemoved() const { return m_isRemoved; }
    /// The running process; 0 if there is none.
    qint64 processId() const { return m_process ? m_process->processId() : 0; }
    /// The qualified name: "application.task_id".
    QString name() const;
    State state() const { return m_state; }
    /// The properties in announcements: the integers and booleans of the description, the next run and the last runs.
    /// The other properties of the description might exceed the limits of a message.
    QVariantMap properties() const;

    /// Schedules the task with the times in \a properties. Do not call it while the task is running. Returns false, and
    /// changes nothing, if the schedule has no time left.
    bool start(const QStringList &arguments, const QVariantMap &properties);
    /// Ends the running process and cancels all further runs.
    void stop(bool force);

Q_SIGNALS:
    void changed(); ///< The state or the properties have changed.

private:
    void plan(const QDateTime &due);
    void check();
    void run();
    void onEnded(const QString &how);
    void setState(State state);
    QString socketPath() const;

    const QString m_applicationId;
    TaskManifest m_manifest;
    bool m_isRemoved = false;
    const Clock &m_clock;
    const Trace &m_trace;

    QStringList m_arguments;
    QVariantMap m_description;
    QVariantMap m_lastRuns; ///< the properties that describe them
    QVariantMap m_announced; ///< the properties at the last changed()
    State m_state = Stopped;
    QPointer<ChildProcess> m_process;
    uint m_runs = 0;
    QDateTime m_due; ///< the next run; invalid if there is none
    QDateTime m_deadline; ///< the time at which the process is ended; invalid if unlimited
    QTimer m_timer;
};
