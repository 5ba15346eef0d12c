// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <QtCore/QCoreApplication>

#include <csignal>

/// Ends the program. With the argument "stop", it first stops the process for inspection.
inline void onFirstReply()
{
    if (QCoreApplication::arguments().contains(QLatin1String("stop")))
        std::raise(SIGSTOP);
    QCoreApplication::quit();
}
