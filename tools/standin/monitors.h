// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "trace.h"

#include <QtCore/QStringList>
#include <QtDBus/QDBusServiceWatcher>

/// Sends the lines of the trace to the connections that have asked for them.
class Monitors : public QObject
{
    Q_OBJECT
public:
    explicit Monitors(Trace *trace, QObject *parent = nullptr);
    ~Monitors() override { m_trace->setListener({}); }

    /// \param connection a unique bus name; it is removed when it disconnects
    void add(const QString &connection);

private:
    void send(const QString &line) const;

    Trace *const m_trace;
    QStringList m_connections;
    QDBusServiceWatcher m_watcher;
};
