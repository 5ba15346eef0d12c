// SPDX-License-Identifier: BSD-3-Clause
#include "control.h"

#include <DBus/names.h>

#include <QtDBus/QDBusConnection>

namespace Names = Corvane::Names;

Control::Control(const Applications &applications, MemoryPressure *memoryPressure, Clock *clock, QObject *parent)
    : QObject(parent), m_applications(applications), m_memoryPressure(memoryPressure), m_clock(clock)
{ }

void Control::SetMemoryLevel(int level)
{
    m_memoryPressure->setLevel(level);
}

void Control::FollowMemoryPressure()
{
    m_memoryPressure->follow();
}

QString Control::MoveClock(qlonglong milliseconds)
{
    m_clock->moveOn(milliseconds);
    return m_clock->now().toString(Qt::ISODate);
}

QString Control::StartApplication(const QString &applicationId)
{
    Application *application = find(applicationId);
    if (!application)
        return {};
    setDelayedReply(true);
    const QDBusMessage invocation = message();
    application->whenReady([application, invocation](const QString &problem) {
        QDBusConnection::sessionBus().send(
            problem.isEmpty()
                ? invocation.createReply(application->instanceId())
                : invocation.createErrorReply(Names::ErrorPrefix + QLatin1String("ApplicationNotRunning"), problem));
    });
    return {};
}

void Control::StopApplication(const QString &applicationId)
{
    Application *application = find(applicationId);
    if (!application)
        return;
    setDelayedReply(true);
    const QDBusMessage invocation = message();
    application->stop([invocation] { QDBusConnection::sessionBus().send(invocation.createReply()); });
}

Application *Control::find(const QString &applicationId)
{
    Application *application = m_applications.withId(applicationId);
    if (!application)
        sendErrorReply(QDBusError::InvalidArgs, QStringLiteral("No manifest has the id \"%1\"").arg(applicationId));
    return application;
}
