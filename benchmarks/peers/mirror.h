// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <QtCore/QCoreApplication>
#include <QtDBus/QDBusArgument>
#include <QtDBus/QDBusConnection>
#include <QtDBus/QDBusMessage>
#include <QtDBus/QDBusVirtualObject>

#include <utility>

/// Sends a value over the bus to this process, and returns the value that QtDBus receives.
class Mirror : public QDBusVirtualObject
{
public:
    Mirror() { QDBusConnection::sessionBus().registerVirtualObject(QStringLiteral("/mirror"), this); }

    QString introspect(const QString &) const override { return {}; }
    bool handleMessage(const QDBusMessage &message, const QDBusConnection &) override
    {
        m_received = message;
        return true;
    }
    QDBusArgument reflect(const QVariant &content)
    {
        const QDBusConnection bus = QDBusConnection::sessionBus();
        QDBusMessage call = QDBusMessage::createMethodCall(bus.baseService(), QStringLiteral("/mirror"),
                                                           QStringLiteral("a.b"), QStringLiteral("Member"));
        call << content;
        bus.call(call, QDBus::NoBlock);
        while (m_received.type() == QDBusMessage::InvalidMessage)
            QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
        return std::exchange(m_received, {}).arguments().constFirst().value<QDBusArgument>();
    }

private:
    QDBusMessage m_received;
};
