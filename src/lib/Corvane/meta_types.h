// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "corvane_export.h"

namespace Corvane {

/**
 * Registers the argument types of all signals of the library with Qt, once per process.
 *
 * Direct connections need no registration. Queued connections (to a receiver in another thread, or with
 * Qt::QueuedConnection) and QSignalSpy do. Of the classes, only MemoryPressure registers its own type; therefore call
 * this function before you make such a connection. Call it on the main thread.
 *
 * The types are registered under the names in the signals: "Task::State", "State" for TaskMessaging::State,
 * "ApplicationState", "MemoryLevel" and "Corvane::Error". QVariant::toInt() returns the number of an enumerator.
 */
CORVANE_EXPORT void registerMetaTypes();

} // namespace Corvane
