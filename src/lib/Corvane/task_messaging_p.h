// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "task_messaging.h"

#include <QtNetwork/QLocalServer>
#include <QtNetwork/QLocalSocket>

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

    // Shared with what handles a signal of theirs: a receiver may drop them, and run an event loop as well.
    std::shared_ptr<QLocalServer> server; ///< in the task
    std::shared_ptr<QLocalSocket> socket; ///< none in the task before its first client
    QByteArray unread; ///< What the socket has received, from position on.
    int position = 0;
    TaskMessaging *const q;

private:
    void setSocket(QLocalSocket *newSocket);
    void resumeAccepting();
    void onNewConnection();
    void drainIfHungUp();
    void readMessages();
};

} // namespace Corvane
