// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <DBus/types.h>

#include <QtCore/QHash>
#include <QtDBus/QDBusAbstractInterface>

namespace Corvane {

/// The proxy of the service's tasks interface, and the last received states. All tasks of the process share it.
class TasksInterface : public QDBusAbstractInterface
{
    Q_OBJECT
public:
    /// Created on first use, never deleted.
    static TasksInterface *instance();

    /// Makes the object of instance() read the states again. Has no effect before the first use.
    static void refresh();

    TasksInterface();

    /// Passes each entry "State" of the reply to GetAll to onStateChanged().
    void applyProperties(const QVariantMap &properties);

    /// Returns the entries of this task in the last emitted list, in the same order.
    QVector<TaskState> announcedStates(const QString &taskId) const { return m_announcedById.value(taskId); }
    /// Returns the entries of this task in tasksState, in the same order. The result may contain entries of other
    /// tasks.
    QVector<TaskState> storedStates(const QString &taskId) const;

    QVector<TaskState> tasksState;
    bool statesKnown = false; ///< GetAll succeeded. Signals do not change this flag.

Q_SIGNALS:
    /// Emitted for each list of the states of all tasks, changed or not.
    void stateChanged(QVector<TaskState> tasksState);

protected:
    // The base class would subscribe to a bus signal of the same name for each connection to a signal above.
    void connectNotify(const QMetaMethod &) override { }
    void disconnectNotify(const QMetaMethod &) override { }

private Q_SLOTS:
    void onStateChanged(const QVector<TaskState> &tasksState);

private:
    void readStates();
    void indexStates(const QVector<TaskState> &announced);

    QVector<TaskState> m_announced;
    QHash<QString, QVector<TaskState>> m_announcedById; ///< the same list by task id, so that no task searches it
};

} // namespace Corvane
