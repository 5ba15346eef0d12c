// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <QtDBus/QDBusConnection>

namespace Corvane {

/// Returns Qt's connection to the session bus, with the limits of libdbus raised at which a process loses the bus
/// because of received messages. The library gets the connection nowhere else. A second call sets the same limits
/// again: it costs little, and an application may have replaced the connection.
QDBusConnection sessionBus();

} // namespace Corvane
