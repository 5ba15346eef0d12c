// SPDX-License-Identifier: BSD-3-Clause
// Schedules that are created from a map received from the bus.
#include <Corvane/schedule.h>

#include <message_log.h>
#include <patience.h>
#include <received.h>
#include <service_peer.h>

#include <QtDBus/QDBusArgument>
#include <QtTest/QtTest>

using Corvane::Schedule;

class TestScheduleFromBus : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void receivedScheduleEqualsTheSentOne();
    void listsArePrinted();
    void problemsAreNamed_data();
    void problemsAreNamed();
    void writtenArgumentIsNotAList();

private:
    Schedule scheduleOf(const QString &map);

    ServicePeer peer;
};

/// Returns a schedule of the map as QtDBus reads it.
Schedule TestScheduleFromBus::scheduleOf(const QString &map)
{
    return qdbus_cast<QVariantMap>(received(peer, QString("(%1,)").arg(map)));
}

void TestScheduleFromBus::receivedScheduleEqualsTheSentOne()
{
    const auto schedule = Schedule().onHours({8, 20}).sinceDate(QDateTime({2030, 1, 2}, {3, 4}, Qt::UTC));
    const Schedule same = scheduleOf("{'Hours': <[8, 20]>, 'StartDate': <'2030-01-02T03:04:00Z'>}");
    QVERIFY(schedule == same);
    QVERIFY(same == schedule);
    QVERIFY(same == same); // NOLINT(misc-redundant-expression): reading does not change the list
    QVERIFY(schedule != scheduleOf("{'Hours': <[8, 21]>, 'StartDate': <'2030-01-02T03:04:00Z'>}"));
    QVERIFY(schedule != scheduleOf("{'Hours': <[8.0, 20.0]>, 'StartDate': <'2030-01-02T03:04:00Z'>}"));
}

void TestScheduleFromBus::listsArePrinted()
{
    QString text;
    QDebug(&text) << scheduleOf("{'Hours': <[8, 20]>, 'StartDate': <'2030-01-02T03:04:00Z'>}");
    QCOMPARE(text, R"(Corvane::Schedule(Hours: (8, 20), StartDate: "2030-01-02T03:04:00Z") )");
}

void TestScheduleFromBus::problemsAreNamed_data()
{
    QTest::addColumn<QString>("map");
    QTest::addColumn<QStringList>("problems");

    QTest::newRow("list") << "{'Hours': <[8, 20]>}" << QStringList();
    QTest::newRow("hour") << "{'Hours': <[8, 25]>}"
                          << QStringList("\"Hours\" contains 25, which is not between 0 and 23");
    QTest::newRow("empty list") << "{'Hours': <@ai []>}" << QStringList("\"Hours\" is an empty list");
    const QStringList type("\"Hours\" is not a QList<int>");
    QTest::newRow("list of doubles") << "{'Hours': <[8.0]>}" << type;
    QTest::newRow("list of unsigned integers") << "{'Hours': <[uint32 8]>}" << type;
    QTest::newRow("list of variants") << "{'Hours': <[<8>]>}" << type;
    QTest::newRow("structure") << "{'Hours': <(8, 20)>}" << type;
}

void TestScheduleFromBus::problemsAreNamed()
{
    QFETCH(QString, map);
    QFETCH(QStringList, problems);

    MessageLog log;
    const Schedule schedule = scheduleOf(map);
    QCOMPARE(schedule.problems(), problems);
    QCOMPARE(schedule.problems(), problems); // reading does not change the list
}

void TestScheduleFromBus::writtenArgumentIsNotAList()
{
    MessageLog log;
    QDBusArgument argument;
    argument << QList<int>{8};
    QCOMPARE(Schedule({{"Hours", QVariant::fromValue(argument)}}).problems(),
             QStringList("\"Hours\" is not a QList<int>"));
}

QTEST_GUILESS_MAIN(TestScheduleFromBus)
#include "tst_schedule_from_bus.moc"
