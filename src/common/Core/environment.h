// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <QtCore/QString>
#include <QtCore/QtGlobal>

namespace Core {

/// The variables that the service sets for each process that it starts.
namespace Environment {

inline constexpr char ApplicationId[] = "HALVIR_APP_ID";
inline constexpr char ApplicationInstanceId[] = "HALVIR_APP_INSTANCE_ID";
inline constexpr char TaskId[] = "HALVIR_TASK_ID"; // tasks only
inline constexpr char TaskSocket[] = "HALVIR_TASK_FD"; // tasks with a socket only

} // namespace Environment

/// Returns the value of an environment variable, decoded as UTF-8 in every locale. Empty if the variable is not set.
inline QString fromEnvironment(const char *name)
{
    return QString::fromUtf8(qgetenv(name).constData());
}

} // namespace Core
