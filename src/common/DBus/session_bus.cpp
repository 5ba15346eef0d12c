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
 * - Size and number of descriptors of the received messages that are in use. A QDBusArgument keeps its message in use.
 *   At the limit libdbus pauses reading, and resumes when a message is released. That happens in the application's
 *   thread, where Qt cannot enable the socket notifier of its bus thread: nothing is read from then on.
 * - Descriptors in one received message. libdbus closes the connection on more. Some buses forward such messages.
 *
 * libdbus is loaded already, by QtDBus. It is looked up at run time because the library depends on Qt alone, and
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
