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
    virtual void send() = 0; ///< The message that was set.
    virtual void sendReceived() = 0; ///< The message that was received last.
    virtual bool receive() = 0; ///< Waits for the next; false if the other end has gone.
};

/// Both complain and end the process if there is no connection.
/// \param kind corvane, QLocalSocket, raw socket or floor: no JSON
std::unique_ptr<End> connectedEnd(const QString &kind, const QString &path);
/// Writes a line to the standard output when it listens, and returns when it is connected.
std::unique_ptr<End> listeningEnd(const QString &kind, const QString &path);
