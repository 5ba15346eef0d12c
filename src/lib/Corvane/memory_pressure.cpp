// SPDX-License-Identifier: BSD-3-Clause
#include "memory_pressure.h"
#include "memory_pressure_p.h"

#include <DBus/keys.h>
#include <DBus/names.h>
#include <DBus/pending_call.h>
#include <DBus/session_bus.h>
#include <DBus/subscription.h>
#include <DBus/types.h>

#include <QtCore/QDebug>
#include <QtCore/QPointer>
#include <QtDBus/QDBusPendingReply>

namespace Corvane {

namespace {

/// The private object of MemoryPressure::instance(), or null before the first use and after the deletion.
QPointer<MemoryPressurePrivate> &existing()
{
    static QPointer<MemoryPressurePrivate> pointer;
    return pointer;
}

} // namespace

MemoryPressurePrivate::MemoryPressurePrivate(MemoryPressure *memoryPressure)
    : QDBusAbstractInterface(Names::ServiceRoot, Names::MemoryPressure.path(), Names::MemoryPressure.interface,
                             sessionBus(), nullptr),
      q(memoryPressure)
{
    registerRecordTypes();
    Corvane::subscribe(path(), Names::Properties, QStringLiteral("PropertiesChanged"), QStringLiteral("sa{sv}as"), this,
                       SLOT(onPropertiesChanged(QString, QVariantMap, QStringList)));
    subscribe();
    readLevel();
}

void MemoryPressurePrivate::refresh()
{
    if (MemoryPressurePrivate *const memoryPressure = existing()) {
        memoryPressure->subscribe();
        memoryPressure->readLevel();
    }
}

void MemoryPressurePrivate::subscribe()
{
    onFinished(asyncCall(QStringLiteral("Subscribe")), this, [](const QDBusPendingCall &reply) {
        if (reply.isError())
            qWarning() << "MemoryPressure subscription failed:" << reply.error();
    });
}

void MemoryPressurePrivate::readLevel()
{
    QDBusMessage call = QDBusMessage::createMethodCall(service(), path(), Names::Properties, QStringLiteral("GetAll"));
    call << interface();
    onFinished(connection().asyncCall(call), this, [this](const QDBusPendingReply<QVariantMap> &reply) {
        if (reply.isError())
            qWarning() << "Failed to get memory level:" << reply.error();
        else
            updateLevel(reply.value());
    });
}

void MemoryPressurePrivate::onPropertiesChanged(const QString &, const QVariantMap &changed, const QStringList &)
{
    updateLevel(changed);
}

void MemoryPressurePrivate::updateLevel(const QVariantMap &properties)
{
    const QPointer<MemoryPressurePrivate> self(this);
    for (auto property = properties.find(Keys::Level); property != properties.end() && property.key() == Keys::Level;
         ++property) {
        const int newLevel = property->toInt();
        if (newLevel == level)
            continue;
        level = newLevel;
        Q_EMIT q->levelChanged(MemoryPressure::MemoryLevel(newLevel));
        if (!self)
            return;
    }
}

MemoryPressure *MemoryPressure::instance()
{
    static MemoryPressure *memoryPressure = nullptr;
    if (!memoryPressure)
        memoryPressure = new MemoryPressure;
    return memoryPressure;
}

MemoryPressure::MemoryPressure() : d(std::make_unique<MemoryPressurePrivate>(this))
{
    existing() = d.get();
    qRegisterMetaType<MemoryLevel>("MemoryLevel"); // the name in the signal; queued connections need it
}

MemoryPressure::~MemoryPressure() = default;

MemoryPressure::MemoryLevel MemoryPressure::level() const
{
    return MemoryLevel(d->level);
}

} // namespace Corvane
