// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <QtCore/QDateTime>
#include <QtCore/QList>
#include <QtCore/QVariant>

/**
 * The times in the "Schedule" of a task: all minutes whose month, week day, hour and minute are listed.
 *
 * Months count from 1 to 12, week days from 1 (Monday) to 7, hours from 0 to 23, minutes from 0 to 59, in local time.
 * The default for months and week days is all of them. The default for hours is all of them if minutes are listed, else
 * 0. The default for minutes is 0.
 */
class Calendar
{
public:
    /// \param schedule the value from the bus or from a manifest; entries of another type are ignored
    explicit Calendar(const QVariant &schedule);

    /// Whether the schedule has no entries.
    bool isEmpty() const { return m_isEmpty; }

    /// Returns the first time that is not before \a earliest, or an invalid one if there is none within ten years.
    QDateTime next(const QDateTime &earliest) const;

private:
    bool m_isEmpty;
    QDateTime m_start;
    QDateTime m_end;
    QList<int> m_months;
    QList<int> m_weekDays;
    QList<int> m_hours;
    QList<int> m_minutes;
};
