// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "corvane_export.h"

#include <QtCore/QJsonObject>
#include <QtCore/QObject>

#include <memory>

namespace Corvane {

class TaskMessagingPrivate;

/**
 * A two-way channel of JSON objects between an application and its running task, over a local socket.
 *
 * \code
 * auto *channel = new Corvane::TaskMessaging(task->socketPath(), this);                    // in the application
 * auto *channel = new Corvane::TaskMessaging(dispatcher->localServerSocket(), dispatcher); // in the task
 * connect(channel, &Corvane::TaskMessaging::messageReceived, this, &Window::showMessage);
 * channel->sendMessage({{QStringLiteral("progress"), 40}});
 * \endcode
 *
 * Messages arrive in order. Those of up to 32 KiB, as compact JSON, arrive as long as the connection lasts, and those
 * that have come in before its end are still delivered, unless a receiver runs an event loop in which the task gets
 * another client; a larger one can reach the other end
 * in two pieces, which ends the connection there with the warning "Insufficient data in the socket". There are no
 * acknowledgements, and a connection that has ended stays so: make a new object in the application.
 *
 * The task has one client at a time. Other clients wait in a queue, neither accepted nor refused. When the client has
 * left, the next one that connects gives the turn to the first in the queue; what that one sent meanwhile is delivered
 * then. Clients that left while they waited delay nobody.
 *
 * Use a channel on the thread that made it, which needs a running event loop. Nothing here blocks.
 */
class CORVANE_EXPORT TaskMessaging : public QObject
{
    Q_OBJECT
public:
    enum State : int {
        Unconnected = 0,
        Connecting = 1,
        Connected = 2,
        Closing = 3, ///< What was sent is still on its way.
    };

    /**
     * The application's end: connects to the socket of the task. That is mostly done, or has failed, when the
     * constructor returns, so look at state() then; what went wrong has been logged ("Socket error").
     */
    explicit TaskMessaging(const QString &socketPath, QObject *parent = nullptr);
    /**
     * The task's end: waits for clients at a socket that listens already, and takes ownership of the descriptor. When
     * it goes, the socket's file is removed. A descriptor that is not a listening local socket is left alone, with a
     * warning, and the channel stays unconnected.
     */
    explicit TaskMessaging(int socketDescriptor, QObject *parent = nullptr);
    ~TaskMessaging() override;

    State state() const;

    /**
     * Sends a message, and returns whether there is somebody to send it to; if not, a warning says so. It leaves
     * through the event loop. Whether it arrives is not known. What the other end does not read stays in memory here.
     */
    bool sendMessage(const QJsonObject &message);

Q_SIGNALS:
    /**
     * The state has changed; not emitted when the task's end gets a client. The channel may be deleted in here. A
     * queued connection and QSignalSpy need registerMetaTypes().
     */
    void stateChanged(State state);
    /**
     * A message has arrived; an empty one if it was no JSON object. The channel may be deleted in here. Queued
     * connections need no registerMetaTypes(), as Qt knows the argument.
     */
    void messageReceived(const QJsonObject &message);

private:
    const std::unique_ptr<TaskMessagingPrivate> d;
};

} // namespace Corvane
