// SPDX-License-Identifier: BSD-3-Clause
#include "join.h"
#include "monitor.h"
#include "run.h"
#include "send_request.h"
#include "show_status.h"

#include <QtCore/QCoreApplication>

int main(int argc, char **argv)
{
    QStringList arguments; // all of them: QCoreApplication removes some that belong to the command
    for (int i = 0; i < argc; ++i)
        arguments.append(QString::fromLocal8Bit(argv[i]));
    const auto task = readCommandLine(arguments);
    if (const auto *options = std::get_if<RunOptions>(&task))
        return run(*options, argc, argv);
    const QCoreApplication application(argc, argv);
    if (const auto *options = std::get_if<JoinOptions>(&task))
        return join(*options);
    if (const auto *options = std::get_if<StatusOptions>(&task))
        return showStatus(*options);
    if (const auto *options = std::get_if<MonitorOptions>(&task))
        return monitor(*options);
    return sendRequest(std::get<ControlRequest>(task));
}
