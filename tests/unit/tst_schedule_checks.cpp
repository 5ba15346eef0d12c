// SPDX-License-Identifier: BSD-3-Clause
#include <Corvane/schedule.h>

#include <patience.h>

#include <QtCore/QDateTime>
#include <QtCore/QJsonArray>
#include <QtCore/QJsonValue>
#include <QtTest/QtTest>

using Corvane::Schedule;

Q_DECLARE_METATYPE(Corvane::Schedule)

class TestScheduleChecks : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void dailyScheduleHasHourAndMinute();
    void weeklyScheduleHasWeekDaysToo();
    void invalidTimeIsAProblem();
    void problemsAreNamed_data();
    void problemsAreNamed();
    void schedulesAreCompared_data();
    void schedulesAreCompared();
};

void TestScheduleChecks::dailyScheduleHasHourAndMinute()
{
    QCOMPARE(Schedule::dailyAt({3, 5, 59}), Schedule().onHours({3}).onMinutes({5}));
    QCOMPARE(Schedule::dailyAt({0, 0}).problems(), QStringList());
    QCOMPARE(Schedule::dailyAt({23, 59}).problems(), QStringList());
}

void TestScheduleChecks::weeklyScheduleHasWeekDaysToo()
{
    QCOMPARE(Schedule::weeklyAt({Qt::Sunday, Qt::Monday}, {20, 30}),
             Schedule().onWeekDays({7, 1}).onHours({20}).onMinutes({30}));
    QCOMPARE(Schedule::weeklyAt({Qt::Sunday, Qt::Monday}, {20, 30}).problems(), QStringList());
    QCOMPARE(Schedule::weeklyAt({}, {20, 30}).problems(), QStringList("\"WeekDays\" is an empty list"));
}

void TestScheduleChecks::invalidTimeIsAProblem()
{
    QCOMPARE(Schedule::dailyAt({}).problems(),
             QStringList({"\"Hours\" contains -1, which is not between 0 and 23",
                          "\"Minutes\" contains -1, which is not between 0 and 59"}));
}

void TestScheduleChecks::problemsAreNamed_data()
{
    QTest::addColumn<Schedule>("schedule");
    QTest::addColumn<QStringList>("problems");

    const auto row = [](const char *tag, const Schedule &schedule, const QStringList &problems = {}) {
        QTest::newRow(tag) << schedule << problems;
    };
    const auto value = [](const char *key, const QVariant &content) { return Schedule(QVariantMap{{key, content}}); };
    const QDateTime noon({2030, 1, 2}, {12, 0}, Qt::UTC);

    row("empty schedule", Schedule());
    row("first numbers", Schedule().onMonths({1}).onWeekDays({1}).onHours({0}).onMinutes({0}));
    row("last numbers", Schedule().onMonths({12}).onWeekDays({7}).onHours({23}).onMinutes({59}));
    row("numbers below", Schedule().onMonths({0}).onWeekDays({0}).onHours({-1}).onMinutes({-1}),
        {"\"Hours\" contains -1, which is not between 0 and 23",
         "\"Minutes\" contains -1, which is not between 0 and 59",
         "\"Months\" contains 0, which is not between 1 and 12",
         "\"WeekDays\" contains 0, which is not between 1 and 7"});
    row("numbers above", Schedule().onMonths({13}).onWeekDays({8}).onHours({24}).onMinutes({60}),
        {"\"Hours\" contains 24, which is not between 0 and 23",
         "\"Minutes\" contains 60, which is not between 0 and 59",
         "\"Months\" contains 13, which is not between 1 and 12",
         "\"WeekDays\" contains 8, which is not between 1 and 7"});
    row("some numbers", Schedule().onHours({25, 8, -2}),
        {"\"Hours\" contains 25, which is not between 0 and 23",
         "\"Hours\" contains -2, which is not between 0 and 23"});
    row("unsorted and repeated numbers", Schedule().onHours({20, 8, 20}));
    row("empty lists", Schedule().onMonths({}).onHours({}),
        {"\"Hours\" is an empty list", "\"Months\" is an empty list"});

    row("dates", Schedule().sinceDate(noon).tillDate(noon.addSecs(1)));
    row("same dates", Schedule().sinceDate(noon).tillDate(noon));
    row("end before start", Schedule().sinceDate(noon).tillDate(noon.addSecs(-1)),
        {"\"EndDate\" is before \"StartDate\""});
    row("end before start in another time zone",
        Schedule().sinceDate(noon).tillDate(QDateTime({2030, 1, 2}, {13, 0}, Qt::OffsetFromUTC, 7200)),
        {"\"EndDate\" is before \"StartDate\""});
    row("invalid dates", Schedule().sinceDate({}).tillDate({}),
        {"\"EndDate\" is not a date in ISO 8601 format", "\"StartDate\" is not a date in ISO 8601 format"});
    row("date without a time", value("StartDate", "2030-01-02"));
    row("date in JSON", value("StartDate", QJsonValue("2030-01-02T03:04:05Z")));
    row("date in words", value("StartDate", "tomorrow"), {"\"StartDate\" is not a date in ISO 8601 format"});
    row("date that is no text", value("EndDate", noon), {"\"EndDate\" is not a date in ISO 8601 format"});
    row("date that is a number", value("EndDate", 2030), {"\"EndDate\" is not a date in ISO 8601 format"});

    row("number", value("Hours", 8), {"\"Hours\" is not a QList<int>"});
    row("list of variants", value("Hours", QVariantList{8}), {"\"Hours\" is not a QList<int>"});
    row("array", value("Minutes", QJsonArray{8}), {"\"Minutes\" is not a QList<int>"});
    row("nothing", value("Months", {}), {"\"Months\" is not a QList<int>"});
    row("unknown key", value("hours", QVariant::fromValue(QList<int>{8})),
        {"\"hours\" is not a property of a schedule"});
    row("empty key", value("", {}), {"\"\" is not a property of a schedule"});
}

void TestScheduleChecks::problemsAreNamed()
{
    QFETCH(Schedule, schedule);
    QFETCH(QStringList, problems);

    QCOMPARE(schedule.problems(), problems);
}

void TestScheduleChecks::schedulesAreCompared_data()
{
    QTest::addColumn<Schedule>("a");
    QTest::addColumn<Schedule>("b");
    QTest::addColumn<bool>("equal");

    const auto value = [](const QVariant &content) { return Schedule(QVariantMap{{"x", content}}); };
    const QDateTime noon({2030, 1, 2}, {12, 0}, Qt::UTC);

    QTest::newRow("empty") << Schedule() << Schedule(QVariantMap()) << true;
    QTest::newRow("lists") << Schedule().onHours({8, 20}) << Schedule().onHours({8, 20}) << true;
    QTest::newRow("list in another order") << Schedule().onHours({8, 20}) << Schedule().onHours({20, 8}) << false;
    QTest::newRow("empty list") << Schedule().onHours({}) << Schedule() << false;
    QTest::newRow("keys") << Schedule().onHours({8}) << Schedule().onMinutes({8}) << false;
    QTest::newRow("more keys") << Schedule().onHours({8}) << Schedule().onHours({8}).onMinutes({8}) << false;
    QTest::newRow("dates") << Schedule().sinceDate(noon) << Schedule().sinceDate(noon) << true;
    QTest::newRow("other date") << Schedule().sinceDate(noon) << Schedule().sinceDate(noon.addSecs(1)) << false;
    QTest::newRow("other values") << value("8") << value("8") << true;
    QTest::newRow("values of other types") << value("8") << value(8) << false;
    QTest::newRow("list and value") << Schedule().onHours({8}) << Schedule(QVariantMap{{"Hours", 8}}) << false;
}

void TestScheduleChecks::schedulesAreCompared()
{
    QFETCH(Schedule, a);
    QFETCH(Schedule, b);
    QFETCH(bool, equal);

    QCOMPARE(a == b, equal);
    QCOMPARE(b == a, equal);
    QCOMPARE(a != b, !equal);
    QVERIFY(a == Schedule(a));
}

QTEST_GUILESS_MAIN(TestScheduleChecks)
#include "tst_schedule_checks.moc"
