// SPDX-License-Identifier: BSD-3-Clause
#include "runtime_dispatcher.h"
#include "runtime_dispatcher_p.h"

#include "bus_name_p.h"
#include "file_sharing.h"

#include <Core/environment.h>
#include <DBus/message_meter.h>
#include <DBus/session_bus.h>
#include <DBus/types.h>

#include <QtCore/QDebug>
#include <QtDBus/QDBusError>
#include <QtDBus/QDBusMessage>

#include <utility>

namespace Corvane {

namespace {

RuntimeDispatcher *currentDispatcher = nullptr;

/// Answers \a call with a handler's result and the files that it names.
void sendReply(const QDBusConnection &connection, const QDBusMessage &call, const QJsonObject &result,
               QVariantMap files)
{
    MessageMeter meter;
    const BusObject body = meter.addConverted(result);
    if (meter.problem().isEmpty()) { // else no files are opened
        FileSharing::exportFiles(result, files);
        meter.add(files);
    }
    QString problem = meter.problem();
    if (problem.isEmpty()) {
        logOmissions(meter.omissions());
        // Without a bus, sending is no failure to Qt.
        if (connection.isConnected() && connection.send(call.createReply({QVariant::fromValue(body), files})))
            return;
        problem = QStringLiteral("The message cannot be sent");
    }
    qWarning() << "Failed to reply to an intent:" << problem;
    connection.send(call.createErrorReply(QDBusError::Failed, problem));
}

} // namespace

RuntimeDispatcherPrivate::RuntimeDispatcherPrivate(RuntimeDispatcher *dispatcher)
    : applicationId(Core::fromEnvironment("HALVIR_APP_ID")),
      applicationInstanceId(Core::fromEnvironment("HALVIR_APP_INSTANCE_ID")),
      taskId(Core::fromEnvironment("HALVIR_TASK_ID")), q(dispatcher)
{
    registerRecordTypes();
}

Error RuntimeDispatcherPrivate::startService()
{
    if (!registered) {
        QDBusConnection bus = sessionBus();
        registered = bus.registerObject(Names::IntentHandler.path(), this, QDBusConnection::ExportAllSlots);
        if (!registered)
            return {Error::Failed, QStringLiteral("Registration failed")};
    }
    return claimBusName(applicationInstanceId);
}

void RuntimeDispatcherPrivate::registerIntentOutputFiles(const QString &intentName, const QStringList &readFiles,
                                                         const QStringList &writeFiles)
{
    const auto intent = intents.find(intentName);
    if (intent == intents.end()) {
        qWarning() << "The intent" << intentName << "has not been registered";
        return;
    }
    intent->readFiles = readFiles;
    intent->writeFiles = writeFiles;
}

void RuntimeDispatcherPrivate::HandleIntent(const QString &intentName, const QJsonObject &params)
{
    const Intent intent = intents.value(intentName); // a copy, since the handler may change the table
    if (intent.name.isEmpty()) {
        sendErrorReply(QDBusError::Failed, QStringLiteral("Intent not registered by specified application"));
        return;
    }

    QVariantMap files;
    FileSharing::setOutputFiles(intent.readFiles, intent.writeFiles, files);
    setDelayedReply(true);
    intent.handler(params, [connection = connection(), call = message(), files](const QJsonObject &result) {
        sendReply(connection, call, result, files);
    });
    // The handler may have deleted this.
}

RuntimeDispatcher *RuntimeDispatcher::instance()
{
    if (!currentDispatcher)
        new RuntimeDispatcher;
    return currentDispatcher;
}

RuntimeDispatcher::RuntimeDispatcher() : d(std::make_unique<RuntimeDispatcherPrivate>(this))
{
    currentDispatcher = this;
}

RuntimeDispatcher::~RuntimeDispatcher()
{
    currentDispatcher = nullptr;
    // The destructors of what the handlers captured may still use this dispatcher.
    decltype(d->intents) removed;
    removed.swap(d->intents);
}

QString RuntimeDispatcher::applicationId() const
{
    return d->applicationId;
}

QString RuntimeDispatcher::applicationInstanceId() const
{
    return d->applicationInstanceId;
}

QString RuntimeDispatcher::taskId() const
{
    return d->taskId;
}

int RuntimeDispatcher::localServerSocket() const
{
    // Decimal only; qEnvironmentVariableIntValue() would read 010 and 0x10 as well.
    return qgetenv("HALVIR_TASK_FD").toInt(); // clazy:exclude=qgetenv
}

Error RuntimeDispatcher::startService()
{
    return d->startService();
}

Error RuntimeDispatcher::stopService()
{
    return releaseBusName(d->applicationInstanceId);
}

void RuntimeDispatcher::onApplicationStarted(const std::function<void()> &callback)
{
    if (d->taskId.isEmpty())
        callback();
}

void RuntimeDispatcher::onTaskStarted(const QString &taskName, const std::function<void(const QString &)> &callback)
{
    const QString taskId = d->taskId; // a copy, since the callback may delete this
    if (!taskId.isEmpty() && (taskName.isEmpty() || taskName == taskId))
        callback(taskId);
}

void RuntimeDispatcher::registerIntent(const QString &intentName, const IntentHandler &handler)
{
    RuntimeDispatcherPrivate::Intent intent{intentName, handler, {}, {}};
    std::swap(d->intents[intentName], intent);
    // Now the old handler is destroyed, and what it captured may change the table.
}

void RuntimeDispatcher::unregisterIntent(const QString &intentName)
{
    const auto removed = d->intents.take(intentName); // destroyed last, as in registerIntent()
}

void RuntimeDispatcher::registerIntentOutputFiles(const QString &intentName, const QStringList &readFiles,
                                                  const QStringList &writeFiles)
{
    d->registerIntentOutputFiles(intentName, readFiles, writeFiles);
}

} // namespace Corvane
