// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <QtCore/QObject>
#include <QtCore/QPair>
#include <QtCore/QString>
#include <QtCore/QVector>

/// Lines of a table: what was counted, and how often.
using Rows = QVector<QPair<QString, QString>>;

/// One kind of work that is given to the library, again and again.
class Load : public QObject
{
    Q_OBJECT
public:
    /// Begins, or goes on.
    virtual void start() = 0;
    /// Begins nothing new. What has been begun is brought to its end.
    virtual void stop() = 0;
    /// What has not come to its end yet, for people; empty if nothing.
    virtual QString outstanding() const = 0;
    /// \param seconds how long it has been at work
    virtual Rows figures(double seconds) const = 0;
};
