// SPDX-License-Identifier: BSD-3-Clause
#include "lifecycle.h"
#include "lifecycle_p.h"

#include "bus_name_p.h"

#include <Core/environment.h>
#include <DBus/names.h>
#include <DBus/session_bus.h>

namespace Corvane {

namespace {

QString instanceId()
{
    return Core::fromEnvironment("HALVIR_APP_INSTANCE_ID");
}

} // namespace

LifecyclePrivate::LifecyclePrivate(Lifecycle *lifecycle) : q(lifecycle)
{
    // With the signature given, a signal of another shape is not delivered, and so never demarshalled.
    sessionBus().connect(Names::ServiceRoot, Names::Lifecycle.path(), QLatin1String(Names::Lifecycle.interface),
                         QStringLiteral("StateChanged"), QStringLiteral("su"), this,
                         SLOT(onStateChanged(QString, quint32)));
}

void LifecyclePrivate::onStateChanged(const QString &appInstanceId, const quint32 &state)
{
    Q_EMIT q->stateChanged(appInstanceId, ApplicationState(state));
}

Lifecycle *Lifecycle::instance()
{
    static auto *const lifecycle = new Lifecycle;
    return lifecycle;
}

Lifecycle::Lifecycle() : d(std::make_unique<LifecyclePrivate>(this)) { }

Lifecycle::~Lifecycle() = default;

Error Lifecycle::startService()
{
    return claimBusName(instanceId());
}

Error Lifecycle::stopService()
{
    return releaseBusName(instanceId());
}

} // namespace Corvane
