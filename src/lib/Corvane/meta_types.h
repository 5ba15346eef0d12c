// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "corvane_export.h"

namespace Corvane {

/**
 * Registers the argument types of all signals of the library with Qt, once per process.
 *
 * Queued connections (to a receiver in another thread, or with Qt::QueuedConnection) and QSignalSpy need this
 * registration; direct connections do not. Only MemoryPressure registers its own type. Therefore call this function on
 * the main thread before you make a queued connection.
 *
 * The types are registered under the names in the signals: "Task::State", "State" for TaskMessaging::State,
 * "ApplicationState", "MemoryLevel" and "Corvane::Error". QVariant::toInt() returns the number of an enumerator.
 */
CORVANE_EXPORT void registerMetaTypes();

} // namespace Corvane
