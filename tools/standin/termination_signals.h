// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <QtCore/QObject>

/// Turns SIGINT, SIGQUIT, SIGTERM and SIGHUP into a Qt signal, but for those that are ignored, as by nohup. Make it
/// before any thread starts, which then leaves them alone.
class TerminationSignals : public QObject
{
    Q_OBJECT
public:
    explicit TerminationSignals(QObject *parent = nullptr);
    ~TerminationSignals() override;

Q_SIGNALS:
    void received(int signalNumber);

private:
    void read();

    int m_descriptor = -1;
};
