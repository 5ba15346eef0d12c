// SPDX-License-Identifier: BSD-3-Clause
#include <calendar.h>
#include <patience.h>

#include <QtTest/QtTest>

#include <ctime>

class TestCalendar : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void init()
    {
        qputenv("TZ", "UTC");
        ::tzset();
    }
    void nextTimeIsTheFirstThatMatches_data();
    void nextTimeIsTheFirstThatMatches();
    void changesOfClocksAreFollowed_data();
    void changesOfClocksAreFollowed();
    void emptyRulesAreKnown();
};

void TestCalendar::nextTimeIsTheFirstThatMatches_data()
{
    QTest::addColumn<QVariantMap>("schedule");
    QTest::addColumn<QString>("after");
    QTest::addColumn<QString>("next");

    const auto numbers = [](const QList<int> &list) { return QVariant::fromValue(list); };
    const QString months = "Months";
    const QString weekDays = "WeekDays";
    const QString hours = "Hours";
    const QString minutes = "Minutes";
    const QString start = "StartDate";
    const QString end = "EndDate";
    const QString monday = "2030-07-01T10:20:30";

    QTest::newRow("hour later that day") << QVariantMap{{hours, numbers({8, 20})}} << monday << "2030-07-01T20:00:00";
    QTest::newRow("hour of the next day") << QVariantMap{{hours, numbers({8})}} << monday << "2030-07-02T08:00:00";
    QTest::newRow("minute of each hour") << QVariantMap{{minutes, numbers({15, 45})}} << monday
                                         << "2030-07-01T10:45:00";
    QTest::newRow("minute of the next hour")
        << QVariantMap{{minutes, numbers({15})}} << monday << "2030-07-01T11:15:00";
    QTest::newRow("hour and minute") << QVariantMap{{hours, numbers({10})}, {minutes, numbers({21})}} << monday
                                     << "2030-07-01T10:21:00";
    QTest::newRow("just before") << QVariantMap{{hours, numbers({10})}, {minutes, numbers({20})}}
                                 << "2030-07-01T10:19:59.999"
                                 << "2030-07-01T10:20:00";
    QTest::newRow("the very minute") << QVariantMap{{hours, numbers({10})}, {minutes, numbers({20})}}
                                     << "2030-07-01T10:20:00"
                                     << "2030-07-02T10:20:00";
    QTest::newRow("week day alone") << QVariantMap{{weekDays, numbers({3, 7})}} << monday << "2030-07-03T00:00:00";
    QTest::newRow("same week day") << QVariantMap{{weekDays, numbers({1})}} << monday << "2030-07-08T00:00:00";
    QTest::newRow("month alone") << QVariantMap{{months, numbers({2})}} << monday << "2031-02-01T00:00:00";
    QTest::newRow("all of them") << QVariantMap{{months, numbers({12})},
                                                {weekDays, numbers({5})},
                                                {hours, numbers({23})},
                                                {minutes, numbers({59})}}
                                 << monday << "2030-12-06T23:59:00";
    QTest::newRow("from a date on") << QVariantMap{{hours, numbers({8})}, {start, "2030-08-01T09:00:00"}} << monday
                                    << "2030-08-02T08:00:00";
    QTest::newRow("at the start date") << QVariantMap{{hours, numbers({8})}, {start, "2030-08-01T08:00:00"}} << monday
                                       << "2030-08-01T08:00:00";
    QTest::newRow("until a date") << QVariantMap{{hours, numbers({8})}, {end, "2030-07-02T08:00:00"}} << monday
                                  << "2030-07-02T08:00:00";
    QTest::newRow("too late") << QVariantMap{{hours, numbers({8})}, {end, "2030-07-02T07:59:59"}} << monday << "";
    QTest::newRow("until February 30") << QVariantMap{{hours, numbers({8})}, {end, "2031-02-30T08:00:00"}} << monday
                                       << "";
    QTest::newRow("from the 13th month on")
        << QVariantMap{{hours, numbers({8})}, {start, "2029-13-01"}} << monday << "";
    QTest::newRow("empty dates") << QVariantMap{{hours, numbers({8})}, {start, ""}, {end, ""}} << monday
                                 << "2030-07-02T08:00:00";
    QTest::newRow("numbers that never match") << QVariantMap{{months, numbers({13})}} << monday << "";
    QTest::newRow("some that never match")
        << QVariantMap{{hours, numbers({-1, 25, 8})}} << monday << "2030-07-02T08:00:00";
    QTest::newRow("of other types") << QVariantMap{{hours, "8"}, {start, 3}} << monday << "2030-07-02T00:00:00";
}

void TestCalendar::nextTimeIsTheFirstThatMatches()
{
    QFETCH(QVariantMap, schedule);
    QFETCH(QString, after);
    QFETCH(QString, next);

    QCOMPARE(Calendar(schedule).nextAfter(QDateTime::fromString(after, Qt::ISODate)).toString(Qt::ISODate), next);
}

void TestCalendar::changesOfClocksAreFollowed_data()
{
    QTest::addColumn<QByteArray>("zone");
    QTest::addColumn<QList<int>>("hours");
    QTest::addColumn<QString>("after");
    QTest::addColumn<QStringList>("next");

    const auto row = [](const char *name, const char *zone, const QList<int> &hours, const char *after,
                        const QStringList &next) { QTest::newRow(name) << QByteArray(zone) << hours << after << next; };
    const QByteArray berlin = "Europe/Berlin"; // 2030: forward at 02:00 on March 31, back at 03:00 on October 27
    row("skipped", berlin, {2}, "2030-03-30T12:00:00Z", {"2030-04-01T00:30:00Z", "2030-04-02T00:30:00Z"});
    row("skipped, others not", berlin, {1, 2, 3}, "2030-03-31T00:00:00Z",
        {"2030-03-31T00:30:00Z", "2030-03-31T01:30:00Z", "2030-03-31T23:30:00Z"});
    row("twice", berlin, {2}, "2030-10-26T12:00:00Z", {"2030-10-27T00:30:00Z", "2030-10-28T01:30:00Z"});
    row("after the first", berlin, {2, 3}, "2030-10-27T00:40:00Z", {"2030-10-27T02:30:00Z"});
    row("at the change", berlin, {2, 3}, "2030-10-27T00:59:59Z", {"2030-10-27T02:30:00Z"});
    row("between both", berlin, {2, 3}, "2030-10-27T01:10:00Z", {"2030-10-27T01:30:00Z", "2030-10-27T02:30:00Z"});
    row("after both", berlin, {2, 3}, "2030-10-27T01:30:00Z", {"2030-10-27T02:30:00Z"});
    row("far in the future", berlin, {2}, "2050-03-26T12:00:00Z", {"2050-03-28T00:30:00Z"}); // forward on March 27
    row("by half an hour", "Australia/Lord_Howe", {1, 2}, "2030-10-05T12:00:00Z",
        {"2030-10-05T15:00:00Z", "2030-10-05T15:30:00Z", "2030-10-06T14:30:00Z"});
    row("by parts of hours", "Pacific/Chatham", {2, 3, 4}, "2030-09-28T13:00:00Z",
        {"2030-09-28T13:45:00Z", "2030-09-28T14:45:00Z", "2030-09-29T12:45:00Z"});
    row("by two hours", "Antarctica/Troll", {1, 2, 3}, "2030-03-31T00:00:00Z",
        {"2030-03-31T01:30:00Z", "2030-03-31T23:30:00Z"});
    row("by a day", "Pacific/Apia", {12}, "2011-12-29T00:00:00Z",
        {"2011-12-29T22:30:00Z", "2011-12-30T22:30:00Z", "2011-12-31T22:30:00Z"});
    row("standard time in summer", "Europe/Dublin", {1, 2}, "2030-03-30T12:00:00Z",
        {"2030-03-31T01:30:00Z", "2030-04-01T00:30:00Z"});
}

void TestCalendar::changesOfClocksAreFollowed()
{
    QFETCH(QByteArray, zone);
    QFETCH(QList<int>, hours);
    QFETCH(QString, after);
    QFETCH(QStringList, next);

    qputenv("TZ", zone);
    ::tzset();
    const Calendar calendar(
        QVariantMap{{"Hours", QVariant::fromValue(hours)}, {"Minutes", QVariant::fromValue(QList<int>{30})}});
    QDateTime time = QDateTime::fromString(after, Qt::ISODate);
    for (const QString &expected : qAsConst(next)) {
        time = calendar.nextAfter(time);
        QCOMPARE(time.toUTC().toString(Qt::ISODate), expected);
    }
}

void TestCalendar::emptyRulesAreKnown()
{
    QVERIFY(Calendar(QVariant()).isEmpty());
    QVERIFY(Calendar(QVariantMap()).isEmpty());
    QVERIFY(Calendar("daily").isEmpty());
    QVERIFY(!Calendar(QVariantMap{{"Hours", QVariantList()}}).isEmpty());
}

QTEST_GUILESS_MAIN(TestCalendar)
#include "tst_calendar.moc"
