// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "corvane_export.h"
#include "error.h"
#include "schedule.h"

#include <QtCore/QObject>
#include <QtCore/QStringList>

#include <functional>
#include <memory>

namespace Corvane {

class TaskPrivate;

/**
 * A background task of this application: its description, its control and its state.
 *
 * \code
 * auto *sync = new Corvane::Task(QStringLiteral("sync"), this);
 * sync->withInterval(3600).withArguments({QStringLiteral("--all")});
 * connect(sync, &Corvane::Task::stateChanged, this, &Window::showState);
 * sync->start([](const Corvane::Error &error) { qInfo() << "started:" << error.message(); });
 * \endcode
 *
 * Builders change the description in place; start() sends it as it is at that moment, and only what was set. Numbers
 * travel unchanged and unchecked: units and ranges are the service's.
 *
 * Use all tasks of a process on one thread, normally the main thread, which needs a running event loop. The first task
 * asks the bus once, blocking, who owns the service's name; nothing else here blocks.
 */
class CORVANE_EXPORT Task : public QObject
{
    Q_OBJECT
public:
    /// What the service says of the task. The numbers are ours; the service counts differently.
    enum State : int {
        Unknown = 0, ///< It has not said anything yet, or what has no name here.
        Running = 1,
        Stopped = 2,
        Waiting = 3, ///< It will run, at its time.
    };
    enum StopFlag : int {
        Force = 0x1, ///< Do not wait until the task ends by itself.
    };
    Q_DECLARE_FLAGS(StopFlags, StopFlag)

    /**
     * A task of this application (HALVIR_APP_ID, read now), which the service knows as "<application>.task_<taskId>".
     * Its state is known at once if the service has told the states of all tasks before.
     */
    explicit Task(const QString &taskId, QObject *parent = nullptr);
    /// Drops the outcomes of start() and stop() that have not come yet. The task itself goes on.
    ~Task() override;

    QString taskId() const;
    /// What was last heard. The service's tasks are told apart by their ids alone, whatever application they belong to.
    State state() const;

    /// The command line of the task's process; empty if not set.
    Task &withArguments(const QStringList &arguments);
    /// When to run first. Travels as an ISO 8601 text, to the second.
    Task &withStartTime(const QDateTime &startTime);
    /// Whether the service is to make a socket for TaskMessaging, at socketPath().
    Task &withIpcSocket(bool create);
    Task &withSchedule(const Schedule &schedule);
    Task &withPriority(int priority);
    /// Whether the task is to start with the service.
    Task &withAutostart(bool autostart);
    /// How long from one run to the next.
    Task &withInterval(int interval);
    /// After how long a run is ended.
    Task &withMaximumRunningTime(int runningTime);
    /// How long to wait before the first run.
    Task &withStartDelay(int startDelay);

    QStringList arguments() const;
    QDateTime startTime() const; ///< invalid if not set
    bool hasIpcSocket() const; ///< false if not set
    Schedule schedule() const; ///< one that says nothing if not set
    int priority() const; ///< 0 if not set
    bool autostart() const; ///< false if not set
    int interval() const; ///< 0 if not set
    int maximumRunningTime() const; ///< 0 if not set
    int startDelay() const; ///< 0 if not set

    /**
     * Where the service makes the socket of a task that wants one: "applications/<application>/<taskId>.socket" in the
     * user's directory for runtime files, the application being RuntimeDispatcher::applicationId(). Nothing is looked
     * up: neither need the socket be there, nor the task want one.
     */
    QString socketPath() const;

    /**
     * Asks the service to start the task as it is described now. Success means that it took the request; state()
     * follows its announcements. Values that D-Bus cannot carry, which only a Schedule made of a map can hold, are left
     * out with a warning; a description that the bus would not let pass fails with Error::Failed and is not sent.
     *
     * \param callback runs once, later, from the event loop; may be empty; dropped if the task is deleted first. It may
     * delete the task.
     */
    void start(const std::function<void(const Corvane::Error &)> &callback = {});
    /// Asks the service to stop the task. For success and \a callback see start().
    void stop(QFlags<Task::StopFlag> flags = {}, const std::function<void(const Corvane::Error &)> &callback = {});

Q_SIGNALS:
    /**
     * The service announced another state than the last one. The task may be deleted in here. A queued connection and
     * QSignalSpy need registerMetaTypes().
     */
    void stateChanged(Task::State state);

private:
    const std::unique_ptr<TaskPrivate> d;
};

} // namespace Corvane

Q_DECLARE_OPERATORS_FOR_FLAGS(Corvane::Task::StopFlags)
