// SPDX-License-Identifier: BSD-3-Clause
#include "intents.h"

#include "descriptors.h"

#include <DBus/names.h>
#include <DBus/pending_call.h>

#include <QtDBus/QDBusArgument>
#include <QtDBus/QDBusConnection>

#include <limits>

using namespace Corvane;

namespace {

QString serviceError(const char *code)
{
    return Names::ErrorPrefix + QLatin1String(code);
}

} // namespace

Intents::Intents(const Applications &applications, const Trace &trace, QObject *parent)
    : QObject(parent), m_applications(applications), m_trace(trace)
{ }

QVariantMap Intents::InvokeIntent(const QString &intentName, const QVariantMap &hints, const QVariantMap &params)
{
    Q_UNUSED(params) // the original argument is forwarded
    setDelayedReply(true);
    Request request{++m_lastNumber, message(), {}};
    if (m_trace.isOn())
        m_trace.write(request.number,
                      QStringLiteral("InvokeIntent %1 %2%3 from %4%5")
                          .arg(Trace::quoted(intentName), Trace::json(message().arguments().at(2)), Trace::hints(hints),
                               m_applications.nameOf(message().service()), Trace::descriptors(hints)));

    if (holdsDescriptors(message().arguments().at(2))) {
        refuse(request, QDBusError::errorString(QDBusError::InvalidArgs),
               QStringLiteral("Descriptors belong in the hints"));
        return {};
    }
    Application *application = m_applications.handlerOf(intentName);
    if (!application) {
        const QString similar = m_applications.similarIntent(intentName);
        const QString help = similar.isNull()
            ? QString()
            : QStringLiteral(" (a manifest has the intent %1)").arg(Trace::quoted(similar));
        refuse(request, serviceError("HandlerNotFound"),
               QStringLiteral("No application handles %1%2").arg(Trace::quoted(intentName), help));
        return {};
    }
    application->whenReady([this, application, request](const QString &problem) mutable {
        request.instanceId = application->instanceId();
        if (problem.isEmpty())
            forward(request);
        else
            refuse(request, serviceError("ApplicationNotRunning"), problem);
    });
    return {};
}

void Intents::forward(const Request &request)
{
    const QVariantList arguments = request.invocation.arguments();
    QDBusMessage call =
        QDBusMessage::createMethodCall(request.instanceId, Names::IntentHandler.path(),
                                       QLatin1String(Names::IntentHandler.interface), QStringLiteral("HandleIntent"));
    call << arguments.at(0) << arguments.at(2);
    if (m_trace.isOn())
        m_trace.write(
            request.number,
            QStringLiteral("HandleIntent %1 %2 to %3")
                .arg(Trace::quoted(arguments.at(0).toString()), Trace::json(arguments.at(2)), request.instanceId));
    const int noLimit = std::numeric_limits<int>::max();
    onFinished(QDBusConnection::sessionBus().asyncCall(call, noLimit), this,
               [this, request](const QDBusPendingCall &finished) { finish(request, finished.reply()); });
}

void Intents::finish(const Request &request, const QDBusMessage &answer)
{
    if (answer.type() == QDBusMessage::ErrorMessage) {
        const QString handlerFailed = serviceError("HandlerFailed");
        QString text = answer.errorMessage(); // the handler's own words arrive as they are
        if (answer.errorName() != handlerFailed)
            text = QStringLiteral("%1: %2").arg(request.instanceId, text);
        if (answer.errorMessage() == Names::IntentNotRegistered)
            text += QStringLiteral(" (its manifest has the intent %1)")
                        .arg(Trace::quoted(request.invocation.arguments().at(0).toString()));
        refuse(request, handlerFailed, text);
        return;
    }
    if (answer.signature() != QLatin1String("a{sv}a{sv}")) {
        refuse(request, serviceError("HandlerFailed"),
               QStringLiteral("%1: The reply should have the signature a{sv}a{sv}, and has \"%2\"")
                   .arg(request.instanceId, answer.signature()));
        return;
    }
    const QVariant reply = answer.arguments().at(0);
    if (holdsDescriptors(reply)) {
        refuse(request, serviceError("HandlerFailed"),
               QStringLiteral("%1: Descriptors belong in the second map of the reply").arg(request.instanceId));
        return;
    }
    if (m_trace.isOn())
        m_trace.write(request.number,
                      QStringLiteral("Reply %1 from %2%3")
                          .arg(Trace::json(reply), request.instanceId,
                               Trace::descriptors(qdbus_cast<QVariantMap>(answer.arguments().at(1)))));
    QDBusConnection::sessionBus().send(request.invocation.createReply(reply));
}

void Intents::refuse(const Request &request, const QString &error, const QString &reason)
{
    m_trace.write(request.number, QStringLiteral("Error %1: %2").arg(error.section(QLatin1Char('.'), -1), reason));
    QDBusConnection::sessionBus().send(request.invocation.createErrorReply(error, reason));
}
