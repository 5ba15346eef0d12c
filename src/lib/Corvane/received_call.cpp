// SPDX-License-Identifier: BSD-3-Clause
#include "received_call_p.h"

#include "error_p.h"

#include <DBus/message_meter.h>

#include <QtCore/QDebug>
#include <QtDBus/QDBusError>

namespace Corvane {

void ReceivedCall::reply(const QJsonObject &result, QVariantMap files, FileSharing::Mode mode,
                         const QString &errorName) const
{
    Omissions omissions;
    const BusObject body = toBusObject(result, Place::Params, &omissions);
    MessageMeter meter;
    meter.add(omissions);
    meter.add(body);
    QString problem = FileSharing::addTo(meter, result, files, mode);
    if (problem.isEmpty()) {
        omissions.log();
        // QDBusConnection::send() returns true without a bus.
        if (connection.isConnected() && connection.send(message.createReply({QVariant::fromValue(body), files}))) {
            trace.end({}, [&meter] { return Trace::Size{meter.bytes(), meter.descriptors()}; });
            return;
        }
        problem = QStringLiteral("The message cannot be sent");
    }
    qWarning() << "Failed to reply to an intent:" << problem;
    fail(errorName, problem);
}

void ReceivedCall::fail(const QString &errorName, const QString &text) const
{
    MessageMeter meter;
    meter.add(text);
    const QString sent = meter.problem().isEmpty() ? text : meter.problem();
    const QDBusMessage reply = message.createErrorReply(errorName, sent);
    connection.send(reply);
    trace.end(errorFromDBusError(QDBusError(reply)), [&meter] { return Trace::Size{meter.bytes(), 0}; });
}

} // namespace Corvane
