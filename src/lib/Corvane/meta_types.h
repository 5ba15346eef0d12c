// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "corvane_export.h"

namespace Corvane {

/**
 * Registers the argument types of all signals of the library with Qt, once for the process.
 *
 * Direct connections need no registration. A queued connection does: one to a receiver in another thread, or one with
 * Qt::QueuedConnection. So does QSignalSpy, to keep the arguments. The classes do not register the types themselves;
 * call this function before such a connection is made.
 *
 * The types are registered under the names that the signals use: "Task::State", "State" for TaskMessaging::State,
 * "ApplicationState", "MemoryLevel" and "Corvane::Error". QVariant::toInt() returns the number of an enumerator.
 *
 * Call it on the main thread.
 */
CORVANE_EXPORT void registerMetaTypes();

} // namespace Corvane
