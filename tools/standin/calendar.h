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
 *
 * The calendar agrees with the calendar events of systemd, also when clocks change: A time that clocks skip does not
 * match. A time that clocks show twice matches once, the first time. If a search begins after the first time, clocks do
 * not go back: when they are set back from 03:00 to 02:00, "minute 30" after the first 02:40 is 03:30, and after the
 * second 02:10 is 02:30.
 *
 * systemd also leaves out later times of the day on which clocks skip a listed hour, in the zones whose standard time
 * is that of summer (Europe/Dublin, Africa/Casablanca), or whose clocks skip parts of two hours or two hours
 * (Pacific/Chatham, Antarctica/Troll). This calendar does not.
 */
class Calendar
{
public:
    /// \param schedule the property of a task. Entries of another type and empty texts are ignored. A schedule with
    /// a start or end date that does not exist has no times.
    explicit Calendar(const QVariant &schedule);

    /// Whether the schedule has no entries.
    bool isEmpty() const { return m_isEmpty; }

    /// Returns the first time after \a time, or an invalid one if there is none within ten years.
    QDateTime nextAfter(const QDateTime &time) const;

private:
    bool m_isEmpty;
    QDateTime m_start;
    QDateTime m_end;
    bool m_hasWrongDate;
    QList<int> m_months;
    QList<int> m_weekDays;
    QList<int> m_hours;
    QList<int> m_minutes;
};
