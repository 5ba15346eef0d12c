// SPDX-License-Identifier: BSD-3-Clause
#include "intents_invoker.h"
#include "intents_invoker_p.h"

#include "error_p.h"
#include "file_sharing.h"

#include <Core/intent_uri.h>
#include <DBus/message_meter.h>
#include <DBus/names.h>
#include <DBus/pending_call.h>
#include <DBus/session_bus.h>
#include <DBus/types.h>

#include <QtDBus/QDBusPendingReply>

namespace Corvane {

IntentsInterface::IntentsInterface()
    : QDBusAbstractInterface(Names::ServiceRoot, Names::Intents.path(), Names::Intents.interface, sessionBus(), nullptr)
{
    setTimeout(86400); // milliseconds
}

IntentsInvokerPrivate::IntentsInvokerPrivate() : interface(std::make_unique<IntentsInterface>())
{
    registerRecordTypes();
}

void IntentsInvokerPrivate::invoke(const QString &intentName, const QJsonObject &hints, const QJsonObject &params)
{
    onFinished(send(intentName, hints, params), this, [this](const QDBusPendingReply<QJsonObject> &reply) {
        const Error error = errorFromDBusError(reply.error());
        Q_EMIT replyReceived(reply.isError() ? QJsonObject() : reply.value(), error);
    });
}

QDBusPendingCall IntentsInvokerPrivate::send(const QString &intentName, const QJsonObject &hints,
                                             const QJsonObject &params)
{
    Omissions omissions;
    QVariantMap map = toBusMap(FileSharing::convertibleHints(intentName, hints), Place::Hints, &omissions);
    const BusObject body = toBusObject(params, Place::Params, &omissions);
    MessageMeter meter;
    meter.add(omissions);
    meter.add(intentName);
    meter.add(body);
    MessageMeter withoutFiles = meter; // checked before any file is opened
    withoutFiles.add(map);
    if (!withoutFiles.problem().isEmpty())
        return refusedCall(withoutFiles.problem());

    FileSharing::setUriHint(intentName, params, map);
    FileSharing::exportFiles(params, map);
    meter.add(map);
    if (!meter.problem().isEmpty())
        return refusedCall(meter.problem());
    omissions.log();
    return interface->asyncCall(QStringLiteral("InvokeIntent"), intentName, map, QVariant::fromValue(body));
}

IntentsInvoker::IntentsInvoker(QObject *parent) : QObject(parent), d(std::make_unique<IntentsInvokerPrivate>())
{
    connect(d.get(), &IntentsInvokerPrivate::replyReceived, this, &IntentsInvoker::replyReceived);
}

IntentsInvoker::~IntentsInvoker() = default;

void IntentsInvoker::invoke(const QString &intentName, const QJsonObject &hints, const QJsonObject &params)
{
    d->invoke(intentName, hints, params);
}

QUrl IntentsInvoker::intentToUri(const QString &intentName, const QJsonObject &hints, const QJsonObject &params)
{
    return Core::IntentUri::toUri(intentName, hints, params);
}

} // namespace Corvane
