// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "corvane_export.h"

#include <QtCore/QObject>
#include <QtCore/QString>

#include <chrono>
#include <memory>

namespace Corvane {

class TaskMessaging;
class TaskProcessPrivate;

/**
 * The process of a background task: its id, its channel to the application, the request to stop, and its end.
 *
 * \code
 * QCoreApplication application(argc, argv);
 * Corvane::TaskProcess process;
 * QObject::connect(&process, &Corvane::TaskProcess::clientConnected, &process,
 *                  [&process] { process.messaging()->sendMessage({{QStringLiteral("progress"), 0}}); });
 * QObject::connect(&process, &Corvane::TaskProcess::stopRequested, &process, [&process] {
 *     saveProgress();
 *     process.finish();
 * });
 * return application.exec();
 * \endcode
 *
 * Create one object, on the main thread, after the QCoreApplication. It may be used in any program; outside of a task,
 * it has no id and no channel. A second object logs a warning, has no channel and does not handle SIGTERM; the first
 * one continues to work. The signals are emitted from the event loop. A slot may delete the object.
 *
 * While the object exists, it handles SIGTERM. The destructor restores the previous handling, unless the program has
 * changed it since. Child processes do not inherit the handler. The handler only wakes the event loop: SIGTERM has no
 * effect while the event loop does not run. Therefore do long work in steps. SIGKILL (Task::Force) always ends the
 * process.
 */
class CORVANE_EXPORT TaskProcess : public QObject
{
    Q_OBJECT
    /// See taskId().
    Q_PROPERTY(QString taskId READ taskId CONSTANT)
    /// See isStopRequested().
    Q_PROPERTY(bool stopping READ isStopRequested NOTIFY stopRequested)
public:
    /// The longest time that finish() waits for the client to read the messages.
    static constexpr std::chrono::seconds MaximumFinishTime{5};

    /**
     * Reads the environment, listens on the task's socket, and begins to handle SIGTERM.
     *
     * A warning is logged if HALVIR_TASK_FD is set but is not the number of a listening local socket, or if the process
     * has no free file descriptor for the signal. SIGTERM then keeps its previous handling.
     */
    explicit TaskProcess(QObject *parent = nullptr);
    /// Closes the channel and drops its unsent messages. Use finish() to send them. A finish() under way is canceled:
    /// the event loop continues.
    ~TaskProcess() override;

    /// The id of the task that this process runs (HALVIR_TASK_ID); empty if the process is not a task.
    QString taskId() const;

    /**
     * The channel to the application, on the socket that the service prepared (HALVIR_TASK_FD); a child of this object.
     * nullptr if the service has prepared no socket, or if the channel has been deleted. A second object of this class
     * has no channel, even if it is created after the first was deleted: the channel owns the socket.
     */
    TaskMessaging *messaging() const;

    /// Returns whether the process has received SIGTERM. The event loop sets it before it emits stopRequested().
    bool isStopRequested() const;

public Q_SLOTS:
    /**
     * Ends the event loop (QCoreApplication::exit()) after the client has read all sent messages. Does not block.
     *
     * It may be called before exec(). The first call counts; later calls are ignored. If the client has not read all
     * messages after MaximumFinishTime, a warning is logged, and the event loop ends with the same \a exitCode. The
     * time begins with the event loop.
     *
     * From this call on, no other client is accepted, and the end of the connection is not logged. Messages still
     * arrive and can be sent until the event loop ends. Then the channel is closed, without stateChanged(). The client
     * logs "Socket error" unless it closes its end first: delete the channel of the application in the slot that
     * receives the last message.
     */
    void finish(int exitCode = 0);

Q_SIGNALS:
    /**
     * Emitted when the process has received SIGTERM, once. The service sends SIGTERM to end the task, for example for
     * Task::stop(). Further SIGTERM have no effect: the receiver ends the process with finish(). If no receiver is
     * connected, the object calls finish(0). A binding to the property "stopping" counts as a receiver.
     */
    void stopRequested();
    /**
     * Emitted for each application that connects to the socket of the task, when messaging() can send messages to it
     * and before its messages are delivered. A client that had to wait may have disconnected already.
     */
    void clientConnected();

private:
    friend class TaskProcessPrivate;
    const std::unique_ptr<TaskProcessPrivate> d;
};

} // namespace Corvane
