// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "runtime_dispatcher.h"

#include <DBus/names.h>

#ifdef CORVANE_HAS_INTROSPECTION // CMake generates it from data/dbus; without it, Qt describes the slots
#include <intent_handler_introspection.h>
#endif

#include <QtCore/QMap>
#include <QtDBus/QDBusContext>

namespace Corvane {

/// The object to which the service sends intents. Only its public slots are exported on the bus.
class RuntimeDispatcherPrivate : public QObject, public QDBusContext
{
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", CORVANE_SERVICE_ROOT ".IntentHandler1")
#ifdef CORVANE_HAS_INTROSPECTION
    Q_CLASSINFO("D-Bus Introspection", CORVANE_INTENT_HANDLER_INTROSPECTION)
#endif
public:
    explicit RuntimeDispatcherPrivate(RuntimeDispatcher *q);

    int localServerSocket() const;
    Error startService();
    Error stopService();
    void onApplicationStarted(const std::function<void()> &callback);
    void onTaskStarted(const QString &taskName, const std::function<void(const QString &)> &callback);
    void registerIntent(const QString &intentName, const RuntimeDispatcher::IntentHandler &handler);
    void registerIntentHandler(const QString &intentName, const std::function<void(IncomingIntent)> &handler);
    void unregisterIntent(const QString &intentName);
    void unregisterAllIntents();
    void registerIntentOutputFiles(const QString &intentName, const QStringList &readFiles,
                                   const QStringList &writeFiles);

    struct Intent
    {
        QString name;
        RuntimeDispatcher::IntentHandler handler;
        QStringList readFiles;
        QStringList writeFiles;
        std::function<void(IncomingIntent)> incomingHandler; ///< Replaces handler if it is set.
    };
    QMap<QString, Intent> intents;
    const QString applicationId;
    const QString applicationInstanceId;
    const QString taskId;
    bool registered = false; ///< This object is exported on the bus. It is never withdrawn.
    RuntimeDispatcher *const q;

private:
    void insert(Intent intent);

public Q_SLOTS:
    void HandleIntent(const QString &intentName, const QJsonObject &params); // clazy:exclude=function-args-by-value
};

} // namespace Corvane
