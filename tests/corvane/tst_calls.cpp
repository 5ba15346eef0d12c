// SPDX-License-Identifier: BSD-3-Clause
// The calls that "corvane" sends, and its end when the service or the bus ends.
#include "program.h"

#include <bus_daemon.h>
#include <service_peer.h>

#include <QtTest/QtTest>

namespace {

const QString Root = QStringLiteral(CORVANE_SERVICE_ROOT);

} // namespace

class TestCalls : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void descriptionOfATaskIsSent_data();
    void descriptionOfATaskIsSent();
    void taskIsStopped_data();
    void taskIsStopped();
    void hintsAndParamsAreSent();
    void filesAreSent();
    void exitCodeIsTheCodeOfTheError_data();
    void exitCodeIsTheCodeOfTheError();
    void missingServiceIsReported_data();
    void missingServiceIsReported();
    void watchContinuesAfterARestart();
    void lostBusEndsTheProgram();

private:
    BusDaemon bus;
    ServicePeer peer;
};

void TestCalls::descriptionOfATaskIsSent_data()
{
    QTest::addColumn<QString>("options");
    QTest::addColumn<QString>("call");

    const auto row = [](const char *options, const char *call) { QTest::newRow(options) << options << call; };
    row("", "@as [], @a{sv} {}");
    row("-- --all x", "['--all', 'x'], @a{sv} {}");
    row("--start-time 2030-01-31T08:00", "@as [], {'StartTime': <'2030-01-31T08:00:00'>}");
    row("--ipc-socket", "@as [], {'CreateIPCSocket': <true>}");
    row("--priority -3", "@as [], {'Priority': <-3>}");
    row("--autostart", "@as [], {'Autostart': <true>}");
    row("--interval 60", "@as [], {'Interval': <60>}");
    row("--running-time 70", "@as [], {'RunningTime': <70>}");
    row("--start-delay 80", "@as [], {'StartDelay': <80>}");
    row("--months 1,12", "@as [], {'Schedule': <{'Months': <[1, 12]>}>}");
    row("--week-days 1", "@as [], {'Schedule': <{'WeekDays': <[1]>}>}");
    row("--hours 0,23", "@as [], {'Schedule': <{'Hours': <[0, 23]>}>}");
    row("--minutes 59", "@as [], {'Schedule': <{'Minutes': <[59]>}>}");
    row("--since 2030-01-31", "@as [], {'Schedule': <{'StartDate': <'2030-01-31T00:00:00'>}>}");
    row("--till 2030-01-31", "@as [], {'Schedule': <{'EndDate': <'2030-01-31T00:00:00'>}>}");
}

void TestCalls::descriptionOfATaskIsSent()
{
    QFETCH(QString, options);
    QFETCH(QString, call);

    peer.answer("()", "Start");
    peer.takeCalls();
    QCOMPARE(corvane(words("task start fetch --app demo " + options)).exitCode, 0);
    QCOMPARE(peer.calls().filter("Start "), QStringList(QString("Start (sasa{sv}) ('demo.task_fetch', %1)").arg(call)));
}

void TestCalls::taskIsStopped_data()
{
    QTest::addColumn<QString>("options");
    QTest::addColumn<QString>("call");

    QTest::newRow("normally") << ""
                              << "Stop (sb) ('demo.task_fetch', false)";
    QTest::newRow("forced") << "--force"
                            << "Stop (sb) ('demo.task_fetch', true)";
}

void TestCalls::taskIsStopped()
{
    QFETCH(QString, options);
    QFETCH(QString, call);

    peer.answer("()", "Stop");
    peer.takeCalls();
    QCOMPARE(corvane(words("task stop fetch --app demo " + options)).exitCode, 0);
    QCOMPARE(peer.calls().filter("Stop "), QStringList(call));
}

void TestCalls::hintsAndParamsAreSent()
{
    peer.answer("(@a{sv} {},)");
    peer.takeCalls();
    QCOMPARE(corvane(words("invoke X a=b --hint c=d")).exitCode, 0);
    QCOMPARE(peer.calls().filter("InvokeIntent"),
             QStringList("InvokeIntent (sa{sv}a{sv}) ('X', {'c': <'d'>}, {'a': <'b'>})"));
}

void TestCalls::filesAreSent()
{
    QTemporaryFile file;
    QVERIFY(file.open());
    file.write("content");
    file.close();
    QCOMPARE(corvane({"invoke", "X", "file=" + file.fileName(), "--hint", R"(readFiles:=["file"])"}).exitCode, 0);
    QCOMPARE(peer.descriptors(), QStringList("read: content"));
}

void TestCalls::exitCodeIsTheCodeOfTheError_data()
{
    QTest::addColumn<QString>("error");
    QTest::addColumn<QString>("name");
    QTest::addColumn<int>("exitCode");

    const QString standard = "org.freedesktop.DBus.Error.";
    const QString service = Root + ".Error.";
    const auto row = [](const QString &prefix, const char *name, int exitCode) {
        QTest::newRow(name) << prefix + name << name << exitCode;
    };
    row(standard, "Failed", 1);
    row(service, "HandlerNotFound", 2);
    row(service, "HandlerFailed", 3);
    row(standard, "InvalidArgs", 4);
    row(standard, "NotSupported", 5);
    row(standard, "AccessDenied", 6);
    row(service, "ProcessNotHandled", 7);
    row(service, "ApplicationNotRunning", 8);
    row(service, "ApplicationAlreadyRunning", 9);
    row(service, "ApplicationAlreadyLaunching", 10);
}

void TestCalls::exitCodeIsTheCodeOfTheError()
{
    QFETCH(QString, error);
    QFETCH(QString, name);
    QFETCH(int, exitCode);

    for (const char *line : {"invoke X", "task start x --app y", "task stop x --app y"}) {
        for (const char *member : {"InvokeIntent", "Start", "Stop"})
            peer.answerError(error, "('the reason',)", member);
        compareFailure(words(line), exitCode, name, "the reason");
    }
}

void TestCalls::missingServiceIsReported_data()
{
    QTest::addColumn<QString>("line");

    for (const char *line : {"invoke X", "task start x --app y", "task stop x --app y", "task status x", "task watch x",
                             "lifecycle watch", "memory watch", "service status"})
        QTest::newRow(line) << line;
}

void TestCalls::missingServiceIsReported()
{
    QFETCH(QString, line);

    peer.ownServiceName(false);
    compareFailure(words(line), 1, "Failed",
                   "There is no service on the session bus. Start one with: corvane-standin run -- ... (join a running "
                   "one with: corvane-standin exec -- ...)");
    peer.ownServiceName(true);
}

void TestCalls::watchContinuesAfterARestart()
{
    RunningProgram watch({"lifecycle", "watch"});
    QVERIFY(watch.nextLine(QProcess::StandardError).startsWith("Watching "));
    peer.kill();
    QCOMPARE(watch.nextLine(QProcess::StandardError),
             QString("The service has ended. The watch continues when it starts again."));
    peer.start();
    peer.emitSignal("Lifecycle1", Root + ".Lifecycle1", "StateChanged", "('demo.instance1', uint32 4)");
    QCOMPARE(watch.nextLine(), QString("demo.instance1 SuspendedState"));
    QCOMPARE(watch.end(SIGTERM).exitCode, 0);
}

void TestCalls::lostBusEndsTheProgram()
{
    qputenv("HALVIR_APP_INSTANCE_ID", "demo.instance1");
    RunningProgram handler({"handle", "X", "--", "cat"});
    handler.nextLine();
    qunsetenv("HALVIR_APP_INSTANCE_ID");
    RunningProgram watch({"memory", "watch", "--json"});
    watch.nextLine(QProcess::StandardError);
    RunningProgram task({"task", "watch", "x"});
    task.nextLine(QProcess::StandardError);
    peer.hold();
    peer.takeCalls();
    RunningProgram invoke({"invoke", "X"});
    QTRY_COMPARE(peer.calls().filter("InvokeIntent ").size(), 1);
    bus.crash();
    const Result invoked = finished(invoke);
    QVERIFY2(invoked.errors.startsWith("corvane: There is no session bus, or it has closed the connection ("),
             qUtf8Printable(invoked.errors));
    QCOMPARE(invoked.exitCode, 1);
    const Result handled = finished(handler);
    QCOMPARE(handled.errors, QString("corvane: The session bus has ended\n"));
    QCOMPARE(handled.exitCode, 1);
    const Result watched = finished(watch);
    QCOMPARE(watched.output,
             QString(R"({"error":{"code":1,"message":"The session bus has ended","name":"Failed"}})") + '\n');
    QCOMPARE(watched.exitCode, 1);
    const Result watchedTask = finished(task);
    QCOMPARE(watchedTask.errors.section('\n', 0, 0), QString("corvane: The session bus has ended"));
    QCOMPARE(watchedTask.exitCode, 1);
}

QTEST_GUILESS_MAIN(TestCalls)
#include "tst_calls.moc"
