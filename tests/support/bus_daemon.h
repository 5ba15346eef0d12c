// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <QtCore/QProcess>

/// A private session bus that can hang and die. Must be constructed before the process uses any bus.
class BusDaemon : public QProcess
{
public:
    /// Starts the bus as the session bus of this process and of its children.
    explicit BusDaemon(const QString &configuration = CORVANE_BUS_CONFIGURATION);
    ~BusDaemon() override;

    /// Stops the bus: on return it reads and sends nothing until goOn().
    void hang();
    void goOn();
    /// Kills the bus.
    void crash();

protected:
    void setupChildProcess() override;
};
