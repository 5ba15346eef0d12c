// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "corvane_export.h"

#include <QtCore/QDateTime>
#include <QtCore/QList>
#include <QtCore/QStringList>
#include <QtCore/QTime>
#include <QtCore/QVariantMap>
#include <QtCore/Qt>

class QDebug;

namespace Corvane {

/**
 * The calendar rule of a background task: an optional range of dates, and the months, week days, hours and minutes at
 * which the service runs the task.
 *
 * \code
 * const auto daily = Corvane::Schedule::dailyAt({3, 0});
 * const auto workdays = Corvane::Schedule().onWeekDays({1, 2, 3, 4, 5}).onHours({8}).onMinutes({0, 30});
 * for (const QString &problem : workdays.problems())
 *     qWarning() << problem;
 * \endcode
 *
 * Schedule is an implicitly shared value class. Builders modify the schedule in place; a second call replaces the value
 * of the first one. Numbers are stored unchecked and unsorted; problems() checks them. The service defines how the
 * lists are combined, and the time zone; corvane-standin uses the local time, minute 0 without minutes, and hour 0
 * without hours and minutes. See also docs/limits.md.
 */
class CORVANE_EXPORT Schedule
{
public:
    /// Creates an empty schedule.
    Schedule();
    /// Creates a schedule with the properties in \a map, unchanged. A list of numbers from JSON is not a QList<int>: it
    /// is sent as another type of D-Bus, which the service may ignore. problems() reports it. Task::start() describes
    /// the handling of values that D-Bus cannot represent.
    Schedule(const QVariantMap &map);
    /// Creates a copy of \a other.
    Schedule(const Schedule &other);
    /// Assigns \a other to this schedule.
    Schedule &operator=(const Schedule &other);
    /// Destroys the schedule.
    ~Schedule();

    /// Returns a schedule that runs the task once on each day, at the hour and the minute of \a time.
    static Schedule dailyAt(QTime time);
    /// Returns a schedule that runs the task once on each of the week days, at the hour and the minute of \a time.
    static Schedule weeklyAt(const QList<Qt::DayOfWeek> &weekDays, QTime time);

    /// Sets the start of the range of dates. It is sent as an ISO 8601 string, without milliseconds. A time zone is
    /// reduced to its offset.
    Schedule &sinceDate(const QDateTime &date);
    /// Sets the end of the range of dates. It is sent in the same form as the start.
    Schedule &tillDate(const QDateTime &date);
    /// Sets the months, from 1 (January) to 12.
    Schedule &onMonths(const QList<int> &months);
    /// Sets the week days, from 1 (Monday) to 7.
    Schedule &onWeekDays(const QList<int> &weekDays);
    /// Sets the hours, from 0 to 23.
    Schedule &onHours(const QList<int> &hours);
    /// Sets the minutes, from 0 to 59.
    Schedule &onMinutes(const QList<int> &minutes);

    /// Returns the start of the range of dates; invalid if it is not set or is not a date.
    QDateTime startDate() const;
    /// Returns the end of the range of dates; invalid if it is not set or is not a date.
    QDateTime endDate() const;
    /// Returns the months; empty if they are not set or are not a list of numbers.
    QList<int> months() const;
    /// Returns the week days; empty if they are not set or are not a list of numbers.
    QList<int> weekDays() const;
    /// Returns the hours; empty if they are not set or are not a list of numbers.
    QList<int> hours() const;
    /// Returns the minutes; empty if they are not set or are not a list of numbers.
    QList<int> minutes() const;

    /**
     * Returns a sentence in English for each error in the schedule, such as "\"Hours\" contains 25, which is not
     * between 0 and 23". The list is empty if there is no error. No other function checks the schedule, and
     * Task::start() sends it in any case.
     *
     * Errors are: a month that is not between 1 and 12, a week day that is not between 1 (Monday) and 7, an hour that
     * is not between 0 and 23, a minute that is not between 0 and 59, an empty list, a value that is neither a list of
     * integers nor a date in ISO 8601 format, an unknown key, and an end date before the start date.
     */
    QStringList problems() const;

    /// Returns true if both schedules have the same properties with equal values. Lists with the same numbers in
    /// another order, and dates with another time zone, are not equal. A list of integers from the bus equals the list
    /// of a builder. All other values are compared as QVariant compares them.
    bool operator==(const Schedule &other) const;
    /// Returns true if the schedules are not equal.
    bool operator!=(const Schedule &other) const { return !(*this == other); }

    /// Prints all properties of the schedule, such as Corvane::Schedule(Hours: (8), Minutes: (0, 30)).
    friend CORVANE_EXPORT QDebug operator<<(QDebug debug, const Schedule &schedule);

private:
    friend class Task;

    QVariantMap m_map;
};

} // namespace Corvane
