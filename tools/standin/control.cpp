// SPDX-License-Identifier: BSD-3-Clause
#include "control.h"

#include <DBus/names.h>
#include <DBus/pending_call.h>

#include <QtDBus/QDBusConnection>
#include <QtDBus/QDBusConnectionInterface>
#include <QtDBus/QDBusPendingReply>

namespace Names = Corvane::Names;

namespace {

const qlonglong LongestMove = 100LL * 366 * 86400 * 1000; // milliseconds

} // namespace

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
    const QDateTime then = m_clock->now().addMSecs(milliseconds);
    if (milliseconds < 0 || milliseconds > LongestMove || then.date().year() > 9999) {
        sendErrorReply(QDBusError::InvalidArgs,
                       QStringLiteral("The clock moves on, by at most 100 years at once, until "
                                      "the year 9999"));
        return {};
    }
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

QString Control::JoinApplication(const QString &applicationId)
{
    Application *application = find(applicationId);
    if (!application)
        return {};
    setDelayedReply(true);
    const QDBusMessage invocation = message();
    const auto onProcessId = [application, invocation](const QDBusPendingReply<uint> &processId) {
        const QString problem =
            processId.isError() ? processId.error().message() : application->join(pid_t(processId.value()));
        QDBusConnection::sessionBus().send(
            problem.isEmpty() ? invocation.createReply(application->instanceId())
                              : invocation.createErrorReply(
                                  Names::ErrorPrefix + QLatin1String("ApplicationAlreadyRunning"), problem));
    };
    Corvane::onFinished(QDBusConnection::sessionBus().interface()->asyncCall(
                            QStringLiteral("GetConnectionUnixProcessID"), invocation.service()),
                        this, onProcessId);
    return {};
}

Application *Control::find(const QString &applicationId)
{
    Application *application = m_applications.withId(applicationId);
    if (!application)
        sendErrorReply(QDBusError::InvalidArgs, QStringLiteral("No manifest has the id \"%1\"").arg(applicationId));
    return application;
}
