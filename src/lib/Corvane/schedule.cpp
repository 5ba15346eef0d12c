// SPDX-License-Identifier: BSD-3-Clause
#include "schedule.h"

#include <DBus/keys.h>
#include <DBus/variants.h>

#include <QtCore/QDebug>

#include <algorithm>
#include <optional>

namespace Corvane {

namespace {

/// Returns the list of integers that a builder stored or that the bus sent; nothing if the value has another type.
std::optional<QList<int>> toNumbers(const QVariant &value)
{
    if (isUnread<QList<int>>(value) || value.userType() == qMetaTypeId<QList<int>>())
        return fromBus<QList<int>>(value);
    return {};
}

/// Returns an invalid date if the value is not a text: values of other types are not sent as ISO 8601 strings.
QDateTime toDate(const QVariant &value)
{
    const bool isText = value.userType() == QMetaType::QString || value.userType() == QMetaType::QJsonValue;
    return isText ? QDateTime::fromString(value.toString(), Qt::ISODate) : QDateTime();
}

/// QVariant compares lists of integers by address, and converts values of different types.
bool areEqual(const QVariant &a, const QVariant &b)
{
    const auto numbers = toNumbers(a);
    return numbers ? numbers == toNumbers(b) : a.userType() == b.userType() && a == b;
}

QStringList numberProblems(const QString &key, const QVariant &value, int first, int last)
{
    const auto numbers = toNumbers(value);
    if (!numbers)
        return {QStringLiteral("\"%1\" is not a QList<int>").arg(key)};
    if (numbers->isEmpty())
        return {QStringLiteral("\"%1\" is an empty list").arg(key)};
    QStringList problems;
    for (const int number : *numbers) {
        if (number < first || number > last)
            problems << QStringLiteral("\"%1\" contains %2, which is not between %3 and %4")
                            .arg(key, QString::number(number), QString::number(first), QString::number(last));
    }
    return problems;
}

} // namespace

Schedule::Schedule() = default;

Schedule::Schedule(const QVariantMap &map) : m_map(map) { }

Schedule::Schedule(const Schedule &other) = default;

Schedule &Schedule::operator=(const Schedule &other) = default;

Schedule::~Schedule() = default;

Schedule Schedule::dailyAt(QTime time)
{
    return Schedule().onHours({time.hour()}).onMinutes({time.minute()});
}

Schedule Schedule::weeklyAt(const QList<Qt::DayOfWeek> &weekDays, QTime time)
{
    QList<int> numbers;
    for (const Qt::DayOfWeek weekDay : weekDays)
        numbers << weekDay;
    return dailyAt(time).onWeekDays(numbers);
}

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

QStringList Schedule::problems() const
{
    QStringList problems;
    for (auto entry = m_map.begin(); entry != m_map.end(); ++entry) {
        const QString &key = entry.key();
        if (key == Keys::Months)
            problems << numberProblems(key, *entry, 1, 12);
        else if (key == Keys::WeekDays)
            problems << numberProblems(key, *entry, Qt::Monday, Qt::Sunday);
        else if (key == Keys::Hours)
            problems << numberProblems(key, *entry, 0, 23);
        else if (key == Keys::Minutes)
            problems << numberProblems(key, *entry, 0, 59);
        else if (key != Keys::StartDate && key != Keys::EndDate)
            problems << QStringLiteral("\"%1\" is not a property of a schedule").arg(key);
        else if (!toDate(*entry).isValid())
            problems << QStringLiteral("\"%1\" is not a date in ISO 8601 format").arg(key);
    }
    const QDateTime start = toDate(m_map.value(Keys::StartDate));
    const QDateTime end = toDate(m_map.value(Keys::EndDate));
    if (start.isValid() && end.isValid() && end < start)
        problems << QStringLiteral("\"%1\" is before \"%2\"").arg(Keys::EndDate, Keys::StartDate);
    return problems;
}

bool Schedule::operator==(const Schedule &other) const
{
    return std::equal(m_map.keyValueBegin(), m_map.keyValueEnd(), other.m_map.keyValueBegin(),
                      other.m_map.keyValueEnd(),
                      [](const auto &a, const auto &b) { return a.first == b.first && areEqual(a.second, b.second); });
}

QDebug operator<<(QDebug debug, const Schedule &schedule)
{
    const QDebugStateSaver saver(debug);
    debug.nospace() << "Corvane::Schedule(";
    const char *separator = "";
    for (auto entry = schedule.m_map.begin(); entry != schedule.m_map.end(); ++entry) {
        debug.noquote().nospace() << separator << entry.key() << ": ";
        debug.quote();
        if (const auto numbers = toNumbers(*entry))
            debug << *numbers;
        else if (entry->userType() == QMetaType::QString)
            debug << entry->toString();
        else
            debug << *entry;
        separator = ", ";
    }
    debug.nospace() << ')';
    return debug;
}

} // namespace Corvane
