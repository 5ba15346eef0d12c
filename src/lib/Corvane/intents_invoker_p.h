// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "error.h"

#include <QtCore/QJsonObject>
#include <QtCore/QObject>
#include <QtDBus/QDBusAbstractInterface>
#include <QtDBus/QDBusPendingCall>

#include <memory>

namespace Corvane {

/// The proxy of the service's intents interface.
class IntentsInterface : public QDBusAbstractInterface
{
    Q_OBJECT
public:
    IntentsInterface();
};

class IntentsInvokerPrivate : public QObject
{
    Q_OBJECT
public:
    IntentsInvokerPrivate();

    void invoke(const QString &intentName, const QJsonObject &hints, const QJsonObject &params);

    const std::unique_ptr<IntentsInterface> interface;

Q_SIGNALS:
    void replyReceived(const QJsonObject &reply, const Corvane::Error &error);

private:
    QDBusPendingCall send(const QString &intentName, const QJsonObject &hints, const QJsonObject &params);
};

} // namespace Corvane
