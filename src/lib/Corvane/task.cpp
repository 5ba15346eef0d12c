// SPDX-License-Identifier: BSD-3-Clause
#include "task.h"
#include "task_p.h"

#include "error_p.h"
#include "runtime_dispatcher.h"
#include "tasks_interface_p.h"

#include <Core/environment.h>
#include <Core/task_names.h>
#include <DBus/keys.h>
#include <DBus/message_meter.h>
#include <DBus/pending_call.h>
#include <DBus/variants.h>

#include <QtCore/QPointer>

namespace Corvane {

namespace {

/// Converts the service's code of a state.
Task::State stateFromCode(quint32 code)
{
    switch (code) {
    case 0:
        return Task::Stopped;
    case 1:
        return Task::Running;
    case 2:
        return Task::Waiting;
    default:
        return Task::Unknown;
    }
}

} // namespace

TaskPrivate::TaskPrivate(const QString &id, Task *task)
    : taskId(id), qualifiedName(Core::qualifiedTaskName(Core::fromEnvironment(Core::Environment::ApplicationId), id)),
      q(task)
{
    TasksInterface *interface = TasksInterface::instance();
    // Not the emitted list: a newer list replaces it if an earlier receiver runs an event loop.
    QObject::connect(interface, &TasksInterface::stateChanged, q,
                     [this, interface] { updateState(interface->announcedStates(taskId)); });
    if (interface->statesKnown)
        updateState(interface->storedStates(taskId));
}

void TaskPrivate::updateState(const QVector<TaskState> &tasksState)
{
    const quint32 update = ++m_updates;
    for (const TaskState &taskState : tasksState) {
        if (taskState.taskId != taskId)
            continue;
        announcedProperties = taskState.properties;
        const Task::State newState = stateFromCode(taskState.state);
        if (newState == state)
            continue;
        state = newState;
        const QPointer<Task> task(q);
        Q_EMIT q->stateChanged(newState);
        if (!task || update != m_updates)
            return; // the task is deleted, or a newer list is applied
    }
}

void TaskPrivate::start(const std::function<void(const Error &)> &callback)
{
    Omissions omissions;
    const QVariantMap sent = sendable(properties, &omissions);
    MessageMeter meter;
    meter.add(omissions);
    meter.add(qualifiedName);
    meter.add(arguments);
    meter.add(sent);
    const Trace trace = Trace::begin("task start", qualifiedName, [&] {
        return Trace::Size{meter.bytes(), meter.descriptors()};
    });
    if (!meter.problem().isEmpty())
        return reportOutcome(refusedCall(meter.problem()), trace, callback);
    omissions.log();
    reportOutcome(TasksInterface::instance()->asyncCall(QStringLiteral("Start"), qualifiedName, arguments, sent), trace,
                  callback);
}

void TaskPrivate::stop(Task::StopFlags flags, const std::function<void(const Error &)> &callback)
{
    MessageMeter meter;
    meter.add(qualifiedName);
    const Trace trace = Trace::begin("task stop", qualifiedName, [&] { return Trace::Size{meter.bytes(), 0}; });
    reportOutcome(meter.problem().isEmpty() ? TasksInterface::instance()->asyncCall(
                      QStringLiteral("Stop"), qualifiedName, flags.testFlag(Task::Force))
                                            : refusedCall(meter.problem()),
                  trace, callback);
}

void TaskPrivate::reportOutcome(const QDBusPendingCall &call, const Trace &trace,
                                const std::function<void(const Error &)> &callback)
{
    onFinished(call, q, [trace, callback = callback](const QDBusPendingCall &reply) {
        const Error error = errorFromDBusError(reply.error());
        trace.end(error, [] { return Trace::Size(); });
        if (callback)
            callback(error);
    });
}

Task::Task(const QString &taskId, QObject *parent) : QObject(parent), d(std::make_unique<TaskPrivate>(taskId, this)) { }

Task::~Task() = default;

QString Task::taskId() const
{
    return d->taskId;
}

Task::State Task::state() const
{
    return d->state;
}

QVariantMap Task::properties() const
{
    return withoutBusTypes(d->announcedProperties);
}

Task &Task::withArguments(const QStringList &arguments)
{
    d->arguments = arguments;
    return *this;
}

Task &Task::withStartTime(const QDateTime &startTime)
{
    d->properties.insert(Keys::StartTime, startTime.toString(Qt::ISODate));
    return *this;
}

Task &Task::withIpcSocket(bool create)
{
    d->properties.insert(Keys::CreateIpcSocket, create);
    return *this;
}

Task &Task::withSchedule(const Schedule &schedule)
{
    d->properties.insert(Keys::Schedule, schedule.m_map);
    return *this;
}

Task &Task::withPriority(int priority)
{
    d->properties.insert(Keys::Priority, priority);
    return *this;
}

Task &Task::withAutostart(bool autostart)
{
    d->properties.insert(Keys::Autostart, autostart);
    return *this;
}

Task &Task::withInterval(int interval)
{
    d->properties.insert(Keys::Interval, interval);
    return *this;
}

Task &Task::withMaximumRunningTime(int runningTime)
{
    d->properties.insert(Keys::RunningTime, runningTime);
    return *this;
}

Task &Task::withStartDelay(int startDelay)
{
    d->properties.insert(Keys::StartDelay, startDelay);
    return *this;
}

QStringList Task::arguments() const
{
    return d->arguments;
}

QDateTime Task::startTime() const
{
    return QDateTime::fromString(d->properties.value(Keys::StartTime).toString(), Qt::ISODate);
}

bool Task::hasIpcSocket() const
{
    return d->properties.value(Keys::CreateIpcSocket).toBool();
}

Schedule Task::schedule() const
{
    return d->properties.value(Keys::Schedule).toMap();
}

int Task::priority() const
{
    return d->properties.value(Keys::Priority).toInt();
}

bool Task::autostart() const
{
    return d->properties.value(Keys::Autostart).toBool();
}

int Task::interval() const
{
    return d->properties.value(Keys::Interval).toInt();
}

int Task::maximumRunningTime() const
{
    return d->properties.value(Keys::RunningTime).toInt();
}

int Task::startDelay() const
{
    return d->properties.value(Keys::StartDelay).toInt();
}

QString Task::socketPath() const
{
    return Core::taskSocketPath(RuntimeDispatcher::instance()->applicationId(), d->taskId);
}

void Task::start(const std::function<void(const Corvane::Error &)> &callback)
{
    d->start(callback);
}

void Task::stop(QFlags<Task::StopFlag> flags, const std::function<void(const Corvane::Error &)> &callback)
{
    d->stop(flags, callback);
}

} // namespace Corvane
