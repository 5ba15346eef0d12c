// SPDX-License-Identifier: BSD-3-Clause
#include "calendar.h"

#include <DBus/keys.h>
#include <DBus/variants.h>

#include <algorithm>

namespace Keys = Corvane::Keys;

namespace {

QList<int> toNumbers(const QVariant &value)
{
    auto numbers = Corvane::fromBus<QList<int>>(value);
    const QVariantList list = value.toList(); // of a manifest
    for (const QVariant &element : list)
        numbers.append(element.toInt());
    return numbers;
}

QDateTime toDate(const QVariant &value)
{
    return QDateTime::fromString(value.toString(), Qt::ISODate);
}

bool matches(const QList<int> &list, int number)
{
    return list.isEmpty() || list.contains(number);
}

} // namespace

Calendar::Calendar(const QVariant &schedule)
{
    const auto map = Corvane::fromBus<QVariantMap>(schedule);
    m_isEmpty = map.isEmpty();
    m_start = toDate(map.value(Keys::StartDate));
    m_end = toDate(map.value(Keys::EndDate));
    m_months = toNumbers(map.value(Keys::Months));
    m_weekDays = toNumbers(map.value(Keys::WeekDays));
    m_hours = toNumbers(map.value(Keys::Hours));
    m_minutes = toNumbers(map.value(Keys::Minutes));
    if (m_hours.isEmpty() && m_minutes.isEmpty())
        m_hours = {0};
    if (m_minutes.isEmpty())
        m_minutes = {0};
}

QDateTime Calendar::next(const QDateTime &earliest) const
{
    const int horizon = 10 * 366; // days
    const QDateTime first = (m_start.isValid() ? std::max(earliest, m_start) : earliest).toLocalTime();
    for (int day = 0; day < horizon; ++day) {
        const QDate date = first.date().addDays(day);
        if (m_end.isValid() && date > m_end.toLocalTime().date())
            return {};
        if (!matches(m_months, date.month()) || !matches(m_weekDays, date.dayOfWeek()))
            continue;
        for (int hour = 0; hour < 24; ++hour) {
            if (!matches(m_hours, hour))
                continue;
            for (int minute = 0; minute < 60; ++minute) {
                if (!matches(m_minutes, minute))
                    continue;
                const QDateTime time(date, QTime(hour, minute));
                if (time < first)
                    continue;
                return m_end.isValid() && time > m_end ? QDateTime() : time;
            }
        }
    }
    return {};
}
