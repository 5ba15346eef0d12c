// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <QtCore/QDateTime>
#include <QtCore/QList>
#include <QtCore/QVariant>

/**
 * The times that the "Schedule" of a task names: each minute whose month, week day, hour and minute are listed.
 *
 * Months count from 1 to 12, week days from 1 (Monday) to 7, hours from 0 to 23, minutes from 0 to 59, in local time.
 * Months and week days that are not listed are all; hours are all if minutes are listed, and else 0; minutes are 0.
 */
class Calendar
{
public:
    /// \param schedule as it came from the bus or from a manifest; what is of another type counts as not given
    explicit Calendar(const QVariant &schedule);

    /// Whether there is a rule at all.
    bool isEmpty() const { return m_isEmpty; }

    /// The first of the times that is not before \a earliest; invalid if there is none within ten years.
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
