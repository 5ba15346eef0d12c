// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <QtCore/QProcess>

/// A private session bus that a test can stop and kill. Construct it before the process uses any bus.
class BusDaemon : public QProcess
{
public:
    /// Starts the bus as the session bus of this process and of its children.
    explicit BusDaemon(const QString &configuration = CORVANE_BUS_CONFIGURATION);
    ~BusDaemon() override;

    /// Stops the process of the bus. It reads and sends nothing until goOn().
    void hang();
    void goOn();
    /// Kills the bus.
    void crash();

protected:
    void setupChildProcess() override;
};
