// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "corvane_export.h"

#include <QtCore/QDateTime>
#include <QtCore/QList>
#include <QtCore/QVariantMap>

namespace Corvane {

/**
 * The calendar rule of a background task: an optional range of dates, and the months, week days, hours and minutes at
 * which the service is to run it.
 *
 * \code
 * const auto workdays = Corvane::Schedule().onWeekDays({1, 2, 3, 4, 5}).onHours({8}).onMinutes({0, 30});
 * \endcode
 *
 * A value: cheap to copy. Builders change it in place, and a second call replaces what the first one set. Numbers are
 * kept as they are given, unchecked and unsorted; how months and week days are counted, and how the lists combine, is
 * the service's.
 */
class CORVANE_EXPORT Schedule
{
public:
    /// A schedule that says nothing.
    Schedule();
    /// A schedule of the properties in \a map, taken as they are. JSON and values from the bus may be among them; for
    /// what D-Bus cannot carry see Task::start().
    Schedule(const QVariantMap &map);
    Schedule(const Schedule &other);
    Schedule &operator=(const Schedule &other);
    ~Schedule();

    /// The dates travel as ISO 8601 texts, to the second; of a time zone they keep the offset at most.
    Schedule &sinceDate(const QDateTime &date);
    Schedule &tillDate(const QDateTime &date);
    Schedule &onMonths(const QList<int> &months);
    Schedule &onWeekDays(const QList<int> &weekDays);
    Schedule &onHours(const QList<int> &hours);
    Schedule &onMinutes(const QList<int> &minutes);

    /// Invalid if it was not set, or is no date.
    QDateTime startDate() const;
    QDateTime endDate() const;
    /// Empty if it was not set, or is no list of numbers.
    QList<int> months() const;
    QList<int> weekDays() const;
    QList<int> hours() const;
    QList<int> minutes() const;

private:
    friend class Task;

    QVariantMap m_map;
};

} // namespace Corvane
