// SPDX-License-Identifier: BSD-3-Clause
#include "send_request.h"

#include "complain.h"
#include "exit_code.h"

#include <DBus/names.h>

#include <QtDBus/QDBusConnection>
#include <QtDBus/QDBusMessage>

#include <cstdlib>
#include <limits>

using namespace Corvane;

int sendRequest(const ControlRequest &request)
{
    QDBusMessage call = QDBusMessage::createMethodCall(Names::ServiceRoot, Names::StandIn.path(),
                                                       QLatin1String(Names::StandIn.interface), request.member);
    call.setArguments(request.arguments);
    const int noLimit = std::numeric_limits<int>::max();
    const QDBusMessage reply = QDBusConnection::sessionBus().call(call, QDBus::Block, noLimit);
    if (reply.type() == QDBusMessage::ReplyMessage) {
        const QVariantList results = reply.arguments();
        for (const QVariant &result : results)
            QTextStream(stdout) << result.toString() << Qt::endl;
        return EXIT_SUCCESS;
    }

    static const QStringList absent{
        QStringLiteral("org.freedesktop.DBus.Error.Disconnected"), // no bus
        QStringLiteral("org.freedesktop.DBus.Error.ServiceUnknown"),
        QStringLiteral("org.freedesktop.DBus.Error.UnknownObject"), // the service of a device
    };
    if (absent.contains(reply.errorName())) {
        complain(QStringLiteral("There is no stand-in on this session bus; see \"corvane-standin --help\""));
        return ExitCode::Bus;
    }
    complain(reply.errorMessage());
    return EXIT_FAILURE;
}
