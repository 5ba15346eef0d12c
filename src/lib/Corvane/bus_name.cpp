// SPDX-License-Identifier: BSD-3-Clause
#include "bus_name_p.h"

#include "error_p.h"

#include <DBus/session_bus.h>

#include <QtDBus/QDBusError>

namespace Corvane {

Error claimBusName(const QString &name)
{
    QDBusConnection bus = sessionBus();
    if (bus.registerService(name))
        return {};
    const Error error = errorFromDBusError(bus.lastError());
    if (error)
        return error;
    return {Error::Failed,
            bus.isConnected() ? QStringLiteral("The bus name %1 is taken").arg(name)
                              : QStringLiteral("Not connected to the session bus")};
}

Error releaseBusName(const QString &name)
{
    QDBusConnection bus = sessionBus();
    return bus.unregisterService(name) ? Error() : errorFromDBusError(bus.lastError());
}

} // namespace Corvane
