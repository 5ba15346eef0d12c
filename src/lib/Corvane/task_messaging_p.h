// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "task_messaging.h"

#include <QtNetwork/QLocalServer>
#include <QtNetwork/QLocalSocket>

namespace Corvane {

/// Cuts off a socket or server and closes it now, and deletes it later: it may be in the middle of a signal.
struct DeleteLater
{
    template<typename Device>
    void operator()(Device *device) const
    {
        device->disconnect();
        device->close();
        device->deleteLater();
    }
};

class TaskMessagingPrivate
{
public:
    explicit TaskMessagingPrivate(TaskMessaging *channel) : q(channel) { }

    void connectTo(const QString &socketPath);
    void listen(int socketDescriptor);
    TaskMessaging::State state() const;
    bool sendMessage(const QJsonObject &message);

    std::unique_ptr<QLocalServer, DeleteLater> server; ///< in the task
    std::unique_ptr<QLocalSocket, DeleteLater> socket; ///< none in the task before its first client
    TaskMessaging *const q;

private:
    void setUpSocket();
    void onNewConnection();
    void readMessages();
};

} // namespace Corvane
