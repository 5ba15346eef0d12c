// SPDX-License-Identifier: BSD-3-Clause
#include "tasks_interface_p.h"

#include <DBus/names.h>
#include <DBus/pending_call.h>

#include <QtCore/QDebug>
#include <QtDBus/QDBusPendingReply>

namespace Corvane {

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
    : QDBusAbstractInterface(Names::ServiceRoot, Names::Tasks.path(), Names::Tasks.interface,
                             QDBusConnection::sessionBus(), nullptr)
{
    registerRecordTypes();
    // With the signature given, a signal of another shape is not delivered, and so never demarshalled.
    connection().connect(service(), path(), interface(), QStringLiteral("StateChanged"), QStringLiteral("a(sua{sv})"),
                         this, SLOT(onStateChanged(QVector<TaskState>)));
    readStates();
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
    const auto state = properties.find(QStringLiteral("State"));
    if (state != properties.end())
        onStateChanged(toTaskStates(*state));
}

void TasksInterface::onStateChanged(const QVector<TaskState> &newStates)
{
    tasksState = newStates;
    m_statesById.clear();
    for (const TaskState &state : newStates)
        m_statesById[state.taskId].append(state);
    Q_EMIT stateChanged(newStates);
}

} // namespace Corvane
