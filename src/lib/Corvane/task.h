// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "corvane_export.h"
#include "error.h"
#include "schedule.h"

#include <QtCore/QObject>
#include <QtCore/QStringList>
#include <QtCore/QVariantMap>

#include <functional>
#include <memory>

class QDebug;

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
 * Builders modify the description in place; start() sends the current description, and only properties that were set.
 * Numbers are sent unchanged and unchecked: the service defines units and ranges.
 *
 * Use all tasks of a process on one thread, normally the main thread; the thread needs a running event loop. The
 * constructor of the first task blocks until the bus has returned the owner of the service's name. No other function
 * blocks.
 *
 * See also docs/limits.md.
 */
class CORVANE_EXPORT Task : public QObject
{
    Q_OBJECT
public:
    /// The state of a task. The numbers differ from the service's codes.
    enum State : int {
        Unknown = 0, ///< The service has not announced a state yet, or announced an unknown one.
        Running = 1, ///< The process of the task is running.
        Stopped = 2, ///< The task does not run.
        Waiting = 3, ///< The task waits for its scheduled time.
    };
    /// Options of stop().
    enum StopFlag : int {
        Force = 0x1, ///< Do not wait until the task ends by itself.
    };
    /// A combination of StopFlag values.
    Q_DECLARE_FLAGS(StopFlags, StopFlag)

    /// Prints the name of the state, such as Corvane::Task::Running, or its number: Corvane::Task::State(7).
    friend CORVANE_EXPORT QDebug operator<<(QDebug debug, State state);
    /// Prints the name of the flag, such as Corvane::Task::Force, or its number.
    friend CORVANE_EXPORT QDebug operator<<(QDebug debug, StopFlag flag);
    /// Prints the flags as Qt does: QFlags<Corvane::Task::StopFlag>(Force).
    friend CORVANE_EXPORT QDebug operator<<(QDebug debug, StopFlags flags);

    /**
     * Creates an object for a task of this application. Messages to the service contain the qualified name of the task,
     * "<application>.task_<taskId>"; the constructor reads the application id from HALVIR_APP_ID. If the service has
     * already sent the states of all tasks, state() is up to date immediately.
     */
    explicit Task(const QString &taskId, QObject *parent = nullptr);
    /// Drops the callbacks of all calls in flight. Does not stop the task.
    ~Task() override;

    /// Returns the id of the constructor, unchanged.
    QString taskId() const;
    /// Returns the last announced state. Only the task id identifies the task in an announcement: a task of another
    /// application with the same id changes the state too.
    State state() const;
    /**
     * Returns the properties in the last announcement of this task. The service defines the keys. corvane-standin
     * announces "NextRun" and "LastRun" (ISO 8601 strings in UTC), "Runs" (their number), and "LastExitCode" or
     * "LastSignal". The properties do not contain the description of this object, unless the service repeats it. The
     * map is empty before the first announcement. Like state(), it stays as it is if a later announcement lacks the
     * task.
     *
     * The properties are up to date when stateChanged() is emitted. There is no signal for a change of the properties
     * alone; the function then returns the new properties.
     *
     * Basic types are those of D-Bus, such as int for i and uint for u. Other values are converted at each call: a map
     * becomes a QVariantMap, an array a QVariantList, and each number in them a qlonglong or a double; integers beyond
     * 2^53 may lose precision there. Object paths, signatures, file descriptors and structures become null; a structure
     * causes a warning.
     */
    QVariantMap properties() const;

    /// The arguments on the command line of the task's process; none if not set.
    Task &withArguments(const QStringList &arguments);
    /// The time of the first run. It is sent as an ISO 8601 string, without milliseconds.
    Task &withStartTime(const QDateTime &startTime);
    /// Whether the service creates a socket for TaskMessaging at socketPath().
    Task &withIpcSocket(bool create);
    /// The calendar rule of the task.
    Task &withSchedule(const Schedule &schedule);
    /// The priority of the task's process.
    Task &withPriority(int priority);
    /// Whether the task starts with the service.
    Task &withAutostart(bool autostart);
    /// The time from one run to the next.
    Task &withInterval(int interval);
    /// The time after which the service ends a run.
    Task &withMaximumRunningTime(int runningTime);
    /// The delay before the first run.
    Task &withStartDelay(int startDelay);

    QStringList arguments() const; ///< empty if not set
    QDateTime startTime() const; ///< invalid if not set
    bool hasIpcSocket() const; ///< false if not set
    Schedule schedule() const; ///< empty if not set
    int priority() const; ///< 0 if not set
    bool autostart() const; ///< false if not set
    int interval() const; ///< 0 if not set
    int maximumRunningTime() const; ///< 0 if not set
    int startDelay() const; ///< 0 if not set

    /**
     * Returns the path at which the service creates the socket of a task with withIpcSocket(true):
     * "applications/<application>/<taskId>.socket" in the user's runtime directory. The application id is
     * RuntimeDispatcher::applicationId(). Both ids are inserted unchanged. The function does not check that the socket
     * exists.
     */
    QString socketPath() const;

    /**
     * Asks the service to start the task with the current description. Success means that the service accepted the
     * request; it does not change state(), which follows the announcements of the service.
     *
     * Values that D-Bus cannot represent are omitted, with a warning; only a Schedule made of a map can contain them. A
     * description over the limits of the bus (see IntentsInvoker::invoke()) is not sent and fails with Error::Failed.
     *
     * \param callback is called once, later, from the event loop. It may be empty, and may delete the task. If the task
     * is deleted first, the callback is not called.
     */
    void start(const std::function<void(const Corvane::Error &)> &callback = {});
    /// Asks the service to stop the task. See start() for the meaning of success and for \a callback.
    void stop(QFlags<Task::StopFlag> flags = {}, const std::function<void(const Corvane::Error &)> &callback = {});

Q_SIGNALS:
    /**
     * Emitted when the service announces a state that differs from state(). A slot may delete the task. Queued
     * connections and QSignalSpy need registerMetaTypes().
     */
    void stateChanged(Task::State state);

private:
    const std::unique_ptr<TaskPrivate> d;
};

} // namespace Corvane

Q_DECLARE_OPERATORS_FOR_FLAGS(Corvane::Task::StopFlags)
