// SPDX-License-Identifier: BSD-3-Clause
#include "monitor.h"

#include "complain.h"
#include "exit_code.h"
#include "running_stand_in.h"
#include "trace.h"

#include <DBus/names.h>

#include <QtCore/QCoreApplication>
#include <QtCore/QDateTime>

#include <cstdlib>

namespace Names = Corvane::Names;

void TracePrinter::print(qlonglong time, const QString &line)
{
    QTextStream out(stdout);
    if (m_timestamps)
        out << Trace::time(QDateTime::fromMSecsSinceEpoch(time)) << ' ';
    out << line << Qt::endl;
}

int monitor(const MonitorOptions &options)
{
    const RunningStandIn standIn(options.name);
    if (!standIn.problem().isEmpty()) {
        complain(standIn.problem());
        return ExitCode::Bus;
    }
    QDBusConnection connection = standIn.connection();
    TracePrinter printer(options.timestamps);
    connection.connect(Names::ServiceRoot, Names::StandIn.path(), QLatin1String(Names::StandIn.interface),
                       QStringLiteral("Traced"), &printer, SLOT(print(qlonglong, QString)));
    connection.connect(QString(), QStringLiteral("/org/freedesktop/DBus/Local"),
                       QStringLiteral("org.freedesktop.DBus.Local"), QStringLiteral("Disconnected"), qApp,
                       SLOT(quit()));
    const QDBusMessage reply = standIn.call(QStringLiteral("StartMonitor"));
    if (reply.type() != QDBusMessage::ReplyMessage) {
        complain(reply.errorMessage());
        return EXIT_FAILURE;
    }
    complain(QStringLiteral("The monitor runs; end it with Ctrl-C"));
    return QCoreApplication::exec();
}
