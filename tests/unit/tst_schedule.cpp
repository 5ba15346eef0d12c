// SPDX-License-Identifier: BSD-3-Clause
#include <Corvane/schedule.h>

#include <patience.h>

#include <QtTest/QtTest>

using namespace Corvane;

class TestSchedule : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void emptyScheduleIsAnEmptyMap();
    void gettersReturnTheSetValues();
    void datesKeepTheSecond_data();
    void datesKeepTheSecond();
    void listsAreStoredUnchanged();
    void laterCallReplacesTheEarlierOne();
    void buildersChainInPlace();
    void copiesAreIndependent();
    void mapsAreStoredUnchanged_data();
    void mapsAreStoredUnchanged();
};

void TestSchedule::emptyScheduleIsAnEmptyMap()
{
    for (const Schedule &schedule : {Schedule(), Schedule(QVariantMap())}) {
        QVERIFY(!schedule.startDate().isValid());
        QVERIFY(!schedule.endDate().isValid());
        QCOMPARE(schedule.months(), QList<int>());
        QCOMPARE(schedule.weekDays(), QList<int>());
        QCOMPARE(schedule.hours(), QList<int>());
        QCOMPARE(schedule.minutes(), QList<int>());
    }
}

void TestSchedule::gettersReturnTheSetValues()
{
    const QDateTime start(QDate(2030, 1, 2), QTime(3, 4, 5), Qt::UTC);
    const QDateTime end(QDate(2031, 1, 2), QTime(3, 4, 5), Qt::UTC);
    const auto schedule =
        Schedule().sinceDate(start).tillDate(end).onMonths({1}).onWeekDays({2, 3}).onHours({4}).onMinutes({5, 6});
    QCOMPARE(schedule.startDate(), start);
    QCOMPARE(schedule.endDate(), end);
    QCOMPARE(schedule.months(), QList<int>({1}));
    QCOMPARE(schedule.weekDays(), QList<int>({2, 3}));
    QCOMPARE(schedule.hours(), QList<int>({4}));
    QCOMPARE(schedule.minutes(), QList<int>({5, 6}));
}

void TestSchedule::datesKeepTheSecond_data()
{
    QTest::addColumn<QDateTime>("given");
    QTest::addColumn<QDateTime>("read");

    const QDate date(2030, 6, 30);
    QTest::newRow("local") << QDateTime(date, QTime(1, 2, 3)) << QDateTime(date, QTime(1, 2, 3));
    QTest::newRow("UTC") << QDateTime(date, QTime(1, 2, 3), Qt::UTC) << QDateTime(date, QTime(1, 2, 3), Qt::UTC);
    QTest::newRow("offset") << QDateTime(date, QTime(1, 2, 3), Qt::OffsetFromUTC, 5400)
                            << QDateTime(date, QTime(1, 2, 3), Qt::OffsetFromUTC, 5400);
    QTest::newRow("milliseconds") << QDateTime(date, QTime(1, 2, 3, 999)) << QDateTime(date, QTime(1, 2, 3));
    QTest::newRow("invalid") << QDateTime() << QDateTime();
}

void TestSchedule::datesKeepTheSecond()
{
    QFETCH(QDateTime, given);
    QFETCH(QDateTime, read);

    QCOMPARE(Schedule().sinceDate(given).startDate(), read);
    QCOMPARE(Schedule().tillDate(given).endDate(), read);
}

void TestSchedule::listsAreStoredUnchanged()
{
    const QList<int> numbers{0, 0, 75, -3, 13};
    QCOMPARE(Schedule().onMonths(numbers).months(), numbers);
    QCOMPARE(Schedule().onWeekDays(numbers).weekDays(), numbers);
    QCOMPARE(Schedule().onHours(numbers).hours(), numbers);
    QCOMPARE(Schedule().onMinutes(numbers).minutes(), numbers);
}

void TestSchedule::laterCallReplacesTheEarlierOne()
{
    QCOMPARE(Schedule().onHours({8, 20}).onHours({9}).hours(), QList<int>({9}));
    QCOMPARE(Schedule().onHours({8, 20}).onHours({}).hours(), QList<int>());
}

void TestSchedule::buildersChainInPlace()
{
    Schedule schedule;
    QCOMPARE(&schedule.onMonths({1}), &schedule);
    QCOMPARE(&schedule.sinceDate({}).tillDate({}).onWeekDays({}).onHours({}).onMinutes({}), &schedule);
    QCOMPARE(schedule.months(), QList<int>({1}));
}

void TestSchedule::copiesAreIndependent()
{
    Schedule schedule;
    schedule.onHours({1});
    const Schedule copy(schedule); // NOLINT(performance-unnecessary-copy-initialization): the test needs a copy
    Schedule assigned;
    assigned = schedule;
    schedule.onHours({2});
    QCOMPARE(copy.hours(), QList<int>({1}));
    QCOMPARE(assigned.hours(), QList<int>({1}));
    QCOMPARE(schedule.hours(), QList<int>({2}));
}

void TestSchedule::mapsAreStoredUnchanged_data()
{
    QTest::addColumn<QVariant>("value");
    QTest::addColumn<QList<int>>("numbers");
    QTest::addColumn<QDateTime>("date");

    const QDateTime date(QDate(2030, 1, 2), QTime(3, 4, 5), Qt::UTC);
    QTest::newRow("numbers") << QVariant::fromValue(QList<int>{1, 2}) << QList<int>{1, 2} << QDateTime();
    QTest::newRow("text") << QVariant("8") << QList<int>() << QDateTime();
    QTest::newRow("date in a text") << QVariant("2030-01-02T03:04:05Z") << QList<int>() << date;
    QTest::newRow("date") << QVariant(date) << QList<int>() << date;
    QTest::newRow("number") << QVariant(8) << QList<int>() << QDateTime();
    QTest::newRow("list of variants") << QVariant(QVariantList{1, 2}) << QList<int>() << QDateTime();
    QTest::newRow("nothing") << QVariant() << QList<int>() << QDateTime();
}

void TestSchedule::mapsAreStoredUnchanged()
{
    QFETCH(QVariant, value);
    QFETCH(QList<int>, numbers);
    QFETCH(QDateTime, date);

    const Schedule schedule({{"Hours", value}, {"StartDate", value}});
    QCOMPARE(schedule.hours(), numbers);
    QCOMPARE(schedule.startDate(), date);
    QCOMPARE(schedule.minutes(), QList<int>());
}

QTEST_GUILESS_MAIN(TestSchedule)
#include "tst_schedule.moc"
