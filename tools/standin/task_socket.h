// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <QtCore/QString>

/// A socket at which a task is to listen: made and bound, with its directories. The descriptor is closed at the end;
/// the file stays, for whoever listens to remove.
class TaskSocket
{
public:
    /// \param path is replaced if there is something
    explicit TaskSocket(const QString &path);
    ~TaskSocket();
    Q_DISABLE_COPY(TaskSocket)

    /// Negative if there is none; problem() tells why then.
    int descriptor() const { return m_descriptor; }
    QString problem() const { return m_problem; }

private:
    int m_descriptor = -1;
    QString m_problem;
};
