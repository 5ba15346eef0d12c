// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <QtCore/QObject>
#include <QtCore/QPair>
#include <QtCore/QString>
#include <QtCore/QVector>

/// Lines of a table: a name and a number.
using Rows = QVector<QPair<QString, QString>>;

/// One kind of work that runs on the library repeatedly.
class Load : public QObject
{
    Q_OBJECT
public:
    /// Starts or continues the work.
    virtual void start() = 0;
    /// Starts no new work, and finishes the current work.
    virtual void stop() = 0;
    /// Returns a description of the unfinished work; empty if there is none.
    virtual QString outstanding() const = 0;
    /// Returns the results.
    /// \param seconds the total time of the work
    virtual Rows figures(double seconds) const = 0;
};
