// SPDX-License-Identifier: BSD-3-Clause
#include "run.h"
#include "send_request.h"

#include <QtCore/QCoreApplication>

int main(int argc, char **argv)
{
    QStringList arguments; // all of them: QCoreApplication removes some that belong to the command
    for (int i = 0; i < argc; ++i)
        arguments.append(QString::fromLocal8Bit(argv[i]));
    const QCoreApplication application(argc, argv);
    const auto task = readCommandLine(arguments);
    if (const auto *request = std::get_if<ControlRequest>(&task))
        return sendRequest(*request);
    return run(std::get<RunOptions>(task));
}
