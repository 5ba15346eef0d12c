// SPDX-License-Identifier: BSD-3-Clause
#include "session_bus.h"

#include <climits>

#include <dlfcn.h>

namespace Corvane {

namespace {

constexpr long MaxReceivedDescriptors = 253; // in one message; the kernel's SCM_MAX_FD

/// Calls a function of libdbus that sets a limit of a connection.
void setLimit(void *libdbus, const char *function, void *connection, long limit)
{
    if (const auto set = reinterpret_cast<void (*)(void *, long)>(::dlsym(libdbus, function)))
        set(connection, limit);
}

/**
 * Raises the limits of \a connection, a DBusConnection.
 *
 * - The total size and the total number of file descriptors of the received messages that still exist. A QDBusArgument
 *   keeps its message alive. At the limit libdbus stops reading, and resumes when a message is released. That happens
 *   in the application's thread, where Qt cannot enable the socket notifier of its bus thread: nothing more is read.
 * - The number of file descriptors in one received message. libdbus closes the connection at a message with more, and
 *   some buses forward such messages.
 *
 * The functions are looked up at run time in the libdbus that QtDBus has loaded, because the library links only Qt, and
 * because Qt itself may load libdbus at run time. QtDBus initializes the threads of libdbus, whose functions then lock
 * the connection against Qt's bus thread.
 */
void raiseLimits(void *connection)
{
    void *const libdbus = ::dlopen("libdbus-1.so.3", RTLD_LAZY | RTLD_NOLOAD);
    if (!libdbus)
        return;
    setLimit(libdbus, "dbus_connection_set_max_received_size", connection, LONG_MAX);
    setLimit(libdbus, "dbus_connection_set_max_received_unix_fds", connection, LONG_MAX);
    setLimit(libdbus, "dbus_connection_set_max_message_unix_fds", connection, MaxReceivedDescriptors);
    ::dlclose(libdbus); // QtDBus keeps it loaded
}

} // namespace

QDBusConnection sessionBus()
{
    const QDBusConnection bus = QDBusConnection::sessionBus();
    if (void *const connection = bus.internalPointer()) // null without a bus
        raiseLimits(connection);
    return bus;
}

} // namespace Corvane
