// SPDX-License-Identifier: BSD-3-Clause
#include "schedule.h"

namespace Corvane {

namespace {

const QString StartDate = QStringLiteral("StartDate");
const QString EndDate = QStringLiteral("EndDate");
const QString Months = QStringLiteral("Months");
const QString WeekDays = QStringLiteral("WeekDays");
const QString Hours = QStringLiteral("Hours");
const QString Minutes = QStringLiteral("Minutes");

} // namespace

Schedule::Schedule() = default;

Schedule::Schedule(const QVariantMap &map) : m_map(map) { }

Schedule::Schedule(const Schedule &other) = default;

Schedule &Schedule::operator=(const Schedule &other) = default;

Schedule::~Schedule() = default;

Schedule &Schedule::sinceDate(const QDateTime &date)
{
    m_map.insert(StartDate, date.toString(Qt::ISODate));
    return *this;
}

Schedule &Schedule::tillDate(const QDateTime &date)
{
    m_map.insert(EndDate, date.toString(Qt::ISODate));
    return *this;
}

Schedule &Schedule::onMonths(const QList<int> &months)
{
    m_map.insert(Months, QVariant::fromValue(months));
    return *this;
}

Schedule &Schedule::onWeekDays(const QList<int> &weekDays)
{
    m_map.insert(WeekDays, QVariant::fromValue(weekDays));
    return *this;
}

Schedule &Schedule::onHours(const QList<int> &hours)
{
    m_map.insert(Hours, QVariant::fromValue(hours));
    return *this;
}

Schedule &Schedule::onMinutes(const QList<int> &minutes)
{
    m_map.insert(Minutes, QVariant::fromValue(minutes));
    return *this;
}

QDateTime Schedule::startDate() const
{
    return m_map.value(StartDate).toDateTime();
}

QDateTime Schedule::endDate() const
{
    return m_map.value(EndDate).toDateTime();
}

QList<int> Schedule::months() const
{
    return m_map.value(Months).value<QList<int>>();
}

QList<int> Schedule::weekDays() const
{
    return m_map.value(WeekDays).value<QList<int>>();
}

QList<int> Schedule::hours() const
{
    return m_map.value(Hours).value<QList<int>>();
}

QList<int> Schedule::minutes() const
{
    return m_map.value(Minutes).value<QList<int>>();
}

} // namespace Corvane
