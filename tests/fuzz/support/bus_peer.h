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

/// Another process on the session bus, as far as the library can tell: a connection of its own, by sd-bus. It is served
/// on the only thread, between turns of the event loop.
class BusPeer
{
public:
    BusPeer();
    ~BusPeer();
    BusPeer(const BusPeer &) = delete;
    BusPeer &operator=(const BusPeer &) = delete;

    void own(const char *name);

    /// Waits for the next message that does not come from the bus itself. None for ten seconds ends the process.
    Message next();
    /// Waits for something to read, as long.
    void wait();
    Message newSignal(const QString &path, const char *interface, const char *member);
    void send(sd_bus_message *message);

    sd_bus *bus = nullptr;
};

/// The values of a message from where it is read to the end of what it is in, as text. Entries of dictionaries are
/// sorted, and variants have their signature.
QString textOf(sd_bus_message *message);

/// Makes the QCoreApplication, once, and sees that it has a connection to the bus.
void startApplication();

/// Runs the event loop until \a isDone.
template<typename Predicate>
void runUntil(Predicate isDone)
{
    while (!isDone())
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
}

/// Waits until this process has got, and dealt with, all that \a peer has sent.
void settle(BusPeer &peer);

} // namespace Fuzz
