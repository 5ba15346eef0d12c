// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <QtCore/QCoreApplication>

#include <csignal>

/// Ends the program; before that, with the argument "stop", it stops for whoever wants to look at it.
inline void onFirstReply()
{
    if (QCoreApplication::arguments().contains(QLatin1String("stop")))
        std::raise(SIGSTOP);
    QCoreApplication::quit();
}
