// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <QtCore/QObject>

#include <csignal>

/// Converts SIGINT, SIGQUIT, SIGTERM and SIGHUP to a Qt signal, except those that are ignored (as with nohup). Create
/// the object before any thread starts: threads inherit the signal mask.
class TerminationSignals : public QObject
{
    Q_OBJECT
public:
    explicit TerminationSignals(QObject *parent = nullptr);
    ~TerminationSignals() override;

    /// The signals that are converted.
    static sigset_t handled();

Q_SIGNALS:
    void received(int signalNumber);

private:
    void read();

    int m_descriptor = -1;
};
