// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "child_process.h"
#include "clock.h"
#include "manifest.h"
#include "trace.h"

#include <QtCore/QPointer>
#include <QtCore/QTimer>

/**
 * A task of an application: what it was started with, when it is to run, and its process while it runs.
 */
class BackgroundTask : public QObject
{
    Q_OBJECT
public:
    enum State : uint { Stopped = 0, Running = 1, Waiting = 2 }; ///< as the bus counts

    BackgroundTask(const QString &applicationId, const TaskManifest &manifest, const Clock &clock, const Trace &trace,
                   QObject *parent = nullptr);

    const TaskManifest &manifest() const { return m_manifest; }
    /// The name by which it is started: "application.task_id".
    QString name() const;
    State state() const { return m_state; }
    /// The numbers and truths that it was started with. Not everything, which could be more than a message can hold.
    QVariantMap numbers() const;

    /// Has the task run at the times that the properties say. Not while it runs.
    void start(const QStringList &arguments, const QVariantMap &properties);
    /// Ends the process that runs, and plans no other.
    void stop(bool force);

Q_SIGNALS:
    void stateChanged();

private:
    void plan(const QDateTime &earliest);
    void check();
    void run();
    void onEnded(const QString &how);
    void setState(State state);
    QString socketPath() const;

    const QString m_applicationId;
    const TaskManifest m_manifest;
    const Clock &m_clock;
    const Trace &m_trace;

    QStringList m_arguments;
    QVariantMap m_properties;
    State m_state = Stopped;
    QPointer<ChildProcess> m_process;
    int m_runs = 0;
    QDateTime m_due; ///< when to run next; invalid if never
    QDateTime m_deadline; ///< when the process has to end; invalid if never
    QTimer m_timer;
};
