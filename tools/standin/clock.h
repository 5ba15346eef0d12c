// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <QtCore/QDateTime>
#include <QtCore/QObject>

/// The clock for tasks: the system time plus an offset that can be increased.
class Clock : public QObject
{
    Q_OBJECT
public:
    using QObject::QObject;

    QDateTime now() const { return QDateTime::currentDateTime().addMSecs(m_ahead); }
    void moveOn(qint64 milliseconds)
    {
        m_ahead += milliseconds;
        Q_EMIT moved();
    }

    /// Returns the time that \a text means: the next time after \a now for a time of day such as "03:00", or the time
    /// of an ISO 8601 string. Invalid for another text.
    static QDateTime read(const QString &text, const QDateTime &now);

Q_SIGNALS:
    void moved();

private:
    qint64 m_ahead = 0;
};
