// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <QtCore/QProcess>

/// A session bus of the test's own, which can hang and die. It has to be there before the process uses any bus.
class BusDaemon : public QProcess
{
public:
    /// Starts the bus, and makes it that of this process and of all that it starts.
    explicit BusDaemon(const QString &configuration = CORVANE_BUS_CONFIGURATION);
    ~BusDaemon() override;

    /// Has the bus hang: on return it takes nothing and answers nothing, until it may go on.
    void hang();
    void goOn();
    /// Ends the bus as a crash would.
    void crash();

protected:
    void setupChildProcess() override;
};
