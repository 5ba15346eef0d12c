// SPDX-License-Identifier: BSD-3-Clause
#include "monitors.h"

#include <DBus/names.h>

#include <QtCore/QDateTime>
#include <QtDBus/QDBusConnection>
#include <QtDBus/QDBusMessage>

namespace Names = Corvane::Names;

Monitors::Monitors(Trace *trace, QObject *parent) : QObject(parent), m_trace(trace)
{
    m_watcher.setConnection(QDBusConnection::sessionBus());
    m_watcher.setWatchMode(QDBusServiceWatcher::WatchForUnregistration);
    connect(&m_watcher, &QDBusServiceWatcher::serviceUnregistered, this, [this](const QString &connection) {
        m_watcher.removeWatchedService(connection);
        m_connections.removeAll(connection);
        if (m_connections.isEmpty())
            m_trace->setListener({});
    });
}

void Monitors::add(const QString &connection)
{
    if (m_connections.contains(connection))
        return;
    m_watcher.addWatchedService(connection);
    m_connections.append(connection);
    m_trace->setListener([this](const QString &line) { send(line); });
}

void Monitors::send(const QString &line) const
{
    for (const QString &connection : m_connections) {
        QDBusMessage signal = QDBusMessage::createTargetedSignal(
            connection, Names::StandIn.path(), QLatin1String(Names::StandIn.interface), QStringLiteral("Traced"));
        signal << QDateTime::currentMSecsSinceEpoch() << line;
        QDBusConnection::sessionBus().send(signal);
    }
}
