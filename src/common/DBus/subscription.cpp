// SPDX-License-Identifier: BSD-3-Clause
#include "subscription.h"

#include "names.h"
#include "session_bus.h"

namespace Corvane {

void subscribe(const QString &path, const QString &interface, const QString &member, const QString &signature,
               QObject *receiver, const char *slot)
{
    QDBusConnection bus = sessionBus();
    if (bus.isConnected()) // without a connection, Qt aborts the process when it asks for the owner of the name
        bus.connect(Names::ServiceRoot, path, interface, member, signature, receiver, slot);
}

} // namespace Corvane
