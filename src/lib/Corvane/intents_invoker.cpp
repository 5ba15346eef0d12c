// SPDX-License-Identifier: BSD-3-Clause
#include "intents_invoker.h"
#include "intents_invoker_p.h"

#include "file_sharing.h"
#include "intent_request_p.h"

#include <Core/intent_uri.h>
#include <DBus/message_meter.h>
#include <DBus/names.h>
#include <DBus/session_bus.h>

#include <QtCore/QPointer>

#include <limits>

namespace Corvane {

namespace {

constexpr int NoTimeout = std::numeric_limits<int>::max(); // DBUS_TIMEOUT_INFINITE

} // namespace

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
    const SentIntent sent = send(intentName, hints, params, Invoke);
    onReply(sent.call, this, [this, trace = sent.trace](const QJsonObject &reply, const Error &error) {
        trace.end(error, [&reply] { return sizeOfReply(reply); });
        Q_EMIT replyReceived(reply, error);
    });
}

SentIntent IntentsInvokerPrivate::send(const QString &intentName, const QJsonObject &hints, const QJsonObject &params,
                                       Kind kind)
{
    const Call call = prepare(intentName, hints, params, kind);
    const Trace trace = Trace::begin("request", intentName, [&call] { return call.size; });
    if (!call.problem.isEmpty())
        return {refusedCall(call.problem), trace};
    const QString method = QStringLiteral("InvokeIntent");
    if (kind == Invoke)
        return {interface->asyncCallWithArgumentList(method, call.arguments), trace};
    QDBusMessage message =
        QDBusMessage::createMethodCall(interface->service(), interface->path(), interface->interface(), method);
    message.setArguments(call.arguments);
    return {interface->connection().asyncCall(message, NoTimeout), trace};
}

IntentsInvokerPrivate::Call IntentsInvokerPrivate::prepare(const QString &intentName, const QJsonObject &hints,
                                                           const QJsonObject &params, Kind kind)
{
    Call call;
    Omissions omissions;
    QVariantMap map = toBusMap(FileSharing::convertibleHints(intentName, hints), Place::Hints, &omissions);
    const BusObject body = toBusObject(params, Place::Params, &omissions);
    MessageMeter meter;
    meter.add(omissions);
    meter.add(intentName);
    meter.add(body);
    FileSharing::setUriHint(intentName, params, map);
    call.problem =
        FileSharing::addTo(meter, params, map, kind == Request ? FileSharing::Required : FileSharing::Optional);
    if (call.problem.isEmpty()) {
        call.size = {meter.bytes(), meter.descriptors()};
        omissions.log();
        call.arguments = {intentName, map, QVariant::fromValue(body)};
    }
    return call;
}

IntentsInvoker::IntentsInvoker(QObject *parent) : QObject(parent), d(std::make_unique<IntentsInvokerPrivate>())
{
    connect(d.get(), &IntentsInvokerPrivate::replyReceived, this, &IntentsInvoker::replyReceived);
}

IntentsInvoker::~IntentsInvoker()
{
    // While the private object exists: the destructors of what the callbacks capture may use the invoker.
    QVector<QPointer<IntentRequest>> requests;
    const auto children = findChildren<IntentRequest *>(QString(), Qt::FindDirectChildrenOnly);
    for (auto *request : children)
        requests.append(request);
    for (const auto &request : qAsConst(requests))
        delete request;
}

void IntentsInvoker::invoke(const QString &intentName, const QJsonObject &hints, const QJsonObject &params)
{
    d->invoke(intentName, hints, params);
}

IntentRequest *IntentsInvoker::request(const QString &intentName, const QJsonObject &params)
{
    return request(intentName, {}, params);
}

IntentRequest *IntentsInvoker::request(const QString &intentName, const QJsonObject &hints, const QJsonObject &params)
{
    auto *const request = new IntentRequest(intentName, this);
    request->d->follow(d->send(intentName, hints, params, IntentsInvokerPrivate::Request));
    return request;
}

IntentRequest *IntentsInvoker::request(const IntentUri &intent)
{
    if (!intent.error())
        return request(intent.intentName(), intent.hints(), intent.params());
    auto *const request = new IntentRequest({}, this);
    const QDBusError error(QDBusError::InvalidArgs, intent.error().message());
    request->d->follow({QDBusPendingCall::fromError(error), Trace::begin("request", {}, [] { return Trace::Size(); })});
    return request;
}

IntentRequest *IntentsInvoker::request(const QUrl &uri)
{
    return request(IntentUri(uri));
}

QUrl IntentsInvoker::intentToUri(const QString &intentName, const QJsonObject &hints, const QJsonObject &params)
{
    return Core::IntentUri::toUri(intentName, hints, params);
}

} // namespace Corvane
