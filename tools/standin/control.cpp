// SPDX-License-Identifier: BSD-3-Clause
#include "control.h"

#include "status.h"

#include <Corvane/lifecycle.h>
#include <DBus/names.h>
#include <DBus/pending_call.h>

#include <QtCore/QJsonDocument>
#include <QtCore/QJsonObject>
#include <QtDBus/QDBusConnection>
#include <QtDBus/QDBusConnectionInterface>
#include <QtDBus/QDBusPendingReply>

namespace Names = Corvane::Names;

namespace {

const qlonglong LongestMove = 100LL * 366 * 86400 * 1000; // milliseconds

} // namespace

Control::Control(const Subjects &subjects, QObject *parent) : QObject(parent), m_subjects(subjects) { }

QString Control::GetStatus() const
{
    const StandInRecord &record = m_subjects.record;
    const QVariantMap status{{QStringLiteral("name"), record.name},
                             {QStringLiteral("processId"), int(record.processId)},
                             {QStringLiteral("directory"), record.directory},
                             {QStringLiteral("busAddress"), record.busAddress},
                             {QStringLiteral("now"), m_subjects.clock->now().toString(Qt::ISODate)},
                             {QStringLiteral("memoryLevel"), m_subjects.memoryPressure->level()},
                             {QStringLiteral("applications"), Status::ofApplications(m_subjects.applications)},
                             {QStringLiteral("tasks"), Status::ofTasks(m_subjects.tasks)}};
    return QString::fromUtf8(QJsonDocument(QJsonObject::fromVariantMap(status)).toJson(QJsonDocument::Compact));
}

void Control::SetMemoryLevel(int level)
{
    m_subjects.memoryPressure->setLevel(level);
}

void Control::FollowMemoryPressure()
{
    m_subjects.memoryPressure->follow();
}

QString Control::MoveClock(qlonglong milliseconds)
{
    const QDateTime then = m_subjects.clock->now().addMSecs(milliseconds);
    if (milliseconds < 0 || milliseconds > LongestMove || then.date().year() > 9999) {
        sendErrorReply(QDBusError::InvalidArgs,
                       QStringLiteral("The clock moves on, by at most 100 years at once, until "
                                      "the year 9999"));
        return {};
    }
    m_subjects.clock->moveOn(milliseconds);
    return m_subjects.clock->now().toString(Qt::ISODate);
}

QString Control::MoveClockTo(const QString &time)
{
    const QDateTime now = m_subjects.clock->now();
    const QDateTime then = Clock::read(time, now);
    if (then.isValid())
        return MoveClock(now.msecsTo(then));
    sendErrorReply(QDBusError::InvalidArgs,
                   QStringLiteral("Expected a time such as \"03:00\" or \"2030-12-24T18:00\", found \"%1\"").arg(time));
    return {};
}

void Control::ReloadManifests()
{
    const QStringList errors = m_subjects.manifests->reload();
    if (!errors.isEmpty())
        sendErrorReply(QDBusError::InvalidArgs, errors.join(QLatin1Char('\n')));
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

void Control::SetApplicationState(const QString &applicationId, uint state)
{
    Application *application = find(applicationId);
    if (!application)
        return;
    if (state != Corvane::ForegroundState && state != Corvane::BackgroundState && state != Corvane::SuspendedState) {
        sendErrorReply(QDBusError::InvalidArgs, QStringLiteral("The state %1 cannot be set").arg(state));
        return;
    }
    setDelayedReply(true);
    const QDBusMessage invocation = message();
    application->setState(state, [invocation](const QString &problem) {
        QDBusConnection::sessionBus().send(
            problem.isEmpty()
                ? invocation.createReply()
                : invocation.createErrorReply(Names::ErrorPrefix + QLatin1String("ApplicationNotRunning"), problem));
    });
}

void Control::StartMonitor()
{
    m_subjects.monitors->add(message().service());
}

Application *Control::find(const QString &applicationId)
{
    Application *application = m_subjects.applications.withId(applicationId);
    if (!application)
        sendErrorReply(QDBusError::InvalidArgs, QStringLiteral("No manifest has the id \"%1\"").arg(applicationId));
    return application;
}
