// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "corvane_export.h"

#include <QtCore/QJsonObject>
#include <QtCore/QObject>

#include <memory>

class QDebug;

namespace Corvane {

class TaskMessagingPrivate;

/**
 * A two-way channel of JSON objects between an application and its running task, over a local socket.
 *
 * \code
 * auto *channel = new Corvane::TaskMessaging(task->socketPath(), this); // in the application
 * Corvane::TaskMessaging *channel = process->messaging(); // in the task, with a Corvane::TaskProcess
 * connect(channel, &Corvane::TaskMessaging::messageReceived, this, &Window::showMessage);
 * channel->sendMessage({{QStringLiteral("progress"), 40}});
 * \endcode
 *
 * Messages arrive in order. Messages of up to 32 KiB (as compact JSON) are reliable while connected. A larger one may
 * be split; the receiver then closes the connection with the warning "Insufficient data in the socket". Messages that
 * were received before the connection ended are still delivered, unless a slot runs an event loop in which another
 * client replaces the connection. There are no acknowledgements. A closed channel does not reconnect: create another
 * object in the application.
 *
 * The task has one client at a time. Other clients wait in a queue; they are neither accepted nor refused. After the
 * client has disconnected, the task continues with the first client of the queue when another client connects. Messages
 * that the waiting client has already sent are delivered then. Clients that have disconnected are skipped.
 *
 * Use a channel on the thread that created it; the thread needs a running event loop. No function blocks. See also
 * docs/limits.md.
 */
class CORVANE_EXPORT TaskMessaging : public QObject
{
    Q_OBJECT
public:
    /// The state of the connection.
    enum State : int {
        Unconnected = 0, ///< There is no connection. The task's end may wait for a client.
        Connecting = 1, ///< The application's end connects to the socket.
        Connected = 2, ///< Messages can be sent and received.
        Closing = 3, ///< Sent data is still being written.
    };
    /// Prints the name of the state, such as Corvane::TaskMessaging::Connected, or its number.
    friend CORVANE_EXPORT QDebug operator<<(QDebug debug, State state);

    /**
     * Creates the application's end and connects it to the socket of the task. Usually the connection is made or has
     * failed when the constructor returns; read state() then. A failure is logged ("Socket error").
     */
    explicit TaskMessaging(const QString &socketPath, QObject *parent = nullptr);
    /**
     * Creates the task's end, which waits for clients on a listening socket. TaskProcess::messaging() does this for the
     * socket of the task. The channel becomes the owner of the descriptor, and its destructor removes the file of the
     * socket. If the descriptor is not a listening local socket, the constructor logs a warning and does not change
     * the descriptor; the channel stays unconnected.
     */
    explicit TaskMessaging(int socketDescriptor, QObject *parent = nullptr);
    /// Closes the connection without stateChanged(), and drops unsent messages. The task's end also removes the file of
    /// the socket.
    ~TaskMessaging() override;

    /// Returns the state of the connection.
    State state() const;

    /**
     * Queues a message and returns true if the channel is connected; otherwise logs a warning and returns false. The
     * event loop writes the message. There is no acknowledgement. Messages that the other end does not read stay in the
     * memory of this process.
     */
    bool sendMessage(const QJsonObject &message);

Q_SIGNALS:
    /**
     * Emitted when the state changes, except when a client connects to the task's end. A slot may delete the channel.
     * Queued connections and QSignalSpy need registerMetaTypes().
     */
    void stateChanged(State state);
    /**
     * Emitted for each received message. \a message is empty if the payload is not a JSON object. A slot may delete the
     * channel. Queued connections work without registerMetaTypes(), because Qt knows the argument type.
     */
    void messageReceived(const QJsonObject &message);

private:
    friend class TaskProcessPrivate;
    const std::unique_ptr<TaskMessagingPrivate> d;
};

} // namespace Corvane
