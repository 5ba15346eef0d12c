// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <QtCore/QMap>
#include <QtCore/QMutex>
#include <QtCore/QStringList>

/// What went wrong. May be told from any thread, since warnings are logged from any.
class Findings
{
public:
    void add(const QString &expected, const QString &found);
    /// For people, one line for each expectation that was not met: how it was not, the first time, and how often.
    QStringList lines() const;

private:
    struct Finding
    {
        QString first;
        int count = 0;
    };
    mutable QMutex m_mutex;
    QMap<QString, Finding> m_findings;
};
