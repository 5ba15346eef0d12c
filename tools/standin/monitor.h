// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "command_line.h"

#include <QtCore/QObject>

/// Prints the trace of a running stand-in until it ends. Returns the exit code.
int monitor(const MonitorOptions &options);

/// Prints the lines of the trace.
class TracePrinter : public QObject
{
    Q_OBJECT
public:
    explicit TracePrinter(bool timestamps) : m_timestamps(timestamps) { }

public Q_SLOTS:
    void print(qlonglong time, const QString &line);

private:
    const bool m_timestamps;
};
