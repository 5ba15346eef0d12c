// SPDX-License-Identifier: BSD-3-Clause
#include "command_line.h"
#include "commands.h"
#include "output.h"
#include "session.h"
#include "watch.h"

#include <Corvane/task.h>

#include <QtCore/QCoreApplication>
#include <QtCore/QTimer>

using Corvane::Error;
using Corvane::Schedule;
using Corvane::Task;

namespace {

const char ApplicationId[] = "HALVIR_APP_ID";

/// Sets the application of the task, and checks that there is a service. A Task reads the variable when it is created.
Error prepare(const Invocation &invocation)
{
    if (invocation.has("app"))
        qputenv(ApplicationId, invocation.value("app").toUtf8());
    if (qEnvironmentVariableIsEmpty(ApplicationId))
        return {Error::InvalidArgs, QStringLiteral("The application of the task is unknown. Name it with: --app APP")};
    return Session::serviceError();
}

QList<int> integers(const QString &text)
{
    QList<int> numbers;
    const QStringList words = text.split(QLatin1Char(','));
    for (const QString &word : words)
        numbers.append(word.toInt());
    return numbers;
}

QDateTime date(const QString &text)
{
    return QDateTime::fromString(text, Qt::ISODate);
}

Schedule scheduleOf(const Invocation &invocation)
{
    Schedule schedule;
    if (invocation.has("months"))
        schedule.onMonths(integers(invocation.value("months")));
    if (invocation.has("week-days"))
        schedule.onWeekDays(integers(invocation.value("week-days")));
    if (invocation.has("hours"))
        schedule.onHours(integers(invocation.value("hours")));
    if (invocation.has("minutes"))
        schedule.onMinutes(integers(invocation.value("minutes")));
    if (invocation.has("since"))
        schedule.sinceDate(date(invocation.value("since")));
    if (invocation.has("till"))
        schedule.tillDate(date(invocation.value("till")));
    return schedule;
}

/// Sets the properties of the task that the command line contains.
void describe(const Invocation &invocation, const Schedule &schedule, Task *task)
{
    task->withArguments(invocation.rest);
    if (schedule != Schedule())
        task->withSchedule(schedule);
    if (invocation.has("start-time"))
        task->withStartTime(date(invocation.value("start-time")));
    if (invocation.has("ipc-socket"))
        task->withIpcSocket(true);
    if (invocation.has("priority"))
        task->withPriority(invocation.value("priority").toInt());
    if (invocation.has("autostart"))
        task->withAutostart(true);
    if (invocation.has("interval"))
        task->withInterval(invocation.value("interval").toInt());
    if (invocation.has("running-time"))
        task->withMaximumRunningTime(invocation.value("running-time").toInt());
    if (invocation.has("start-delay"))
        task->withStartDelay(invocation.value("start-delay").toInt());
}

/// Runs the event loop until the callback is called. Returns the exit code.
template<typename Call>
int finish(const Task &task, Call call)
{
    Error outcome;
    call([&outcome](const Error &error) {
        outcome = error;
        QCoreApplication::quit();
    });
    QCoreApplication::exec();
    if (outcome)
        return Output::fail(outcome);
    Output::printLine(QStringLiteral("The service has accepted the request."),
                      {{QStringLiteral("task"), task.taskId()},
                       {QStringLiteral("application"), qEnvironmentVariable(ApplicationId)}});
    return Error::NoError;
}

QJsonObject description(const Task &task)
{
    return {{QStringLiteral("task"), task.taskId()},
            {QStringLiteral("state"), Output::nameOf(task.state())},
            {QStringLiteral("properties"), QJsonObject::fromVariantMap(task.properties())}};
}

QString text(const QJsonValue &value)
{
    return value.isString() ? value.toString() : Output::jsonText(value);
}

} // namespace

int startTask(const Invocation &invocation)
{
    const Schedule schedule = scheduleOf(invocation);
    const QStringList problems = schedule.problems();
    if (!problems.isEmpty())
        return Output::fail({Error::InvalidArgs, problems.join(QStringLiteral("; "))});
    if (const Error error = prepare(invocation))
        return Output::fail(error);
    Task task(invocation.arguments.first());
    describe(invocation, schedule, &task);
    return finish(task, [&task](const auto &callback) { task.start(callback); });
}

int stopTask(const Invocation &invocation)
{
    if (const Error error = prepare(invocation))
        return Output::fail(error);
    Task task(invocation.arguments.first());
    const Task::StopFlags flags = invocation.has("force") ? Task::Force : Task::StopFlags();
    return finish(task, [&task, flags](const auto &callback) { task.stop(flags, callback); });
}

int showTask(const Invocation &invocation)
{
    if (const Error error = Session::serviceError())
        return Output::fail(error);
    const Task task(invocation.arguments.first());
    const double seconds = invocation.has("timeout") ? invocation.value("timeout").toDouble() : 1;
    QTimer::singleShot(std::chrono::milliseconds(qRound64(seconds * 1000)), QCoreApplication::instance(),
                       [] { QCoreApplication::quit(); });
    QObject::connect(&task, &Task::stateChanged, QCoreApplication::instance(), [] { QCoreApplication::quit(); });
    QCoreApplication::exec();
    if (task.state() == Task::Unknown)
        return Output::fail(
            {Error::Failed,
             QStringLiteral("The service has announced no state of the task \"%1\"").arg(task.taskId())});

    const QJsonObject object = description(task);
    QString lines = QStringLiteral("%1 %2").arg(Output::strong(task.taskId()), Output::nameOf(task.state()));
    const QJsonObject properties = object.value(QStringLiteral("properties")).toObject();
    for (auto property = properties.begin(); property != properties.end(); ++property)
        lines += QStringLiteral("\n  %1: %2").arg(property.key(), text(property.value()));
    Output::printLine(lines, object);
    return Error::NoError;
}

int watchTask(const Invocation &invocation)
{
    if (const Error error = Session::serviceError())
        return Output::fail(error);
    Watch watch(invocation);
    const Task task(invocation.arguments.first());
    QObject::connect(&task, &Task::stateChanged, QCoreApplication::instance(), [&watch, &task](Task::State state) {
        watch.print(QStringLiteral("%1 %2").arg(Output::strong(task.taskId()), Output::nameOf(state)),
                    description(task));
    });
    return watch.run(QStringLiteral("the task \"%1\"").arg(task.taskId()));
}
