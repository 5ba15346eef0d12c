// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <service_peer.h>

#include <QtCore/QVariant>
#include <QtDBus/QDBusConnection>
#include <QtDBus/QDBusMessage>

/// Returns the first argument of a reply with this body. The argument has not been demarshalled.
inline QVariant received(ServicePeer &peer, const QString &body)
{
    peer.answer(body);
    QString path = "/" CORVANE_SERVICE_ROOT "/Intents1";
    QDBusMessage call = QDBusMessage::createMethodCall(CORVANE_SERVICE_ROOT, path.replace('.', '/'),
                                                       CORVANE_SERVICE_ROOT ".Intents1", "InvokeIntent");
    call << QString() << QVariantMap() << QVariantMap();
    const QDBusMessage reply = QDBusConnection::sessionBus().call(call);
    peer.answer("(@a{sv} {},)");
    return reply.arguments().value(0);
}
