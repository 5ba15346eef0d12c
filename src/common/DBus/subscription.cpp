// SPDX-License-Identifier: BSD-3-Clause
#include "subscription.h"

#include "names.h"
#include "session_bus.h"

namespace Corvane {

void subscribe(const QString &path, const QString &interface, const QString &member, const QString &signature,
               QObject *receiver, const char *slot)
{
    QDBusConnection bus = sessionBus();
    // Without a connection, libdbus aborts the process when Qt's bus thread asks for the owner of the name. The time
    // until the bus thread notices that the bus has ended remains: about a tenth of a millisecond.
    if (bus.isConnected())
        bus.connect(Names::ServiceRoot, path, interface, member, signature, receiver, slot);
}

} // namespace Corvane
