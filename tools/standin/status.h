// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "applications.h"
#include "tasks.h"

#include <QtCore/QJsonObject>
#include <QtCore/QVariantMap>

/// The applications and tasks as GetStatus of the interface StandIn1 returns them.
namespace Status {

QVariantList ofApplications(const Applications &applications);
QVariantList ofTasks(const Tasks &tasks);

/// Returns the result of GetStatus as a text for people.
QString text(const QJsonObject &status);

} // namespace Status
