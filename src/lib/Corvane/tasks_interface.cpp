// SPDX-License-Identifier: BSD-3-Clause
#include "tasks_interface_p.h"

#include <DBus/names.h>
#include <DBus/pending_call.h>
#include <DBus/session_bus.h>

#include <QtCore/QDebug>
#include <QtDBus/QDBusPendingReply>

namespace Corvane {

static bool operator==(const TaskState &left, const TaskState &right)
{
    return left.taskId == right.taskId && left.state == right.state && left.properties == right.properties;
}

namespace {

QVector<TaskState> toTaskStates(const QVariant &value)
{
    return isArgument(value, "a(sua{sv})") ? qdbus_cast<QVector<TaskState>>(value) : value.value<QVector<TaskState>>();
}

} // namespace

TasksInterface *TasksInterface::instance()
{
    static auto *const interface = new TasksInterface;
    return interface;
}

TasksInterface::TasksInterface()
    : QDBusAbstractInterface(Names::ServiceRoot, Names::Tasks.path(), Names::Tasks.interface, sessionBus(), nullptr)
{
    registerRecordTypes();
    // Before any task can connect, so that each task finds its part of the announced list.
    connect(this, &TasksInterface::stateChanged, this, &TasksInterface::indexStates);
    // With the signature given, a signal of another shape is not delivered, and so never demarshalled.
    connection().connect(service(), path(), interface(), QStringLiteral("StateChanged"), QStringLiteral("a(sua{sv})"),
                         this, SLOT(onStateChanged(QVector<TaskState>)));
    readStates();
}

QVector<TaskState> TasksInterface::storedStates(const QString &taskId) const
{
    const bool isIndexed = tasksState == m_announced; // quick, as both share their data unless somebody set one alone
    return isIndexed ? announcedStates(taskId) : tasksState;
}

void TasksInterface::readStates()
{
    onFinished(asyncCall(QStringLiteral("GetAll")), this, [this](const QDBusPendingReply<QVariantMap> &reply) {
        if (reply.isError()) {
            qWarning() << "Failed to get the Tasks interface properties" << reply.error();
            return;
        }
        applyProperties(reply.value());
        statesKnown = true;
    });
}

void TasksInterface::applyProperties(const QVariantMap &properties)
{
    const QString key = QStringLiteral("State");
    for (auto property = properties.find(key); property != properties.end() && property.key() == key; ++property)
        onStateChanged(toTaskStates(*property));
}

void TasksInterface::onStateChanged(const QVector<TaskState> &newStates)
{
    tasksState = newStates;
    Q_EMIT stateChanged(newStates);
}

void TasksInterface::indexStates(const QVector<TaskState> &announced)
{
    m_announced = announced;
    m_announcedById.clear();
    for (const TaskState &state : announced)
        m_announcedById[state.taskId].append(state);
}

} // namespace Corvane
