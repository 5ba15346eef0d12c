// SPDX-License-Identifier: BSD-3-Clause
#include "meta_types.h"

#include "error.h"
#include "lifecycle.h"
#include "memory_pressure.h"
#include "task.h"
#include "task_messaging.h"

namespace Corvane {

void registerMetaTypes()
{
    // The names must be the type names in the meta-objects. moc does not resolve "State".
    qRegisterMetaType<Task::State>("Task::State");
    qRegisterMetaType<TaskMessaging::State>("State");
    qRegisterMetaType<ApplicationState>("ApplicationState");
    qRegisterMetaType<MemoryPressure::MemoryLevel>("MemoryLevel");
    qRegisterMetaType<Error>();
}

} // namespace Corvane
