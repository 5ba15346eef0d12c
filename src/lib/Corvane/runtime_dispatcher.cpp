// SPDX-License-Identifier: BSD-3-Clause
#include "runtime_dispatcher.h"
#include "runtime_dispatcher_p.h"

#include "bus_name_p.h"
#include "file_sharing.h"
#include "incoming_intent_p.h"

#include <Core/environment.h>
#include <DBus/names.h>
#include <DBus/session_bus.h>
#include <DBus/types.h>

#include <QtCore/QDebug>
#include <QtDBus/QDBusError>

#include <utility>

namespace Corvane {

namespace {

RuntimeDispatcher *currentDispatcher = nullptr;

} // namespace

RuntimeDispatcherPrivate::RuntimeDispatcherPrivate(RuntimeDispatcher *dispatcher)
    : applicationId(Core::fromEnvironment(Core::Environment::ApplicationId)),
      applicationInstanceId(Core::fromEnvironment(Core::Environment::ApplicationInstanceId)),
      taskId(Core::fromEnvironment(Core::Environment::TaskId)), q(dispatcher)
{
    registerRecordTypes();
}

int RuntimeDispatcherPrivate::localServerSocket() const
{
    // Decimal numbers only. qEnvironmentVariableIntValue() also accepts octal and hexadecimal ones.
    return qgetenv(Core::Environment::TaskSocket).toInt(); // clazy:exclude=qgetenv
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

Error RuntimeDispatcherPrivate::stopService()
{
    return releaseBusName(applicationInstanceId);
}

void RuntimeDispatcherPrivate::onApplicationStarted(const std::function<void()> &callback)
{
    if (taskId.isEmpty())
        callback();
}

void RuntimeDispatcherPrivate::onTaskStarted(const QString &taskName,
                                             const std::function<void(const QString &)> &callback)
{
    const QString id = taskId; // a copy, because the callback may delete this object
    if (!id.isEmpty() && (taskName.isEmpty() || taskName == id))
        callback(id);
}

void RuntimeDispatcherPrivate::registerIntent(const QString &intentName,
                                              const RuntimeDispatcher::IntentHandler &handler)
{
    insert({intentName, handler, {}, {}, {}});
}

void RuntimeDispatcherPrivate::registerIntentHandler(const QString &intentName,
                                                     const std::function<void(IncomingIntent)> &handler)
{
    insert({intentName, {}, {}, {}, [handler](const IncomingIntent &intent) {
                if (handler)
                    handler(intent);
            }});
}

void RuntimeDispatcherPrivate::insert(Intent intent)
{
    std::swap(intents[intent.name], intent);
    // The old handler is destroyed last: the destructors of its captures may change the table.
}

void RuntimeDispatcherPrivate::unregisterIntent(const QString &intentName)
{
    const auto removed = intents.take(intentName); // destroyed last, as in insert()
}

void RuntimeDispatcherPrivate::unregisterAllIntents()
{
    decltype(intents) removed;
    removed.swap(intents);
    // The handlers are destroyed last: the destructors of their captures may use the dispatcher.
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
    const Intent intent = intents.value(intentName); // a copy, because the handler may change the table
    if (intent.name.isEmpty()) {
        sendErrorReply(QDBusError::Failed, Names::IntentNotRegistered);
        return;
    }

    QVariantMap files;
    FileSharing::setFileLists(intent.readFiles, intent.writeFiles, files);
    setDelayedReply(true);
    const ReceivedCall call{connection(), message(), Trace::begin("incoming intent", intentName, [&] {
                                return sizeOfIntent(intentName, params);
                            })};
    if (intent.incomingHandler) {
        intent.incomingHandler(IncomingIntent(IncomingIntentPrivate::create(intentName, params, files, call)));
        return;
    }
    intent.handler(params, [call, files](const QJsonObject &result) {
        call.reply(result, files, FileSharing::Optional, QDBusError::errorString(QDBusError::Failed));
    });
    // The handler may have deleted this object.
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
    d->unregisterAllIntents();
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
    return d->localServerSocket();
}

Error RuntimeDispatcher::startService()
{
    return d->startService();
}

Error RuntimeDispatcher::stopService()
{
    return d->stopService();
}

void RuntimeDispatcher::onApplicationStarted(const std::function<void()> &callback)
{
    d->onApplicationStarted(callback);
}

void RuntimeDispatcher::onTaskStarted(const QString &taskName, const std::function<void(const QString &)> &callback)
{
    d->onTaskStarted(taskName, callback);
}

void RuntimeDispatcher::registerIntent(const QString &intentName, const IntentHandler &handler)
{
    d->registerIntent(intentName, handler);
}

void RuntimeDispatcher::registerIntentHandler(const QString &intentName,
                                              const std::function<void(Corvane::IncomingIntent)> &handler)
{
    d->registerIntentHandler(intentName, handler);
}

void RuntimeDispatcher::unregisterIntent(const QString &intentName)
{
    d->unregisterIntent(intentName);
}

void RuntimeDispatcher::registerIntentOutputFiles(const QString &intentName, const QStringList &readFiles,
                                                  const QStringList &writeFiles)
{
    d->registerIntentOutputFiles(intentName, readFiles, writeFiles);
}

} // namespace Corvane
