// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "background_task.h"

#include <DBus/types.h>

#include <QtDBus/QDBusContext>

/// The object "Tasks1": it runs the tasks of the applications. The adaptor calls its members.
class Tasks : public QObject, protected QDBusContext
{
    Q_OBJECT
public:
    Tasks(const QVector<Manifest> &manifests, const Clock &clock, const Trace &trace, QObject *parent = nullptr);

    QVariantMap GetAll() const;
    void Start(const QString &name, const QStringList &arguments, const QVariantMap &properties);
    void Stop(const QString &name, bool force);

    /// Starts the tasks with the property "Autostart" in their manifest.
    void startAutomatic();

    /// Adds the new tasks, changes the existing ones, and removes the others. Starts new tasks with "Autostart".
    void setManifests(const QVector<Manifest> &manifests);

    /// All that have a manifest or are running.
    QVector<BackgroundTask *> all() const;

Q_SIGNALS:
    void StateChanged(const QVector<Corvane::TaskState> &tasksState); ///< The adaptor sends it on the bus.

private:
    QVector<Corvane::TaskState> states() const;
    BackgroundTask *find(const QString &name);

    BackgroundTask *add(const QString &applicationId, const TaskManifest &manifest);
    void startAutomatic(BackgroundTask *task);

    const Clock &m_clock;
    QVector<BackgroundTask *> m_list;
    const Trace &m_trace;
};
