// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <QtCore/QString>

/// A listening socket for a task. The constructor creates it together with its directories. The destructor closes the
/// descriptor, but keeps the file; the task removes it.
class TaskSocket
{
public:
    /// \param path of the socket; an existing file is replaced
    explicit TaskSocket(const QString &path);
    ~TaskSocket();
    Q_DISABLE_COPY(TaskSocket)

    /// The descriptor; negative if the socket could not be created, for the reason in problem().
    int descriptor() const { return m_descriptor; }
    QString problem() const { return m_problem; }

private:
    int m_descriptor = -1;
    QString m_problem;
};
