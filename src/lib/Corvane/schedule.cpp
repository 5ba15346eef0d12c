// SPDX-License-Identifier: BSD-3-Clause
#include "schedule.h"

#include <DBus/keys.h>

namespace Corvane {

Schedule::Schedule() = default;

Schedule::Schedule(const QVariantMap &map) : m_map(map) { }

Schedule::Schedule(const Schedule &other) = default;

Schedule &Schedule::operator=(const Schedule &other) = default;

Schedule::~Schedule() = default;

Schedule &Schedule::sinceDate(const QDateTime &date)
{
    m_map.insert(Keys::StartDate, date.toString(Qt::ISODate));
    return *this;
}

Schedule &Schedule::tillDate(const QDateTime &date)
{
    m_map.insert(Keys::EndDate, date.toString(Qt::ISODate));
    return *this;
}

Schedule &Schedule::onMonths(const QList<int> &months)
{
    m_map.insert(Keys::Months, QVariant::fromValue(months));
    return *this;
}

Schedule &Schedule::onWeekDays(const QList<int> &weekDays)
{
    m_map.insert(Keys::WeekDays, QVariant::fromValue(weekDays));
    return *this;
}

Schedule &Schedule::onHours(const QList<int> &hours)
{
    m_map.insert(Keys::Hours, QVariant::fromValue(hours));
    return *this;
}

Schedule &Schedule::onMinutes(const QList<int> &minutes)
{
    m_map.insert(Keys::Minutes, QVariant::fromValue(minutes));
    return *this;
}

QDateTime Schedule::startDate() const
{
    return m_map.value(Keys::StartDate).toDateTime();
}

QDateTime Schedule::endDate() const
{
    return m_map.value(Keys::EndDate).toDateTime();
}

QList<int> Schedule::months() const
{
    return m_map.value(Keys::Months).value<QList<int>>();
}

QList<int> Schedule::weekDays() const
{
    return m_map.value(Keys::WeekDays).value<QList<int>>();
}

QList<int> Schedule::hours() const
{
    return m_map.value(Keys::Hours).value<QList<int>>();
}

QList<int> Schedule::minutes() const
{
    return m_map.value(Keys::Minutes).value<QList<int>>();
}

} // namespace Corvane
