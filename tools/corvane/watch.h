// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <Corvane/error.h>
#include <Corvane/service_monitor.h>

#include <QtCore/QJsonObject>
#include <QtCore/QString>

struct Invocation;

/// Prints lines until SIGINT, SIGTERM, the loss of the bus, or the number of lines of --count.
class Watch
{
public:
    explicit Watch(const Invocation &invocation);
    Q_DISABLE_COPY(Watch)

    void print(const QString &text, const QJsonObject &object);
    /// Runs the event loop. Returns the exit code.
    int run(const QString &subject);

private:
    void onAvailableChanged(bool available);

    Corvane::ServiceMonitor m_monitor;
    int m_count; ///< The number of lines to print; 0 without a limit.
    int m_printed = 0;
};
