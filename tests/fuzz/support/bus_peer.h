// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <QtCore/QCoreApplication>
#include <QtCore/QString>

#include <systemd/sd-bus.h>

#include <memory>

namespace Fuzz {

struct MessageRelease
{
    void operator()(sd_bus_message *message) const { sd_bus_message_unref(message); }
};
using Message = std::unique_ptr<sd_bus_message, MessageRelease>;

/// Ends the process if a call of sd-bus has failed.
int check(int result, const char *what);

/// Represents another process on the session bus. It has its own connection, by sd-bus, but runs in this process: its
/// functions read and write the connection directly.
class BusPeer
{
public:
    BusPeer();
    ~BusPeer();
    BusPeer(const BusPeer &) = delete;
    BusPeer &operator=(const BusPeer &) = delete;

    void own(const char *name);

    /// Waits for the next message that the bus itself has not sent. Ends the process after ten seconds without data.
    Message next();
    /// Waits for data to read. Ends the process after ten seconds.
    void wait();
    Message newSignal(const QString &path, const char *interface, const char *member);
    void send(sd_bus_message *message);

    sd_bus *bus = nullptr;
};

/// Returns the remaining values of the current container of a message as text. Entries of dictionaries are sorted, and
/// variants show their signature.
QString textOf(sd_bus_message *message);

/// Creates the QCoreApplication on the first call. Ends the process if it is not connected to a session bus.
void startApplication();

/// Runs the event loop until \a isDone returns true.
template<typename Predicate>
void runUntil(Predicate isDone)
{
    while (!isDone())
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
}

/// Waits until the library has handled all earlier messages of \a peer.
void settle(BusPeer &peer);

} // namespace Fuzz
