// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <QtCore/QJsonObject>

#include <memory>

/// An end of a channel, which sends and receives one message at a time.
class End
{
public:
    End() = default;
    virtual ~End() = default;
    Q_DISABLE_COPY_MOVE(End)

    virtual void setMessage(const QJsonObject &message) = 0;
    virtual void send() = 0; ///< Sends the message that was set.
    virtual void sendReceived() = 0; ///< Sends the last received message.
    virtual bool receive() = 0; ///< Waits for a message; returns false if the other end has closed.
};

/// Both functions print an error and end the process if there is no connection.
/// \param kind corvane, QLocalSocket, raw socket or floor: no JSON
std::unique_ptr<End> connectedEnd(const QString &kind, const QString &path);
/// Prints a line to standard output when it listens, and returns when it is connected.
std::unique_ptr<End> listeningEnd(const QString &kind, const QString &path);
