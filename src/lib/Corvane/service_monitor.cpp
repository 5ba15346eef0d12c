// SPDX-License-Identifier: BSD-3-Clause
#include "service_monitor.h"
#include "service_monitor_p.h"

#include "memory_pressure_p.h"
#include "tasks_interface_p.h"

#include <DBus/names.h>
#include <DBus/pending_call.h>
#include <DBus/session_bus.h>

#include <QtCore/QPointer>
#include <QtDBus/QDBusMessage>
#include <QtDBus/QDBusPendingReply>

namespace Corvane {

ServiceMonitorPrivate::ServiceMonitorPrivate(ServiceMonitor *serviceMonitor) : q(serviceMonitor)
{
    const QString bus = QStringLiteral("org.freedesktop.DBus");
    const QString busPath = QStringLiteral("/org/freedesktop/DBus");
    QDBusConnection connection = sessionBus();
    // A QDBusServiceWatcher would crash if a slot deletes the monitor: it emits a second signal afterwards.
    connection.connect(bus, busPath, bus, QStringLiteral("NameOwnerChanged"), {Names::ServiceRoot},
                       QStringLiteral("sss"), this, SLOT(onOwnerChanged(QString, QString, QString)));
    // libdbus itself sends this signal to its own process.
    connection.connect({}, QStringLiteral("/org/freedesktop/DBus/Local"), QStringLiteral("org.freedesktop.DBus.Local"),
                       QStringLiteral("Disconnected"), this, SLOT(onBusLost()));

    QDBusMessage call = QDBusMessage::createMethodCall(bus, busPath, bus, QStringLiteral("GetNameOwner"));
    call << QString(Names::ServiceRoot);
    onFinished(connection.asyncCall(call), this, [this](const QDBusPendingReply<QString> &reply) {
        // The signals report all changes since the call. After one of them, the reply is not needed, and may be
        // outdated.
        if (m_updates == 0 && !reply.isError())
            setOwner(reply.value());
    });
}

void ServiceMonitorPrivate::onOwnerChanged(const QString &, const QString &, const QString &newOwner)
{
    setOwner(newOwner);
}

void ServiceMonitorPrivate::onBusLost()
{
    setOwner({});
}

void ServiceMonitorPrivate::setOwner(const QString &newOwner)
{
    const quint32 update = ++m_updates;
    const QPointer<ServiceMonitorPrivate> self(this);
    if (!owner.isEmpty()) {
        owner.clear();
        since = {};
        Q_EMIT q->availableChanged(false);
        if (!self || update != m_updates)
            return; // the monitor is deleted, or a newer owner is known
    }
    if (!newOwner.isEmpty()) {
        owner = newOwner;
        since = QDateTime::currentDateTimeUtc();
        Q_EMIT q->availableChanged(true);
    }
}

ServiceMonitor::ServiceMonitor(QObject *parent) : QObject(parent), d(std::make_unique<ServiceMonitorPrivate>(this)) { }

ServiceMonitor::~ServiceMonitor() = default;

bool ServiceMonitor::isAvailable() const
{
    return !d->owner.isEmpty();
}

QDateTime ServiceMonitor::availableSince() const
{
    return d->since;
}

void ServiceMonitor::refresh()
{
    if (!isAvailable())
        return;
    MemoryPressurePrivate::refresh();
    TasksInterface::refresh();
}

} // namespace Corvane
