// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <QtCore/QMap>
#include <QtCore/QMutex>
#include <QtCore/QStringList>

/// The failed expectations. Thread-safe, because warnings are logged in any thread.
class Findings
{
public:
    void add(const QString &expected, const QString &found);
    /// Returns a line for each failed expectation: the first failure, and the number of failures.
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
