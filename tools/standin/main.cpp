// SPDX-License-Identifier: BSD-3-Clause
#include "run.h"
#include "send_request.h"

#include <QtCore/QCoreApplication>

int main(int argc, char **argv)
{
    const QCoreApplication application(argc, argv);
    const auto task = readCommandLine(QCoreApplication::arguments());
    if (const auto *request = std::get_if<ControlRequest>(&task))
        return sendRequest(*request);
    return run(std::get<RunOptions>(task));
}
