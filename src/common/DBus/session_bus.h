// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <QtDBus/QDBusConnection>

namespace Corvane {

/// Returns Qt's connection to the session bus. Raises the limits of libdbus for received messages first: at these
/// limits a process loses the bus. Also prevents a crash in QtDBus when the event loop starts. All code of the library
/// uses this function. A further call sets the same limits again, which costs little; the application may have replaced
/// the connection.
QDBusConnection sessionBus();

} // namespace Corvane
