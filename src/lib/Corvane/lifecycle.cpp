// SPDX-License-Identifier: BSD-3-Clause
#include "lifecycle.h"
#include "lifecycle_p.h"

#include "bus_name_p.h"

#include <Core/environment.h>
#include <DBus/names.h>
#include <DBus/subscription.h>

namespace Corvane {

namespace {

QString instanceId()
{
    return Core::fromEnvironment(Core::Environment::ApplicationInstanceId);
}

} // namespace

LifecyclePrivate::LifecyclePrivate(Lifecycle *lifecycle) : q(lifecycle)
{
    subscribe(Names::Lifecycle.path(), QLatin1String(Names::Lifecycle.interface), QStringLiteral("StateChanged"),
              QStringLiteral("su"), this, SLOT(onStateChanged(QString, quint32)));
}

Error LifecyclePrivate::startService()
{
    return claimBusName(instanceId());
}

Error LifecyclePrivate::stopService()
{
    return releaseBusName(instanceId());
}

void LifecyclePrivate::onStateChanged(const QString &appInstanceId, const quint32 &state)
{
    Q_EMIT q->stateChanged(appInstanceId, ApplicationState(state));
}

Lifecycle *Lifecycle::instance()
{
    static Lifecycle *lifecycle = nullptr;
    if (!lifecycle)
        lifecycle = new Lifecycle;
    return lifecycle;
}

Lifecycle::Lifecycle() : d(std::make_unique<LifecyclePrivate>(this)) { }

Lifecycle::~Lifecycle() = default;

Error Lifecycle::startService()
{
    return d->startService();
}

Error Lifecycle::stopService()
{
    return d->stopService();
}

} // namespace Corvane
