// SPDX-License-Identifier: BSD-3-Clause
// The same bus traffic as corvane_start.cpp, without the library.
#include "first_reply.h"

#include <process.h>

#include <DBus/names.h>

#include <QtCore/QJsonObject>
#include <QtDBus/QDBusConnection>
#include <QtDBus/QDBusContext>
#include <QtDBus/QDBusMessage>
#include <QtDBus/QDBusPendingCallWatcher>
#include <QtDBus/QDBusPendingReply>

using namespace Corvane;

class Handler : public QObject, protected QDBusContext
{
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", CORVANE_SERVICE_ROOT ".IntentHandler1")

public Q_SLOTS:
    void HandleIntent(const QString &intent, const QVariantMap &params)
    {
        setDelayedReply(true);
        if (intent == QLatin1String("Greet"))
            connection().send(message().createReply({params, QVariantMap()}));
        else
            connection().send(message().createErrorReply(QDBusError::Failed, QStringLiteral("Not handled")));
    }
};

int main(int argc, char **argv)
{
    dieWithParent();
    const QCoreApplication application(argc, argv);
    QDBusConnection bus = QDBusConnection::sessionBus();
    Handler handler;
    if (!bus.registerObject(Names::IntentHandler.path(), &handler, QDBusConnection::ExportAllSlots)
        || !bus.registerService(QString::fromUtf8(handledIntent())))
        qFatal("%s", qPrintable(bus.lastError().message()));

    QDBusMessage call =
        QDBusMessage::createMethodCall(Names::ServiceRoot, Names::Intents.path(),
                                       QLatin1String(Names::Intents.interface), QStringLiteral("InvokeIntent"));
    const QJsonObject params{{QStringLiteral("text"), QStringLiteral("Hello")}};
    call << QStringLiteral("bench.echo") << QVariantMap() << params.toVariantMap();
    const QDBusPendingCallWatcher watcher(bus.asyncCall(call));
    QObject::connect(&watcher, &QDBusPendingCallWatcher::finished, &watcher, [&watcher] {
        const QDBusPendingReply<QVariantMap> reply = watcher;
        if (reply.isError() || QJsonObject::fromVariantMap(reply.value()).size() != 1)
            qFatal("%s", qPrintable(reply.error().message()));
        onFirstReply();
    });
    return QCoreApplication::exec();
}

#include "qtdbus_start.moc"
