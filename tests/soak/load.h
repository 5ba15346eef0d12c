// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <QtCore/QObject>
#include <QtCore/QPair>
#include <QtCore/QString>
#include <QtCore/QVector>

/// Lines of a table: what was counted, and how often.
using Rows = QVector<QPair<QString, QString>>;

/// One kind of work that runs on the library repeatedly.
class Load : public QObject
{
    Q_OBJECT
public:
    /// Begins, or goes on.
    virtual void start() = 0;
    /// Starts no new work, and finishes the current work.
    virtual void stop() = 0;
    /// Returns a text about unfinished work; empty if there is none.
    virtual QString outstanding() const = 0;
    /// \param seconds how long it has been at work
    virtual Rows figures(double seconds) const = 0;
};
