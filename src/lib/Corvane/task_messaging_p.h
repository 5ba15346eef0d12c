// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "task_messaging.h"
#include "trace_p.h"

#include <QtNetwork/QLocalServer>
#include <QtNetwork/QLocalSocket>

#include <functional>

namespace Corvane {

class TaskMessagingPrivate
{
public:
    explicit TaskMessagingPrivate(TaskMessaging *q);
    ~TaskMessagingPrivate();
    Q_DISABLE_COPY(TaskMessagingPrivate)

    void connectTo(const QString &socketPath);
    void listen(int socketDescriptor);
    TaskMessaging::State state() const;
    bool sendMessage(const QJsonObject &message);
    /// Returns whether the other end has read all sent messages or is disconnected.
    bool isAllRead() const;
    /// Closes the connection and stops listening, without a signal or a warning.
    void close();

    static bool isListeningLocalSocket(int descriptor);

    // Handlers of the signals share the ownership: a receiver may delete the channel or run an event loop.
    std::shared_ptr<QLocalServer> server; ///< on the task side only
    std::shared_ptr<QLocalSocket> socket; ///< null on the task side before the first client
    // Frames are written and read without a QDataStream, which writes the length and the payload separately: a receiver
    // that reads between the two writes closes the connection.
    QByteArray unread; ///< the received bytes
    int position = 0; ///< of the next frame in unread
    std::function<void()> clientAccepted; ///< called before the messages of the client are delivered; may be empty
    bool isFinishing = false; ///< accepts no more clients, and does not log socket errors
    TaskMessaging *const q;

private:
    QString name() const; ///< of the socket, for the trace
    void endWhenWritten(const Trace &trace);
    void setSocket(QLocalSocket *newSocket);
    void resumeAccepting();
    void onNewConnection();
    void drainIfHungUp();
    void readMessages();
};

} // namespace Corvane
