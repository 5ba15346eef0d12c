// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "task.h"
#include "trace_p.h"

#include <DBus/types.h>

#include <QtDBus/QDBusPendingCall>

namespace Corvane {

class TaskPrivate
{
public:
    TaskPrivate(const QString &taskId, Task *q);

    /// Applies the entries of this task, in order. If a receiver causes another call, the rest of the list is dropped.
    void updateState(const QVector<TaskState> &tasksState);
    void start(const std::function<void(const Error &)> &callback);
    void stop(Task::StopFlags flags, const std::function<void(const Error &)> &callback);

    Task::State state = Task::Unknown;
    const QString taskId;
    const QString qualifiedName; ///< the name of the task on the bus
    QStringList arguments;
    QVariantMap properties;
    Task *const q;
    QVariantMap announcedProperties; ///< of the last applied entry, as received

private:
    void reportOutcome(const QDBusPendingCall &call, const Trace &trace,
                       const std::function<void(const Error &)> &callback);

    quint32 m_updates = 0; ///< the number of calls of updateState()
};

} // namespace Corvane
