// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "applications.h"

#include <QtDBus/QDBusContext>
#include <QtDBus/QDBusMessage>

/// The object "Intents1": it routes intents to the applications that handle them.
class Intents : public QObject, protected QDBusContext
{
    Q_OBJECT
public:
    Intents(const Applications &applications, const Trace &trace, QObject *parent = nullptr);

    /// Called by the adaptor, which is generated from the XML of the interface. The reply is sent later.
    QVariantMap InvokeIntent(const QString &intentName, const QVariantMap &hints, const QVariantMap &params);

private:
    struct Request
    {
        int number;
        QDBusMessage invocation;
        QString instanceId;
    };
    void forward(const Request &request);
    void finish(const Request &request, const QDBusMessage &answer);
    void refuse(const Request &request, const QString &error, const QString &reason);

    const Applications &m_applications;
    const Trace &m_trace;
    int m_lastNumber = 0;
};
