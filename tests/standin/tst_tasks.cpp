// SPDX-License-Identifier: BSD-3-Clause
// Runs as the command of corvane-standin, with the applications of tests/standin/applications.
#include <introspection.h>
#include <patience.h>
#include <service_peer.h>

#include <QtCore/QDir>
#include <QtCore/QJsonDocument>
#include <QtCore/QRegularExpression>
#include <QtCore/QTemporaryDir>
#include <QtTest/QtTest>

#include <algorithm>
#include <fcntl.h>
#include <limits>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace {

const QString Root = QStringLiteral(CORVANE_SERVICE_ROOT);
const QString Done = QStringLiteral("() ()");
const QString Stopped = QStringLiteral("0");
const QString Running = QStringLiteral("1");
const QString Waiting = QStringLiteral("2");

/// Returns the descriptors that each process inherits.
QJsonArray inherited()
{
    QVector<int> numbers;
    const QStringList names = QDir("/proc/self/fd").entryList(QDir::AllEntries | QDir::System);
    for (const QString &name : names) {
        const int flags = ::fcntl(name.toInt(), F_GETFD);
        if (name.front().isDigit() && flags >= 0 && !(flags & FD_CLOEXEC))
            numbers.append(name.toInt());
    }
    std::sort(numbers.begin(), numbers.end());
    QJsonArray array;
    for (const int number : qAsConst(numbers))
        array.append(number);
    return array;
}

/// Returns the state of a task from the text of a list of states.
QString stateIn(const QString &text, const QString &id)
{
    const QRegularExpression pattern(QStringLiteral("\\('%1', (uint32 )?(\\d+),").arg(id));
    return pattern.match(text).captured(2);
}

/// Returns the text of a property of a task from the text of a list of states, or a null string.
QString propertyIn(const QString &text, const QString &id, const QString &key)
{
    const QRegularExpression pattern(QStringLiteral("\\('%1', [^{]*{[^}]*'%2': <([^>]*)>").arg(id, key));
    return pattern.match(text).captured(1);
}

} // namespace

class TestTasks : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void initTestCase();
    void cleanup();
    void automaticTaskRunsFromTheBeginning();
    void allTasksAreListed();
    void taskReceivesItsIdentity();
    void socketListensAtTheDocumentedPath();
    void taskThatEndsIsStopped();
    void runningTaskIsNotStartedAgain();
    void stoppedTaskDoesNotRunAgain();
    void stubbornTaskNeedsForce();
    void programThatCannotStartIsStopped();
    void delayedTaskWaits();
    void taskWaitsForItsStartTime();
    void taskRunsAtItsInterval();
    void taskRunsAtItsSchedule();
    void taskMayRunEveryMinute();
    void expiredScheduleStopsTheTask();
    void scheduleWithoutTimeLeftIsRefused_data();
    void scheduleWithoutTimeLeftIsRefused();
    void waitingTaskIsScheduledAgain();
    void waitingTaskIsStopped();
    void runningTimeIsLimited();
    void nextRunIsListed();
    void nextRunOfAScheduleIsListed();
    void changedNextRunIsAnnounced();
    void endOfTheRunsIsAnnounced();
    void lastRunIsListed();
    void resultOfTheLastRunIsListed();
    void failedStartIsAnnouncedAsARun();
    void unknownNamesAreRefused_data();
    void unknownNamesAreRefused();
    void invalidPropertiesAreAccepted_data();
    void invalidPropertiesAreAccepted();
    void hugePropertiesAreAccepted();
    void clockMovesOnlyForward_data();
    void clockMovesOnlyForward();
    void descriptorsAreRefused();
    void interfaceAgreesWithItsDocumentation();

private:
    QString call(const QString &object, const QString &member, const QString &body, QJsonObject more = {})
    {
        const QString name = Root + '.' + object;
        more.insert("destination", Root);
        more.insert("path", '/' + QString(name).replace('.', '/'));
        if (!more.contains("interface"))
            more.insert("interface", name);
        return peer.call(member, body, more).text;
    }
    QString start(const QString &id, const QString &properties = "@a{sv} {}", const QString &arguments = "@as []")
    {
        return call("Tasks1", "Start", QString("('worker.task_%1', %2, %3)").arg(id, arguments, properties));
    }
    QString stop(const QString &id, bool force = true)
    {
        return call("Tasks1", "Stop", QString("('worker.task_%1', %2)").arg(id, force ? "true" : "false"));
    }
    /// Advances the clock of the stand-in by seconds, and returns the new time.
    QDateTime moveClock(qint64 seconds)
    {
        const QString text = call("StandIn1", "MoveClock", QString("(int64 %1,)").arg(seconds * 1000));
        return QDateTime::fromString(text.section('\'', 1, 1), Qt::ISODate);
    }
    QString listed() { return call("Tasks1", "GetAll", "()"); }
    QString state(const QString &id) { return stateIn(listed(), id); }
    QString property(const QString &id, const QString &key) { return propertyIn(listed(), id, key); }
    QDateTime time(const QString &id, const QString &key)
    {
        return QDateTime::fromString(property(id, key).section('\'', 1, 1), Qt::ISODate);
    }
    int runs(const QString &id) { return property(id, "Runs").section(' ', -1).toInt(); }
    /// Returns the announced states of a task since the last call.
    QString takeStates(const QString &id)
    {
        QString states;
        const QStringList announced = peer.takeSignals();
        for (const QString &signal : announced) {
            const QString state = stateIn(signal, id);
            if (!states.endsWith(state))
                states += state;
        }
        return states;
    }
    /// Waits until the states match a regular expression.
    bool goesThrough(const QString &id, const QString &expected)
    {
        const QRegularExpression pattern(QRegularExpression::anchoredPattern(expected));
        QString seen;
        const bool done = QTest::qWaitFor(
            [&] {
                const QString more = takeStates(id);
                seen += !more.isEmpty() && seen.endsWith(more.at(0)) ? more.mid(1) : more;
                return pattern.match(seen).hasMatch();
            },
            Patience);
        if (!done)
            qWarning("expected the states %s, found %s", qUtf8Printable(expected), qUtf8Printable(seen));
        return done;
    }
    QJsonObject report() const
    {
        QFile file(reportPath());
        return file.open(QIODevice::ReadOnly) ? QJsonDocument::fromJson(file.readAll()).object() : QJsonObject();
    }
    QString reportPath() const { return directory.filePath("report"); }

    ServicePeer peer;
    QTemporaryDir directory;
};

void TestTasks::initTestCase()
{
    peer.watchSignals();
}

void TestTasks::cleanup()
{
    for (const char *id : {"report", "quick", "long", "stubborn", "absent"}) {
        QCOMPARE(stop(id), Done);
        QTRY_COMPARE(state(id), Stopped);
    }
    peer.takeSignals();
    QFile::remove(reportPath());
    QFile::remove(reportPath() + ".asked");
}

void TestTasks::automaticTaskRunsFromTheBeginning()
{
    QCOMPARE(state("early"), Running);
    QVERIFY2(listed().contains("'Autostart': <true>"), qUtf8Printable(listed()));
}

void TestTasks::allTasksAreListed()
{
    const QString text = listed();
    QVERIFY2(text.startsWith("(a{sv}) ({'State': <[('report', uint32 0, @a{sv} {}), ('quick', 0, {}), "),
             qUtf8Printable(text));
    QCOMPARE(start("long", "{'Interval': <3>, 'CreateIPCSocket': <true>, 'Schedule': <{'X': <[(1, 'a')]>}>, 'X': <4>}"),
             Done);
    moveClock(86400);
    QTRY_COMPARE(state("long"), Running);
    const QStringList announced = peer.takeSignals();
    QVERIFY(!announced.isEmpty());
    for (const QString &signal : announced)
        QVERIFY2(signal.startsWith("StateChanged (a(sua{sv})) ([('report', uint32 0, @a{sv} {}), "),
                 qUtf8Printable(signal));
    QVERIFY2(announced.last().contains("('long', 1, {'CreateIPCSocket': <true>, 'Interval': <3>, 'LastRun': "),
             qUtf8Printable(announced.last()));
}

void TestTasks::taskReceivesItsIdentity()
{
    const int niceness = std::min(19, ::getpriority(PRIO_PROCESS, 0) + 3);
    QCOMPARE(
        start("report", QString("{'Priority': <%1>}").arg(niceness), QString("['%1', '--all', '']").arg(reportPath())),
        Done);
    QVERIFY(goesThrough("report", Waiting + Running));
    QTRY_VERIFY(!report().isEmpty());
    QCOMPARE(report().value("arguments").toArray(), QJsonArray({"--all", QString()}));
    QCOMPARE(report().value("niceness").toInt(), niceness);
    QCOMPARE(report().value("descriptors").toArray(), inherited());
    QCOMPARE(report().value("environment").toObject(),
             QJsonObject({{"HALVIR_APP_ID", "worker"},
                          {"HALVIR_APP_INSTANCE_ID", "worker.task_report.instance1"},
                          {"HALVIR_TASK_ID", "report"},
                          {"HALVIR_OTHER", "kept"}}));
}

void TestTasks::socketListensAtTheDocumentedPath()
{
    const QString path = QString::fromUtf8(qgetenv("XDG_RUNTIME_DIR")) + "/applications/worker/report.socket";
    for (int i = 0; i < 2; ++i) { // the second run finds the file of the first one
        QCOMPARE(start("report", "{'CreateIPCSocket': <true>}", QString("['%1']").arg(reportPath())), Done);
        QTRY_COMPARE(state("report"), Running);
        QCOMPARE(QFile::permissions(path) & (QFile::ReadGroup | QFile::ReadOther), QFile::Permissions());

        const int descriptor = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        qstrncpy(static_cast<char *>(address.sun_path), qPrintable(path), sizeof address.sun_path);
        QCOMPARE(::connect(descriptor, reinterpret_cast<const sockaddr *>(&address), sizeof address), 0);
        QCOMPARE(::write(descriptor, "hello", 5), ssize_t(5));
        char answer[6] = {};
        QCOMPARE(::read(descriptor, answer, 5), ssize_t(5)); // the process has answered
        QCOMPARE(answer, "hello");
        ::close(descriptor);
        QCOMPARE(stop("report"), Done);
        QTRY_COMPARE(state("report"), Stopped);
    }
}

void TestTasks::taskThatEndsIsStopped()
{
    QCOMPARE(start("quick"), Done);
    QVERIFY(goesThrough("quick", Waiting + Running + Stopped));
    QCOMPARE(start("quick"), Done); // the task can be started again
    QVERIFY(goesThrough("quick", Waiting + Running + Stopped));
}

void TestTasks::runningTaskIsNotStartedAgain()
{
    QCOMPARE(start("long"), Done);
    QTRY_COMPARE(state("long"), Running);
    QCOMPARE(start("long"),
             QString("%1.Error.ApplicationAlreadyRunning (s) ('worker.task_long runs already',)").arg(Root));
    QCOMPARE(state("long"), Running);
}

void TestTasks::stoppedTaskDoesNotRunAgain()
{
    QCOMPARE(start("long", "{'Interval': <1>}"), Done);
    QTRY_COMPARE(state("long"), Running);
    QCOMPARE(stop("long", false), Done);
    QTRY_COMPARE(state("long"), Stopped); // the task does not run again
    QCOMPARE(stop("long", false), Done); // a second call succeeds
}

void TestTasks::stubbornTaskNeedsForce()
{
    QCOMPARE(start("stubborn", "@a{sv} {}", QString("['%1']").arg(reportPath())), Done);
    QTRY_VERIFY(QFile::exists(reportPath())); // it ignores SIGTERM from now on
    QCOMPARE(stop("stubborn", false), Done);
    QTRY_VERIFY(QFile::exists(reportPath() + ".asked"));
    QCOMPARE(state("stubborn"), Running);
    QCOMPARE(stop("stubborn", true), Done);
    QTRY_COMPARE(state("stubborn"), Stopped);
}

void TestTasks::programThatCannotStartIsStopped()
{
    QCOMPARE(start("absent"), Done);
    QVERIFY(goesThrough("absent", Waiting + Stopped));
}

void TestTasks::delayedTaskWaits()
{
    QCOMPARE(start("long", "{'StartDelay': <3600>}"), Done);
    QCOMPARE(state("long"), Waiting);
    moveClock(1800);
    QCOMPARE(state("long"), Waiting);
    moveClock(1801);
    QTRY_COMPARE(state("long"), Running);
    QVERIFY(goesThrough("long", Waiting + Running));
}

void TestTasks::taskWaitsForItsStartTime()
{
    const QDateTime now = moveClock(0);
    QCOMPARE(start("long",
                   QString("{'StartTime': <'%1'>, 'StartDelay': <1800>}")
                       .arg(now.addSecs(3600).toUTC().toString(Qt::ISODate))),
             Done);
    moveClock(3600);
    QCOMPARE(state("long"), Waiting);
    moveClock(1801);
    QTRY_COMPARE(state("long"), Running);
    QCOMPARE(stop("long"), Done);
    QTRY_COMPARE(state("long"), Stopped);

    QCOMPARE(start("long", QString("{'StartTime': <'%1'>}").arg(now.addSecs(-3600).toString(Qt::ISODate))),
             Done); // past
    QTRY_COMPARE(state("long"), Running);
}

void TestTasks::taskRunsAtItsInterval()
{
    QCOMPARE(start("quick", "{'Interval': <3600>}"), Done);
    QVERIFY(goesThrough("quick", Waiting + Running + Waiting));
    for (int i = 0; i < 3; ++i) {
        moveClock(3600);
        QVERIFY(goesThrough("quick", Running + Waiting));
    }
    moveClock(36000); // missed times cause one run
    QVERIFY(goesThrough("quick", Running + Waiting));
    QCOMPARE(state("quick"), Waiting);
}

void TestTasks::taskRunsAtItsSchedule()
{
    const QDateTime now = moveClock(0);
    const int hour = now.addSecs(7200).time().hour();
    QCOMPARE(start("quick", QString("{'Schedule': <{'Hours': <[%1]>}>}").arg(hour)), Done);
    QCOMPARE(state("quick"), Waiting);
    for (int i = 0; i < 3; ++i) {
        moveClock(86400);
        QVERIFY(goesThrough("quick", (i == 0 ? Waiting : QString()) + Running + Waiting));
    }
}

void TestTasks::taskMayRunEveryMinute()
{
    QStringList minutes;
    for (int i = 0; i < 60; ++i)
        minutes << QString::number(i);
    QCOMPARE(start("quick", QString("{'Schedule': <{'Minutes': <[%1]>}>}").arg(minutes.join(','))), Done);
    // The clock of the stand-in also advances by itself: another minute may begin at any time.
    const QString runs = QString("(%1)+").arg(Running + Waiting);
    moveClock(60);
    QVERIFY(goesThrough("quick", Waiting + runs));
    for (int i = 0; i < 3; ++i) {
        moveClock(60);
        QVERIFY(goesThrough("quick", runs));
    }
}

void TestTasks::expiredScheduleStopsTheTask()
{
    const QDateTime now = moveClock(0);
    QCOMPARE(start("quick",
                   QString("{'Schedule': <{'Minutes': <[%1]>, 'EndDate': <'%2'>}>}")
                       .arg(now.addSecs(1200).time().minute())
                       .arg(now.addSecs(2400).toString(Qt::ISODate))),
             Done);
    moveClock(1260);
    QVERIFY(goesThrough("quick", Waiting + Running + Stopped));
}

void TestTasks::scheduleWithoutTimeLeftIsRefused_data()
{
    QTest::addColumn<QString>("properties");

    const QDateTime now = moveClock(0);
    const QString end = now.addDays(2).toString(Qt::ISODate);
    QTest::newRow("ended")
        << QString("{'Schedule': <{'Minutes': <[0]>, 'EndDate': <'%1'>}>}").arg(now.addDays(-1).toString(Qt::ISODate));
    QTest::newRow("start time after the end")
        << QString("{'Schedule': <{'Minutes': <[0]>, 'EndDate': <'%1'>}>, 'StartTime': <'%2'>}")
               .arg(end, now.addDays(3).toString(Qt::ISODate));
    QTest::newRow("delay until after the end")
        << QString("{'Schedule': <{'Minutes': <[0]>, 'EndDate': <'%1'>}>, 'StartDelay': <%2>}").arg(end).arg(3 * 86400);
    QTest::newRow("start date after the end") << QString("{'Schedule': <{'StartDate': <'%1'>, 'EndDate': <'%2'>}>}")
                                                     .arg(now.addDays(3).toString(Qt::ISODate), end);
    QTest::newRow("February 30") << "{'Schedule': <{'EndDate': <'2999-02-30'>}>}";
    QTest::newRow("numbers that never match") << "{'Schedule': <{'Months': <[13]>}>}";
}

void TestTasks::scheduleWithoutTimeLeftIsRefused()
{
    QFETCH(QString, properties);

    const QString refused =
        "org.freedesktop.DBus.Error.InvalidArgs (s) ('The schedule of worker.task_long has no time left',)";
    QCOMPARE(start("long", properties), refused);
    QCOMPARE(state("long"), Stopped);
    QCOMPARE(peer.takeSignals(), QStringList());

    QCOMPARE(start("long", "{'StartDelay': <3600>}"), Done);
    const QString next = property("long", "NextRun");
    QCOMPARE(peer.takeSignals().size(), 1);
    QCOMPARE(start("long", properties), refused);
    QCOMPARE(state("long"), Waiting); // as before
    QCOMPARE(property("long", "NextRun"), next);
    QCOMPARE(peer.takeSignals(), QStringList());
}

void TestTasks::waitingTaskIsScheduledAgain()
{
    QCOMPARE(start("long", "{'StartDelay': <3600>}"), Done);
    QCOMPARE(start("long"), Done);
    QTRY_COMPARE(state("long"), Running);
}

void TestTasks::waitingTaskIsStopped()
{
    QCOMPARE(start("long", "{'StartDelay': <3600>}"), Done);
    QCOMPARE(stop("long", false), Done);
    QCOMPARE(state("long"), Stopped);
    moveClock(4000);
    QCOMPARE(state("long"), Stopped);
}

void TestTasks::runningTimeIsLimited()
{
    for (const QString &id : {QString("long"), QString("stubborn")}) {
        QCOMPARE(start(id, "{'RunningTime': <3600>}", QString("['%1']").arg(id == "stubborn" ? reportPath() : "1000")),
                 Done);
        QTRY_COMPARE(state(id), Running);
        if (id == "stubborn")
            QTRY_VERIFY(QFile::exists(reportPath()));
        moveClock(3000);
        QCOMPARE(state(id), Running);
        moveClock(601);
        QTRY_COMPARE(state(id), Stopped);
    }
    QVERIFY(QFile::exists(reportPath() + ".asked")); // it received SIGTERM before it was killed
}

void TestTasks::nextRunIsListed()
{
    QVERIFY(property("long", "NextRun").isNull());
    const QString time = moveClock(0).addDays(1).toUTC().toString(Qt::ISODate);
    QCOMPARE(start("long", QString("{'StartTime': <'%1'>}").arg(time)), Done);
    QCOMPARE(property("long", "NextRun"), QString("'%1'").arg(time));
    QCOMPARE(stop("long"), Done);
    QVERIFY(property("long", "NextRun").isNull());

    QCOMPARE(start("long"), Done);
    QTRY_COMPARE(state("long"), Running);
    QVERIFY(property("long", "NextRun").isNull());
}

void TestTasks::nextRunOfAScheduleIsListed()
{
    const QDateTime tomorrow(moveClock(0).date().addDays(1), QTime(7, 30));
    const QString schedule = QString("'Schedule': <{'Hours': <[7]>, 'Minutes': <[30]>, 'StartDate': <'%1'>}>")
                                 .arg(tomorrow.addSecs(-3600).toString(Qt::ISODate));
    QCOMPARE(start("quick", QString("{%1}").arg(schedule)), Done);
    QCOMPARE(time("quick", "NextRun"), tomorrow.toUTC());
    moveClock(moveClock(0).secsTo(tomorrow) + 1);
    QVERIFY(goesThrough("quick", Waiting + Running + Waiting));
    QCOMPARE(time("quick", "NextRun"), tomorrow.addDays(1).toUTC());
}

void TestTasks::changedNextRunIsAnnounced()
{
    const QDateTime tomorrow = moveClock(0).addDays(1).toUTC();
    for (const int day : {0, 0, 1, 1, 2}) {
        const QString time = tomorrow.addDays(day).toString(Qt::ISODate);
        const bool isNew = property("long", "NextRun") != QString("'%1'").arg(time);
        QCOMPARE(start("long", QString("{'StartTime': <'%1'>}").arg(time)), Done);
        const QStringList announced = peer.takeSignals();
        QCOMPARE(announced.size(), isNew ? 1 : 0);
        if (isNew) {
            QCOMPARE(stateIn(announced.first(), "long"), Waiting);
            QCOMPARE(propertyIn(announced.first(), "long", "NextRun"), QString("'%1'").arg(time));
        }
    }
}

void TestTasks::endOfTheRunsIsAnnounced()
{
    QCOMPARE(start("stubborn", "{'Interval': <3600>}", QString("['%1']").arg(reportPath())), Done);
    QTRY_VERIFY(QFile::exists(reportPath())); // it ignores SIGTERM from now on
    QVERIFY(!property("stubborn", "NextRun").isNull());
    peer.takeSignals();
    for (const int announcements : {1, 0}) {
        QCOMPARE(stop("stubborn", false), Done);
        const QStringList announced = peer.takeSignals();
        QCOMPARE(announced.size(), announcements); // the state does not change
        if (!announced.isEmpty()) {
            QCOMPARE(stateIn(announced.first(), "stubborn"), Running);
            QVERIFY(propertyIn(announced.first(), "stubborn", "NextRun").isNull());
        }
    }
}

void TestTasks::lastRunIsListed()
{
    const int before = runs("quick");
    const QDateTime earliest = moveClock(0).toUTC();
    QCOMPARE(start("quick", "{'Interval': <3600>}"), Done);
    QVERIFY(goesThrough("quick", Waiting + Running + Waiting));
    QVERIFY(time("quick", "LastRun") >= earliest);
    QVERIFY(time("quick", "LastRun") <= moveClock(0).toUTC());
    for (const char *key : {"LastRun", "NextRun"})
        QVERIFY2(property("quick", key).endsWith("Z'"), qUtf8Printable(property("quick", key)));
    QCOMPARE(time("quick", "LastRun").secsTo(time("quick", "NextRun")), 3600);
    QCOMPARE(property("quick", "Runs"), QString("uint32 %1").arg(before + 1));

    moveClock(7200);
    QVERIFY(goesThrough("quick", Running + Waiting));
    QVERIFY(time("quick", "LastRun") >= earliest.addSecs(7200));
    QCOMPARE(runs("quick"), before + 2);
}

void TestTasks::resultOfTheLastRunIsListed()
{
    const auto fail = [this] {
        QCOMPARE(start("long", "@a{sv} {}", "['not a number']"), Done);
        QVERIFY(goesThrough("long", Waiting + Running + Stopped));
    };
    fail();
    QCOMPARE(property("long", "LastExitCode"), QString("1"));
    QVERIFY(property("long", "LastSignal").isNull());

    QCOMPARE(start("long"), Done);
    QTRY_COMPARE(state("long"), Running);
    QCOMPARE(property("long", "LastExitCode"), QString("1")); // of the earlier run
    QCOMPARE(stop("long"), Done);
    QVERIFY(goesThrough("long", Waiting + Running + Stopped));
    QCOMPARE(property("long", "LastSignal"), QString("9"));
    QVERIFY(property("long", "LastExitCode").isNull());

    fail();
    QCOMPARE(property("long", "LastExitCode"), QString("1"));
    QVERIFY(property("long", "LastSignal").isNull());
}

void TestTasks::failedStartIsAnnouncedAsARun()
{
    QCOMPARE(start("absent", "{'Interval': <3600>}"), Done);
    const int before = runs("absent");
    peer.takeSignals();
    moveClock(3601);
    const QStringList announced = peer.takeSignals();
    QCOMPARE(announced.size(), 1);
    QCOMPARE(stateIn(announced.first(), "absent"), Waiting); // unchanged
    QCOMPARE(propertyIn(announced.first(), "absent", "Runs"), QString("uint32 %1").arg(before + 1));
    QCOMPARE(propertyIn(announced.first(), "absent", "LastExitCode"), QString("127"));
}

void TestTasks::unknownNamesAreRefused_data()
{
    QTest::addColumn<QString>("name");

    QTest::newRow("unknown task") << "worker.task_none";
    QTest::newRow("unknown application") << "none.task_long";
    QTest::newRow("id alone") << "long";
    QTest::newRow("empty") << "";
}

void TestTasks::unknownNamesAreRefused()
{
    QFETCH(QString, name);

    const QString error =
        QString("org.freedesktop.DBus.Error.InvalidArgs (s) ('No manifest has the task \"%1\"',)").arg(name);
    QCOMPARE(call("Tasks1", "Start", QString("('%1', @as [], @a{sv} {})").arg(name)), error);
    QCOMPARE(call("Tasks1", "Stop", QString("('%1', false)").arg(name)), error);
    QCOMPARE(peer.takeSignals(), QStringList());
}

void TestTasks::invalidPropertiesAreAccepted_data()
{
    QTest::addColumn<QString>("properties");

    for (const char *properties :
         {"{'Schedule': <[1, 2]>}", "{'Schedule': <[(1, 2)]>}", "{'Schedule': <{1: <2>}>}", "{'Schedule': <'daily'>}",
          "{'Schedule': <{'Hours': <[(1, 2)]>}>}", "{'Schedule': <{'Hours': <{'a': 1}>, 'Minutes': <['1']>}>}",
          "{'Interval': <[1]>, 'StartDelay': <(1, 2)>, 'StartTime': <5>, 'Priority': <'x'>}",
          "{'Interval': <-1>, 'StartDelay': <-5>, 'RunningTime': <-1>, 'Priority': <1000>}",
          "{'RunningTime': <2147483647>, 'Interval': <2147483647>}", "{'CreateIPCSocket': <[true]>}"})
        QTest::newRow(properties) << QString::fromLatin1(properties);
}

void TestTasks::invalidPropertiesAreAccepted()
{
    QFETCH(QString, properties);

    QCOMPARE(start("long", properties), Done);
    const QString now = state("long");
    QVERIFY2(now == Running || now == Waiting, qUtf8Printable(now));
    QCOMPARE(stop("long"), Done);
    QTRY_COMPARE(state("long"), Stopped);
}

void TestTasks::hugePropertiesAreAccepted()
{
    QString deep = "<1>";
    for (int i = 0; i < 57; ++i)
        deep = '<' + deep + '>';
    QCOMPARE(start("long", QString("{'Schedule': %1, 'X': %1}").arg(deep)), Done);
    QCOMPARE(state("long"), Running); // the bus has not disconnected the service
}

void TestTasks::clockMovesOnlyForward_data()
{
    QTest::addColumn<qint64>("milliseconds");

    QTest::newRow("back") << qint64(-1);
    QTest::newRow("too far") << qint64(9000) * 366 * 86400 * 1000;
    QTest::newRow("least") << std::numeric_limits<qint64>::min();
    QTest::newRow("greatest") << std::numeric_limits<qint64>::max();
}

void TestTasks::clockMovesOnlyForward()
{
    QFETCH(qint64, milliseconds);

    const QDateTime before = moveClock(0);
    QCOMPARE(call("StandIn1", "MoveClock", QString("(int64 %1,)").arg(milliseconds)),
             QString("org.freedesktop.DBus.Error.InvalidArgs (s) ('The clock moves on, by at most 100 years at once, "
                     "until the year 9999',)"));
    QVERIFY(before.secsTo(moveClock(0)) < 3600);
}

void TestTasks::descriptorsAreRefused()
{
    const QString refused = "org.freedesktop.DBus.Error.InvalidArgs (s) ('Descriptors do not describe a task',)";
    for (const QJsonArray &files : {QJsonArray{"/dev/null"}, QJsonArray()}) { // with and without a descriptor
        for (const char *value : {"@h 0", "[@h 0]", "{'x': <(1, @h 0)>}"})
            QCOMPARE(call("Tasks1", "Start", QString("('worker.task_long', @as [], {'x': <%1>})").arg(value),
                          {{"files", files}}),
                     refused);
    }
    QCOMPARE(state("long"), Stopped);
}

void TestTasks::interfaceAgreesWithItsDocumentation()
{
    const QString xml =
        introspectionIn(call("Tasks1", "Introspect", {}, {{"interface", "org.freedesktop.DBus.Introspectable"}}));
    const QStringList expected{"method GetAll(out a{sv} properties)",
                               "method Start(in s name, in as arguments, in a{sv} properties)",
                               "method Stop(in s name, in b force)", "signal StateChanged(out a(sua{sv}) tasksState)"};
    QCOMPARE(membersOf(Root + ".Tasks1", xml), expected);
    QCOMPARE(documentedMembersOf(Root + ".Tasks1"), expected);
}

QTEST_GUILESS_MAIN(TestTasks)
#include "tst_tasks.moc"
