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

Q_SIGNALS:
    void StateChanged(const QVector<Corvane::TaskState> &tasksState); ///< The adaptor sends it on the bus.

private:
    QVector<Corvane::TaskState> states() const;
    BackgroundTask *find(const QString &name);

    QVector<BackgroundTask *> m_list;
    const Trace &m_trace;
};
