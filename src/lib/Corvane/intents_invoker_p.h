// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "error_p.h"
#include "trace_p.h"

#include <DBus/pending_call.h>
#include <DBus/types.h>

#include <QtCore/QJsonObject>
#include <QtCore/QObject>
#include <QtDBus/QDBusAbstractInterface>
#include <QtDBus/QDBusPendingReply>

#include <memory>

namespace Corvane {

/// The proxy of the service's intents interface.
class IntentsInterface : public QDBusAbstractInterface
{
    Q_OBJECT
public:
    IntentsInterface();
};

/// A call of InvokeIntent.
struct SentIntent
{
    QDBusPendingCall call;
    Trace trace;
};

/// Calls \a handler once with the reply and the error of an intent. See onFinished().
template<typename Handler>
void onReply(const QDBusPendingCall &call, QObject *owner, Handler handler)
{
    onFinished(call, owner, [handler](const QDBusPendingReply<QJsonObject> &reply) {
        handler(reply.isError() ? QJsonObject() : reply.value(), errorFromDBusError(reply.error()));
    });
}

class IntentsInvokerPrivate : public QObject
{
    Q_OBJECT
public:
    IntentsInvokerPrivate();

    void invoke(const QString &intentName, const QJsonObject &hints, const QJsonObject &params);

    enum Kind {
        Invoke, ///< Has the time-out of the proxy. Is sent without the files that cannot be opened.
        Request, ///< Has no time-out. Fails if a file cannot be opened.
    };
    SentIntent send(const QString &intentName, const QJsonObject &hints, const QJsonObject &params, Kind kind);

    const std::unique_ptr<IntentsInterface> interface;

Q_SIGNALS:
    void replyReceived(const QJsonObject &reply, const Corvane::Error &error);

private:
    /// The arguments of the call, or the reason why it is not sent.
    struct Call
    {
        QList<QVariant> arguments;
        Trace::Size size;
        QString problem;
    };
    static Call prepare(const QString &intentName, const QJsonObject &hints, const QJsonObject &params, Kind kind);
};

} // namespace Corvane
