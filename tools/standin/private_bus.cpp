// SPDX-License-Identifier: BSD-3-Clause
#include "private_bus.h"

#include <QtCore/QDir>
#include <QtCore/QFile>
#include <QtCore/QUrl>

namespace {

const char Configuration[] = R"(<!DOCTYPE busconfig PUBLIC "-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN"
  "http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd">
<busconfig>
  <type>session</type>
  <listen>unix:dir=%1</listen>
  <auth>EXTERNAL</auth>
  <policy context="default">
    <allow send_destination="*" eavesdrop="true"/>
    <allow eavesdrop="true"/>
    <allow own="*"/>
  </policy>
  <limit name="max_incoming_bytes">1000000000</limit>
  <limit name="max_incoming_unix_fds">250000000</limit>
  <limit name="max_outgoing_bytes">1000000000</limit>
  <limit name="max_outgoing_unix_fds">250000000</limit>
  <limit name="max_message_size">1000000000</limit>
  <limit name="auth_timeout">240000</limit>
  <limit name="pending_fd_timeout">150000</limit>
  <limit name="max_completed_connections">100000</limit>
  <limit name="max_incomplete_connections">10000</limit>
  <limit name="max_connections_per_user">100000</limit>
  <limit name="max_names_per_connection">50000</limit>
  <limit name="max_match_rules_per_connection">50000</limit>
  <limit name="max_replies_per_connection">50000</limit>
</busconfig>
)";

const int StartTimeout = 10000; // milliseconds

} // namespace

PrivateBus::PrivateBus(const QString &program, const QString &directory, QObject *parent) : QObject(parent)
{
    start(program, directory);
}

void PrivateBus::start(const QString &program, const QString &directory)
{
    QFile configuration(QDir(directory).filePath(QStringLiteral("session.conf")));
    if (!configuration.open(QIODevice::WriteOnly)) {
        m_problem =
            QStringLiteral("%1 cannot be written: %2").arg(configuration.fileName(), configuration.errorString());
        return;
    }
    const QByteArray path = QUrl::toPercentEncoding(directory, "/", "~"); // as in D-Bus addresses
    configuration.write(QString::fromLatin1(Configuration).arg(QString::fromLatin1(path)).toUtf8());
    configuration.close();

    m_daemon.setProcessChannelMode(QProcess::SeparateChannels);
    m_daemon.start({program, QStringLiteral("--nofork"), QStringLiteral("--nopidfile"),
                    QStringLiteral("--print-address=1"), QStringLiteral("--config-file=") + configuration.fileName()});
    while (!m_daemon.canReadLine()) {
        if (!m_daemon.waitForReadyRead(StartTimeout)) {
            const QString reason = QString::fromLocal8Bit(m_daemon.readAllStandardError()).trimmed();
            m_problem = QStringLiteral("%1 does not start: %2")
                            .arg(program, reason.isEmpty() ? m_daemon.errorString() : reason);
            return;
        }
    }
    qputenv("DBUS_SESSION_BUS_ADDRESS", m_daemon.readLine().trimmed());
    connect(&m_daemon, &QProcess::stateChanged, this, &PrivateBus::lost);
}
