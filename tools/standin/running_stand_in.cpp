// SPDX-License-Identifier: BSD-3-Clause
#include "running_stand_in.h"

#include <DBus/names.h>

#include <QtCore/QFile>

#include <algorithm>
#include <limits>

namespace Names = Corvane::Names;

namespace {

/// Whether the service on the session bus is a stand-in.
bool isOnSessionBus()
{
    if (!qEnvironmentVariableIsSet("DBUS_SESSION_BUS_ADDRESS")) // libdbus might start a bus
        return false;
    QDBusMessage call = QDBusMessage::createMethodCall(Names::ServiceRoot, Names::StandIn.path(),
                                                       QStringLiteral("org.freedesktop.DBus.Introspectable"),
                                                       QStringLiteral("Introspect"));
    call.setAutoStartService(false);
    const QVariantList reply = QDBusConnection::sessionBus().call(call).arguments();
    return reply.value(0).toString().contains(QLatin1String(Names::StandIn.interface));
}

QString described(const QVector<StandInRecord> &records)
{
    QString text;
    for (const StandInRecord &record : records)
        text += QStringLiteral("\n  %1 (process %2, started in %3)")
                    .arg(record.name, QString::number(record.processId), record.directory);
    return text;
}

} // namespace

RunningStandIn::RunningStandIn(const QString &name) : m_connection(QString())
{
    if (name.isEmpty() && isOnSessionBus()) {
        m_connection = QDBusConnection::sessionBus();
        return;
    }
    QVector<StandInRecord> records = runningStandIns();
    const QString all = described(records);
    m_isAbsent = records.isEmpty();
    if (m_isAbsent) {
        m_problem = QStringLiteral("No stand-in is running; start one with: corvane-standin run -- COMMAND");
        return;
    }
    if (!name.isEmpty())
        records.erase(std::remove_if(records.begin(), records.end(),
                                     [&name](const StandInRecord &record) { return record.name != name; }),
                      records.end());
    if (records.isEmpty()) {
        m_problem = QStringLiteral("No running stand-in has the name \"%1\". These are running:%2").arg(name, all);
        return;
    }
    if (records.size() > 1) {
        m_problem = QStringLiteral("Several stand-ins are running; choose one with --name:%1").arg(all);
        return;
    }
    m_record = records.first();
    m_connection = QDBusConnection::connectToBus(m_record->busAddress, QStringLiteral("stand-in"));
    if (!m_connection.isConnected())
        m_problem = QStringLiteral("The bus of the stand-in \"%1\" cannot be used: %2")
                        .arg(m_record->name, m_connection.lastError().message());
}

QDBusMessage RunningStandIn::call(const QString &member, const QVariantList &arguments) const
{
    QDBusMessage call = QDBusMessage::createMethodCall(Names::ServiceRoot, Names::StandIn.path(),
                                                       QLatin1String(Names::StandIn.interface), member);
    call.setArguments(arguments);
    const int noLimit = std::numeric_limits<int>::max();
    return m_connection.call(call, QDBus::Block, noLimit);
}

void RunningStandIn::enter() const
{
    if (!m_record)
        return;
    qputenv("DBUS_SESSION_BUS_ADDRESS", m_record->busAddress.toUtf8());
    qputenv("XDG_RUNTIME_DIR", QFile::encodeName(m_record->runtimeDirectory));
}
