// SPDX-License-Identifier: BSD-3-Clause
#include "session_bus.h"

#include <QtCore/QCoreApplication>

#include <atomic>
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

/// Waits until Qt's bus thread has handled the messages that it has, and the events that it then posted to itself.
void waitForBusThread(QDBusConnection bus)
{
    QObject receiver;
    for (int wait = 0; wait < 2; ++wait) // QtDBus disconnects in the bus thread, also if nothing is connected
        bus.disconnect({}, {}, {}, QStringLiteral("NameAcquired"), &receiver, SLOT(deleteLater()));
}

/**
 * Prevents a crash in QtDBus when the event loop starts.
 *
 * QtDBus keeps a list of the names of the connection. Each call searches the list, and Qt's bus thread adds a name
 * without a lock when the bus announces it: the process crashes if both happen at once. While the event loop runs, a
 * name is in the list before the claim returns. But if the main thread creates the connection, the bus thread stores
 * all messages until the main thread handles an event that QtDBus has posted to it. Then it adds all names claimed so
 * far. That event has been handled, or it is handled before the event that this function posts.
 */
void waitForNames(const QDBusConnection &bus)
{
    waitForBusThread(bus);
    if (qApp) // without an application, QtDBus stores no messages
        QMetaObject::invokeMethod(
            qApp, [bus] { waitForBusThread(bus); }, Qt::QueuedConnection);
}

} // namespace

QDBusConnection sessionBus()
{
    const QDBusConnection bus = QDBusConnection::sessionBus();
    if (void *const connection = bus.internalPointer()) { // null without a bus
        raiseLimits(connection);
        static std::atomic<void *> known = nullptr;
        if (known.exchange(connection) != connection)
            waitForNames(bus);
    }
    return bus;
}

} // namespace Corvane
