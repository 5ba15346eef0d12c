// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <QtCore/QStandardPaths>
#include <QtCore/QString>

namespace Core {

/// Returns the name of a task on the bus: "application.task_id".
inline QString qualifiedTaskName(const QString &applicationId, const QString &taskId)
{
    return applicationId + QLatin1String(".task_") + taskId;
}

/// Returns the path of the socket between a task and its application. The file does not have to exist.
inline QString taskSocketPath(const QString &applicationId, const QString &taskId)
{
    // One arg() call for each value: a "%3" in the runtime directory is replaced by the task id.
    return QStringLiteral("%1/applications/%2/%3.socket")
        .arg(QStandardPaths::writableLocation(QStandardPaths::RuntimeLocation))
        .arg(applicationId) // clazy:exclude=qstring-arg
        .arg(taskId);
}

} // namespace Core
