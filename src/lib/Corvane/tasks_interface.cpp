// SPDX-License-Identifier: BSD-3-Clause
#include "tasks_interface_p.h"

#include <DBus/keys.h>
#include <DBus/names.h>
#include <DBus/pending_call.h>
#include <DBus/session_bus.h>
#include <DBus/subscription.h>
#include <DBus/variants.h>

#include <QtCore/QDebug>
#include <QtDBus/QDBusPendingReply>

namespace Corvane {

static bool operator==(const TaskState &left, const TaskState &right)
{
    return left.taskId == right.taskId && left.state == right.state && left.properties == right.properties;
}

static TasksInterface *existing = nullptr;

TasksInterface *TasksInterface::instance()
{
    if (!existing)
        existing = new TasksInterface;
    return existing;
}

void TasksInterface::refresh()
{
    if (existing)
        existing->readStates();
}

TasksInterface::TasksInterface()
    : QDBusAbstractInterface(Names::ServiceRoot, Names::Tasks.path(), Names::Tasks.interface, sessionBus(), nullptr)
{
    registerRecordTypes();
    // The first connection: the index is current when the tasks receive the signal.
    connect(this, &TasksInterface::stateChanged, this, &TasksInterface::indexStates);
    subscribe(path(), interface(), QStringLiteral("StateChanged"), QStringLiteral("a(sua{sv})"), this,
              SLOT(onStateChanged(QVector<TaskState>)));
    readStates();
}

QVector<TaskState> TasksInterface::storedStates(const QString &taskId) const
{
    const bool isIndexed = tasksState == m_announced; // fast: both usually share their data
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
    for (auto property = properties.find(Keys::State); property != properties.end() && property.key() == Keys::State;
         ++property)
        onStateChanged(fromBus<QVector<TaskState>>(*property));
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
