// SPDX-License-Identifier: BSD-3-Clause
#include <calendar.h>
#include <patience.h>

#include <QtTest/QtTest>

class TestCalendar : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void nextTimeIsTheFirstThatMatches_data();
    void nextTimeIsTheFirstThatMatches();
    void emptyRulesAreKnown();
};

void TestCalendar::nextTimeIsTheFirstThatMatches_data()
{
    QTest::addColumn<QVariantMap>("schedule");
    QTest::addColumn<QString>("earliest");
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
    QTest::newRow("the very minute") << QVariantMap{{hours, numbers({10})}, {minutes, numbers({20})}}
                                     << "2030-07-01T10:20:00"
                                     << "2030-07-01T10:20:00";
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
    QTest::newRow("until a date") << QVariantMap{{hours, numbers({8})}, {end, "2030-07-02T08:00:00"}} << monday
                                  << "2030-07-02T08:00:00";
    QTest::newRow("too late") << QVariantMap{{hours, numbers({8})}, {end, "2030-07-02T07:59:59"}} << monday << "";
    QTest::newRow("numbers that never match") << QVariantMap{{months, numbers({13})}} << monday << "";
    QTest::newRow("some that never match")
        << QVariantMap{{hours, numbers({-1, 25, 8})}} << monday << "2030-07-02T08:00:00";
    QTest::newRow("as in a manifest") << QVariantMap{{hours, QVariantList{8.0}}} << monday << "2030-07-02T08:00:00";
    QTest::newRow("of other types") << QVariantMap{{hours, "8"}, {start, 3}} << monday << "2030-07-02T00:00:00";
}

void TestCalendar::nextTimeIsTheFirstThatMatches()
{
    QFETCH(QVariantMap, schedule);
    QFETCH(QString, earliest);
    QFETCH(QString, next);

    QCOMPARE(Calendar(schedule).next(QDateTime::fromString(earliest, Qt::ISODate)).toString(Qt::ISODate), next);
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
