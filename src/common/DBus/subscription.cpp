// SPDX-License-Identifier: BSD-3-Clause
#include "subscription.h"

#include "names.h"

#include <QtDBus/QDBusConnection>

namespace Corvane {

void subscribe(const QString &path, const QString &interface, const QString &member, const QString &signature,
               QObject *receiver, const char *slot)
{
    QDBusConnection::sessionBus().connect(Names::ServiceRoot, path, interface, member, signature, receiver, slot);
}

} // namespace Corvane
