// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "record.h"

#include <QtDBus/QDBusConnection>
#include <QtDBus/QDBusMessage>

#include <optional>

/// The stand-in that a command uses.
class RunningStandIn
{
public:
    /// Finds the stand-in with this name. With an empty name: that of the session bus, or else the only one that is
    /// running.
    explicit RunningStandIn(const QString &name);

    /// The reason why there is none, for people; empty if there is one.
    QString problem() const { return m_problem; }
    /// Whether no stand-in is running. A problem may also be that several are running.
    bool isAbsent() const { return m_isAbsent; }

    QDBusConnection connection() const { return m_connection; }
    /// Calls a method of its control object, and blocks until the reply.
    QDBusMessage call(const QString &member, const QVariantList &arguments = {}) const;

    /// Sets the environment of this process to that of the processes that the stand-in starts.
    void enter() const;

private:
    QDBusConnection m_connection;
    std::optional<StandInRecord> m_record; ///< none if the session bus is that of the stand-in
    QString m_problem;
    bool m_isAbsent = false;
};
