// SPDX-License-Identifier: BSD-3-Clause
// Compares the calendar of tasks with `systemd-analyze calendar`: random schedules, in time zones with clock changes.
// Not in zones in which systemd leaves out times that exist: see calendar.h.
#include <calendar.h>
#include <patience.h>

#include <QtCore/QProcess>
#include <QtCore/QRandomGenerator>
#include <QtCore/QTimeZone>
#include <QtTest/QtTest>

#include <algorithm>
#include <ctime>

namespace {

const quint32 Seed = 20300331;
const int Schedules = 1000;
const int SchedulesPerCall = 25; // systemd-analyze reads one base time for all of them
const int Iterations = 4;
const QString UtcFormat = QStringLiteral("yyyy-MM-dd hh:mm:ss 'UTC'");

/// Returns one to \a most different numbers.
QList<int> randomNumbers(QRandomGenerator &random, int first, int last, int most)
{
    QList<int> numbers;
    for (int i = random.bounded(most); i >= 0; --i) {
        const int number = random.bounded(first, last + 1);
        if (!numbers.contains(number))
            numbers << number;
    }
    return numbers; // unsorted
}

/// Returns a schedule with a random choice of lists. Early hours are frequent, because clocks change then.
QVariantMap randomSchedule(QRandomGenerator &random)
{
    QVariantMap schedule;
    const auto add = [&](const char *key, const QList<int> &numbers) {
        schedule.insert(key, QVariant::fromValue(numbers));
    };
    if (random.bounded(3) == 0)
        add("Months", randomNumbers(random, 1, 12, 6));
    if (random.bounded(3) == 0)
        add("WeekDays", randomNumbers(random, 1, 7, 4));
    if (random.bounded(2) == 0)
        add("Hours", randomNumbers(random, 0, random.bounded(2) == 0 ? 4 : 23, 6));
    if (random.bounded(3) != 0)
        add("Minutes", randomNumbers(random, 0, 59, 5));
    if (schedule.isEmpty())
        add("Hours", {0});
    return schedule;
}

/// Returns the schedule as a calendar event of systemd.
QString calendarEvent(const QVariantMap &schedule)
{
    const auto list = [&schedule](const char *key) {
        const auto numbers = schedule.value(key).value<QList<int>>();
        QStringList texts;
        for (const int number : numbers)
            texts << QString::number(number);
        return texts.join(',');
    };
    const auto orDefault = [](const QString &text, const char *other) { return text.isEmpty() ? other : text; };
    const auto days = schedule.value("WeekDays").value<QList<int>>();
    QStringList weekDays;
    for (const int day : days)
        weekDays << QLocale::c().dayName(day, QLocale::ShortFormat);
    const QString minutes = list("Minutes");
    return QString("%1 *-%2-* %3:%4:00")
        .arg(weekDays.join(','), orDefault(list("Months"), "*"),
             orDefault(list("Hours"), minutes.isEmpty() ? "0" : "*"), orDefault(minutes, "0"))
        .trimmed();
}

/// Returns a random time. Four of five are within three hours of a clock change, if the zone has one.
QDateTime randomTime(QRandomGenerator &random, const QTimeZone &zone)
{
    const QDateTime time = QDateTime(QDate(2015, 1, 1), QTime(), Qt::UTC)
                               .addSecs(random.bounded(30 * 365) * 86400LL + random.bounded(86400));
    const QDateTime change = zone.nextTransition(time).atUtc;
    return random.bounded(5) == 0 || !change.isValid() ? time : change.addSecs(random.bounded(-10800, 10800));
}

/// Returns the next times of each event, in UTC, as systemd-analyze prints them.
QVector<QStringList> systemdTimes(const QStringList &events, const QDateTime &after)
{
    QProcess process;
    process.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    process.start(CORVANE_SYSTEMD_ANALYZE,
                  QStringList{"calendar", QString("--iterations=%1").arg(Iterations),
                              "--base-time=" + after.toUTC().toString(UtcFormat)}
                      + events);
    if (!process.waitForFinished(Patience) || process.exitCode() != 0)
        return {};
    QVector<QStringList> times;
    const QStringList lines = QString::fromLatin1(process.readAllStandardOutput()).split('\n');
    for (const QString &line : lines) {
        if (line.contains("Normalized form: "))
            times.append(QStringList());
        else if (line.contains("(in UTC): "))
            times.last().append(line.section(' ', -3));
    }
    return times;
}

} // namespace

class TestSystemdCalendar : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void nextTimesAreThoseOfSystemd_data();
    void nextTimesAreThoseOfSystemd();
};

void TestSystemdCalendar::nextTimesAreThoseOfSystemd_data()
{
    QTest::addColumn<QByteArray>("zone");

    QTest::newRow("one hour, in the night") << QByteArray("Europe/Berlin");
    QTest::newRow("one hour, other dates") << QByteArray("America/New_York");
    QTest::newRow("half an hour, in the south") << QByteArray("Australia/Lord_Howe");
    QTest::newRow("at midnight") << QByteArray("America/Santiago");
    QTest::newRow("four times a year") << QByteArray("Asia/Gaza");
}

void TestSystemdCalendar::nextTimesAreThoseOfSystemd()
{
    QFETCH(QByteArray, zone);

    QVERIFY(QTimeZone(zone).hasTransitions());
    qputenv("TZ", zone);
    ::tzset();
    QRandomGenerator random(Seed);
    for (int done = 0; done < Schedules; done += SchedulesPerCall) {
        QVector<QVariantMap> schedules;
        QStringList events;
        for (int i = 0; i < SchedulesPerCall; ++i) {
            schedules << randomSchedule(random);
            events << calendarEvent(schedules.last());
        }
        const QDateTime after = randomTime(random, QTimeZone(zone));
        const QVector<QStringList> expected = systemdTimes(events, after);
        QCOMPARE(expected.size(), SchedulesPerCall);
        for (int i = 0; i < SchedulesPerCall; ++i) {
            QStringList times;
            QDateTime time = after;
            while (times.size() < Iterations) {
                time = Calendar(schedules.at(i)).nextAfter(time);
                times << time.toUTC().toString(UtcFormat);
            }
            QVERIFY2(times == expected.at(i),
                     qPrintable(QString("seed %1, \"%2\" after %3: expected %4, found %5")
                                    .arg(Seed)
                                    .arg(events.at(i), after.toUTC().toString(UtcFormat), expected.at(i).join(", "),
                                         times.join(", "))));
        }
    }
}

QTEST_GUILESS_MAIN(TestSystemdCalendar)
#include "tst_systemd_calendar.moc"
