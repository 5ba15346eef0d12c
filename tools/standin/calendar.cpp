// SPDX-License-Identifier: BSD-3-Clause
#include "calendar.h"

#include <DBus/keys.h>
#include <DBus/variants.h>

#include <algorithm>
#include <ctime>
#include <optional>

namespace Keys = Corvane::Keys;

namespace {

QList<int> toNumbers(const QVariant &value)
{
    return Corvane::fromBus<QList<int>>(value);
}

QDateTime toDate(const QVariant &value)
{
    return QDateTime::fromString(value.toString(), Qt::ISODate);
}

/// Returns the offset of local time from UTC. QDateTime does not know the clock changes after 2037.
qint64 offsetAt(time_t time)
{
    tm local{};
    ::localtime_r(&time, &local);
    return local.tm_gmtoff;
}

/// Returns the first time after \a after at which clocks show \a local; nothing if a clock change skips it.
/// \param local the shown date and time, as if they were in UTC
std::optional<QDateTime> toTime(const QDateTime &local, qint64 after)
{
    const qint64 day = 86400;
    const qint64 shown = local.toSecsSinceEpoch();
    for (const qint64 offset : {offsetAt(shown - day), offsetAt(shown + day)}) { // before and after a clock change
        const qint64 time = shown - offset;
        if (offsetAt(time) == offset && time > after)
            return QDateTime::fromSecsSinceEpoch(time);
    }
    return {};
}

/// Returns whether the value is a text that is not a date, such as February 30.
bool isWrongDate(const QVariant &value)
{
    return value.userType() == QMetaType::QString && !value.toString().isEmpty() && !toDate(value).isValid();
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
    m_hasWrongDate = isWrongDate(map.value(Keys::StartDate)) || isWrongDate(map.value(Keys::EndDate));
    m_months = toNumbers(map.value(Keys::Months));
    m_weekDays = toNumbers(map.value(Keys::WeekDays));
    m_hours = toNumbers(map.value(Keys::Hours));
    m_minutes = toNumbers(map.value(Keys::Minutes));
    if (m_hours.isEmpty() && m_minutes.isEmpty())
        m_hours = {0};
    if (m_minutes.isEmpty())
        m_minutes = {0};
}

QDateTime Calendar::nextAfter(const QDateTime &time) const
{
    if (m_hasWrongDate)
        return {};
    const int horizon = 10 * 366; // days
    qint64 after = time.toSecsSinceEpoch();
    if (m_start.isValid())
        after = std::max(after, m_start.addMSecs(-1).toSecsSinceEpoch()); // the range includes the start date
    const QDateTime earliest = QDateTime::fromSecsSinceEpoch(after + offsetAt(after), Qt::UTC);
    for (int day = 0; day < horizon; ++day) {
        const QDate date = earliest.date().addDays(day);
        if (!matches(m_months, date.month()) || !matches(m_weekDays, date.dayOfWeek()))
            continue;
        for (int hour = 0; hour < 24; ++hour) {
            if (!matches(m_hours, hour))
                continue;
            for (int minute = 0; minute < 60; ++minute) {
                const QDateTime local(date, QTime(hour, minute), Qt::UTC);
                if (!matches(m_minutes, minute) || local <= earliest)
                    continue;
                if (const auto next = toTime(local, after))
                    return m_end.isValid() && *next > m_end ? QDateTime() : *next;
            }
        }
    }
    return {};
}
