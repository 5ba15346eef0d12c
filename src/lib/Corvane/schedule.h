// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "corvane_export.h"

#include <QtCore/QDateTime>
#include <QtCore/QList>
#include <QtCore/QVariantMap>

class QDebug;

namespace Corvane {

/**
 * The calendar rule of a background task: an optional range of dates, and the months, week days, hours and minutes at
 * which the service runs the task.
 *
 * \code
 * const auto workdays = Corvane::Schedule().onWeekDays({1, 2, 3, 4, 5}).onHours({8}).onMinutes({0, 30});
 * \endcode
 *
 * Schedule is an implicitly shared value class. Builders modify the schedule in place; a second call replaces the value
 * of the first one. Numbers are stored unchecked and unsorted. The service defines the numbering of months and week
 * days, and the combination of the lists. See also docs/compatibility.md.
 */
class CORVANE_EXPORT Schedule
{
public:
    /// Creates an empty schedule.
    Schedule();
    /// Creates a schedule with the properties in \a map, unchanged. They may include JSON and values received from the
    /// bus. Task::start() describes the handling of values that D-Bus cannot represent.
    Schedule(const QVariantMap &map);
    Schedule(const Schedule &other);
    Schedule &operator=(const Schedule &other);
    ~Schedule();

    /// Dates are sent as ISO 8601 strings, without milliseconds. A time zone is reduced to its offset.
    Schedule &sinceDate(const QDateTime &date);
    Schedule &tillDate(const QDateTime &date);
    Schedule &onMonths(const QList<int> &months);
    Schedule &onWeekDays(const QList<int> &weekDays);
    Schedule &onHours(const QList<int> &hours);
    Schedule &onMinutes(const QList<int> &minutes);

    /// Returns an invalid date-time if the value is not set or is not a date.
    QDateTime startDate() const;
    QDateTime endDate() const;
    /// Returns an empty list if the value is not set or is not a list of numbers.
    QList<int> months() const;
    QList<int> weekDays() const;
    QList<int> hours() const;
    QList<int> minutes() const;

    /// Prints all properties of the schedule, such as Corvane::Schedule(Hours: (8), Minutes: (0, 30)).
    friend CORVANE_EXPORT QDebug operator<<(QDebug debug, const Schedule &schedule);

private:
    friend class Task;

    QVariantMap m_map;
};

} // namespace Corvane
