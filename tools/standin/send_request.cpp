// SPDX-License-Identifier: BSD-3-Clause
#include "send_request.h"

#include "complain.h"
#include "exit_code.h"
#include "running_stand_in.h"

#include <cstdlib>

int sendRequest(const ControlRequest &request)
{
    const RunningStandIn standIn(request.name);
    if (!standIn.problem().isEmpty()) {
        complain(standIn.problem());
        return ExitCode::Bus;
    }
    const QDBusMessage reply = standIn.call(request.member, request.arguments);
    if (reply.type() != QDBusMessage::ReplyMessage) {
        const QStringList lines = reply.errorMessage().split(QLatin1Char('\n'));
        for (const QString &line : lines)
            complain(line);
        return EXIT_FAILURE;
    }
    const QVariantList results = reply.arguments();
    for (const QVariant &result : results)
        QTextStream(stdout) << result.toString() << Qt::endl;
    return EXIT_SUCCESS;
}
