// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <DBus/types.h>

#include <QtCore/QHash>
#include <QtDBus/QDBusAbstractInterface>

namespace Corvane {

/// The service's object that runs tasks, and the states that it last told; one for the process, shared by all tasks.
class TasksInterface : public QDBusAbstractInterface
{
    Q_OBJECT
public:
    /// Made on first use, and never deleted.
    static TasksInterface *instance();

    TasksInterface();

    /// Announces each entry "State" of the reply to GetAll.
    void applyProperties(const QVariantMap &properties);

    /// The entries of this task in the list that stateChanged() has emitted last, in the same order.
    QVector<TaskState> announcedStates(const QString &taskId) const { return m_announcedById.value(taskId); }
    /// The part of tasksState that holds all entries of this task, in the same order. It may hold entries of others.
    QVector<TaskState> storedStates(const QString &taskId) const;

    QVector<TaskState> tasksState;
    bool statesKnown = false; ///< The service has answered what the states are; its signals do not count.

Q_SIGNALS:
    /// The service told the states of all tasks, whether they have changed or not.
    void stateChanged(QVector<TaskState> tasksState);

protected:
    // The base class would take each connection to a signal above for one to a signal of that name on the bus.
    void connectNotify(const QMetaMethod &) override { }
    void disconnectNotify(const QMetaMethod &) override { }

private Q_SLOTS:
    void onStateChanged(const QVector<TaskState> &tasksState);

private:
    void readStates();
    void indexStates(const QVector<TaskState> &announced);

    QVector<TaskState> m_announced;
    QHash<QString, QVector<TaskState>> m_announcedById; ///< Saves each task the walk through the states of all tasks.
};

} // namespace Corvane
