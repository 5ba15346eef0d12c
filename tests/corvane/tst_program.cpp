// SPDX-License-Identifier: BSD-3-Clause
// The program "corvane" with the stand-in. Runs as the application "tester" of corvane-standin, with the applications
// of tests/standin/applications.
#include "program.h"

#include <QtCore/QTemporaryDir>
#include <QtTest/QtTest>

namespace {

void standIn(const QString &line)
{
    const Result result = run(CORVANE_STANDIN, words(line));
    QCOMPARE(result.errors, QString());
    QCOMPARE(result.exitCode, 0);
}

QString handling()
{
    return QString(R"({"handling":"Greet","instance":"%1"})").arg(qEnvironmentVariable("HALVIR_APP_INSTANCE_ID"));
}

/// A command that prints a line to standard error, and replies when the file exists.
QStringList waitingCommand(const QString &file)
{
    return {"sh", "-c", "echo started >&2; while [ ! -e \"$0\" ]; do sleep 0.01; done; echo '{\"a\": 1}'", file};
}

} // namespace

class TestProgram : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void serviceIsAvailable();
    void replyIsPrinted_data();
    void replyIsPrinted();
    void failuresOfIntentsAreReported_data();
    void failuresOfIntentsAreReported();
    void intentTimesOut();
    void intentIsCanceled_data();
    void intentIsCanceled();
    void commandAnswersIntents();
    void intentWithoutAHandlerIsExplained();
    void handledIntentsAreListed();
    void failureOfTheCommandIsThatOfTheIntent_data();
    void failureOfTheCommandIsThatOfTheIntent();
    void commandsRunAtOnce();
    void handlerEndsAfterItsCommands();
    void secondSignalEndsTheCommands();
    void taskIsControlled();
    void missingTaskIsReported();
    void taskIsWatched();
    void statesOfApplicationsAreWatched_data();
    void statesOfApplicationsAreWatched();
    void memoryIsWatched();
};

void TestProgram::serviceIsAvailable()
{
    const Result text = corvane({"service", "status"});
    QCOMPARE(text.output, QString("The service is running on the session bus.\n"));
    QCOMPARE(text.errors, QString());
    QCOMPARE(text.exitCode, 0);
    QCOMPARE(corvane({"service", "status", "--json"}).output, QString("{\"available\":true}\n"));
}

void TestProgram::replyIsPrinted_data()
{
    QTest::addColumn<QString>("line");
    QTest::addColumn<QString>("reply");

    QTest::newRow("nothing") << ""
                             << "{}";
    QTest::newRow("values") << "a=b n:=2.5 l:=[true] o:={\"x\":\"y\"} t=a:=b"
                            << R"({"a":"b","l":[true],"n":2.5,"o":{"x":"y"},"t":"a:=b"})";
    QTest::newRow("standard input") << "--params - b=3"
                                    << R"({"a":1,"b":"3"})";
    QTest::newRow("other characters") << QString::fromUtf8("é=日本") << QString::fromUtf8(R"({"é":"日本"})");
    QTest::newRow("no time-out") << "--timeout 0"
                                 << "{}";
    QTest::newRow("long time-out") << "--timeout 2000000"
                                   << "{}";
}

void TestProgram::replyIsPrinted()
{
    QFETCH(QString, line);
    QFETCH(QString, reply);

    for (const char *format : {"", "--json "}) {
        const Result result = corvane(words(format + QString("invoke Echo ") + line), R"({"a": 1, "b": 2})");
        QCOMPARE(result.errors, QString());
        QCOMPARE(result.output, reply + '\n');
        QCOMPARE(result.exitCode, 0);
    }
}

void TestProgram::failuresOfIntentsAreReported_data()
{
    QTest::addColumn<QString>("line");
    QTest::addColumn<int>("exitCode");
    QTest::addColumn<QString>("name");
    QTest::addColumn<QString>("message");

    QTest::newRow("no handler") << "invoke Nothing" << 2 << "HandlerNotFound"
                                << "No application handles \"Nothing\"";
    QTest::newRow("failed handler") << "invoke Fail" << 3 << "HandlerFailed"
                                    << "fail.instance1: the reason";
    QTest::newRow("no program") << "invoke Absent" << 8 << "ApplicationNotRunning"
                                << "absent.instance1 cannot be started: execve: No such file or directory";
    QTest::newRow("refused params") << "invoke Echo t:=\"\\u0000\"" << 1 << "Failed"
                                    << "A message cannot hold a text with U+0000";
    QTest::newRow("missing file") << "invoke Echo f=/nonexistent --hint readFiles:=[\"f\"]" << 1 << "Failed"
                                  << "Cannot open the file \"/nonexistent\": No such file or directory";
}

void TestProgram::failuresOfIntentsAreReported()
{
    QFETCH(QString, line);
    QFETCH(int, exitCode);
    QFETCH(QString, name);
    QFETCH(QString, message);

    if (line == "invoke Absent") // each attempt is another instance
        QCOMPARE(corvane(words(line)).exitCode, exitCode);
    else
        compareFailure(words(line), exitCode, name, message);
}

void TestProgram::intentTimesOut()
{
    // The application "hide" never claims its name.
    compareFailure({"invoke", "Hide", "--timeout", "0.01"}, 1, "Failed", "The request timed out");
}

void TestProgram::intentIsCanceled_data()
{
    QTest::addColumn<int>("signal");

    QTest::newRow("Ctrl-C") << SIGINT;
    QTest::newRow("SIGTERM") << SIGTERM;
}

void TestProgram::intentIsCanceled()
{
    QFETCH(int, signal);

    const QTemporaryDir directory;
    RunningProgram handler(QStringList({"handle", "Greet", "--"}) + waitingCommand(directory.filePath("go")));
    handler.nextLine();
    RunningProgram invoker({"invoke", "Greet", "--json"});
    QCOMPARE(handler.nextLine(QProcess::StandardError), QString("started"));
    const Result result = invoker.end(signal);
    QCOMPARE(result.output,
             QString(R"({"error":{"code":1,"message":"The request was canceled","name":"Failed"}})") + '\n');
    QCOMPARE(result.exitCode, 1);
    QVERIFY(QFile(directory.filePath("go")).open(QIODevice::WriteOnly));
    QCOMPARE(handler.nextLine(), QString("Greet replied"));
}

void TestProgram::commandAnswersIntents()
{
    const QString instance = qEnvironmentVariable("HALVIR_APP_INSTANCE_ID");
    RunningProgram handler({"handle", "Greet", "--", "cat"});
    QCOMPARE(handler.nextLine(), "Handling Greet as " + instance);
    const Result result = corvane({"invoke", "Greet", "a=b", "l:=[1,{}]"});
    QCOMPARE(result.output, QString("{\"a\":\"b\",\"l\":[1,{}]}\n"));
    QCOMPARE(handler.nextLine(), QString("Greet replied"));
    const Result end = handler.end(SIGTERM);
    QCOMPARE(end.exitCode, 0);
    QCOMPARE(end.errors, QString());
}

void TestProgram::intentWithoutAHandlerIsExplained()
{
    RunningProgram handler({"handle", "Greet", "--", "cat"});
    handler.nextLine();
    compareFailure({"invoke", "Forget"}, 3, "HandlerFailed",
                   qEnvironmentVariable("HALVIR_APP_INSTANCE_ID")
                       + ": Intent not registered by specified application (its manifest has the intent \"Forget\")");
}

void TestProgram::handledIntentsAreListed()
{
    RunningProgram handler({"handle", "--json", "Greet", "--", "sh", "-c",
                            "test $CORVANE_INTENT = Greet && grep -v fail >&2 && echo '{}'"});
    QCOMPARE(handler.nextLine(), handling());
    QCOMPARE(corvane({"invoke", "Greet", "a=b"}).output, QString("{}\n"));
    QCOMPARE(handler.nextLine(), QString(R"({"intent":"Greet","params":{"a":"b"},"reply":{}})"));
    QCOMPARE(corvane({"invoke", "Greet", "a=fail"}).exitCode, 3);
    QCOMPARE(handler.nextLine(),
             QString(R"({"failure":"sh has ended with exit code 1","intent":"Greet","params":{"a":"fail"}})"));
    const Result end = handler.end(SIGINT);
    QCOMPARE(end.errors, QString("{\"a\":\"b\"}\n"));
    QCOMPARE(end.exitCode, 0);
}

void TestProgram::failureOfTheCommandIsThatOfTheIntent_data()
{
    QTest::addColumn<QString>("line");
    QTest::addColumn<QString>("message");

    const auto row = [](const char *line, const char *message) { QTest::newRow(line) << line << message; };
    row("sh -c 'echo first >&2; echo the reason >&2; exit 3'", "the reason");
    row("sh -c 'exit 3'", "sh has ended with exit code 3");
    row("sh -c 'kill -KILL $$'", "sh was ended by a signal");
    row("echo nonsense", "The output of echo:1: invalid JSON: illegal value");
    row("echo [1]", "The output of echo: the JSON is not an object");
    row("/nonexistent/program", "/nonexistent/program cannot be started: execve: No such file or directory");
}

void TestProgram::failureOfTheCommandIsThatOfTheIntent()
{
    QFETCH(QString, line);
    QFETCH(QString, message);

    RunningProgram handler(QStringList({"handle", "Greet", "--"}) + words(line));
    handler.nextLine();
    compareFailure({"invoke", "Greet"}, 3, "HandlerFailed", message);
    QCOMPARE(handler.nextLine(), "Greet failed: " + message);
    QCOMPARE(handler.nextLine(), "Greet failed: " + message);
    QCOMPARE(handler.end(SIGTERM).exitCode, 0);
}

void TestProgram::commandsRunAtOnce()
{
    // Each command waits until two of them run.
    const QTemporaryDir directory;
    RunningProgram handler({"handle", "Greet", "--", "sh", "-c",
                            "touch \"$0/$$\"; while [ $(ls \"$0\" | wc -l) -lt 2 ]; do sleep 0.01; done",
                            directory.path()});
    handler.nextLine();
    RunningProgram first({"invoke", "Greet"});
    RunningProgram second({"invoke", "Greet"});
    QCOMPARE(finished(first).output, QString("{}\n"));
    QCOMPARE(finished(second).output, QString("{}\n"));
}

void TestProgram::handlerEndsAfterItsCommands()
{
    const QTemporaryDir directory;
    RunningProgram handler(QStringList({"handle", "Greet", "--"}) + waitingCommand(directory.filePath("go")));
    handler.nextLine();
    RunningProgram invoker({"invoke", "Greet"});
    QCOMPARE(handler.nextLine(QProcess::StandardError), QString("started"));
    handler.terminate();
    QVERIFY(QFile(directory.filePath("go")).open(QIODevice::WriteOnly));
    const Result end = finished(handler);
    QCOMPARE(end.errors, QString());
    QCOMPARE(end.exitCode, 0);
    const Result result = finished(invoker);
    QCOMPARE(result.output, QString("{\"a\":1}\n"));
    QCOMPARE(result.exitCode, 0);
}

void TestProgram::secondSignalEndsTheCommands()
{
    const QTemporaryDir directory;
    RunningProgram handler(QStringList({"handle", "Greet", "--"}) + waitingCommand(directory.filePath("go")));
    handler.nextLine();
    RunningProgram invoker({"invoke", "Greet"});
    QCOMPARE(handler.nextLine(QProcess::StandardError), QString("started"));
    handler.terminate();
    QCOMPARE(handler.end(SIGINT).exitCode, 0);
    const Result result = finished(invoker);
    QCOMPARE(result.errors, QString("corvane: sh was ended by a signal\n"));
    QCOMPARE(result.exitCode, 3);
}

void TestProgram::taskIsControlled()
{
    const Result start = corvane({"task", "start", "linger", "--app", "tester", "--", "1000"});
    QCOMPARE(start.errors, QString());
    QCOMPARE(start.output, QString("The service has accepted the request.\n"));
    QCOMPARE(start.exitCode, 0);
    QTRY_VERIFY(corvane({"task", "status", "linger", "--timeout", "1000"}).output.startsWith("linger Running\n  "));
    const QJsonObject status =
        fromJson(corvane({"task", "status", "linger", "--timeout", "1000", "--json"}).output.toUtf8()).toObject();
    QCOMPARE(status.keys(), QStringList({"properties", "state", "task"}));
    QCOMPARE(status.value("state").toString(), QString("Running"));
    QVERIFY(!status.value("properties").toObject().isEmpty());

    const Result stop = corvane({"task", "stop", "linger", "--force", "--json"}); // HALVIR_APP_ID is tester
    QCOMPARE(stop.output, QString("{\"application\":\"tester\",\"task\":\"linger\"}\n"));
    QCOMPARE(stop.exitCode, 0);
    QTRY_VERIFY(corvane({"task", "status", "linger", "--timeout", "1000"}).output.startsWith("linger Stopped\n"));
}

void TestProgram::missingTaskIsReported()
{
    compareFailure({"task", "status", "nothing", "--timeout", "0.01"}, 1, "Failed",
                   "The service has announced no state of the task \"nothing\"");
}

void TestProgram::taskIsWatched()
{
    RunningProgram watch({"task", "watch", "linger", "--count", "3"});
    QCOMPARE(watch.nextLine(), QString("linger Stopped"));
    QCOMPARE(corvane({"task", "start", "linger"}).exitCode, 0);
    QCOMPARE(watch.nextLine(), QString("linger Waiting"));
    QCOMPARE(watch.nextLine(), QString("linger Running"));
    const Result result = finished(watch);
    QCOMPARE(result.exitCode, 0);
    QCOMPARE(result.errors, QString("Watching the task \"linger\". Ctrl-C ends.\n"));
    QCOMPARE(corvane({"task", "stop", "linger"}).exitCode, 0);
}

void TestProgram::statesOfApplicationsAreWatched_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<QStringList>("lines");

    QTest::newRow("text") << QStringList({"lifecycle", "watch"})
                          << QStringList({"count.instance1 LaunchingState", "count.instance1 ForegroundState",
                                          "count.instance1 StoppedState"});
    QTest::newRow("JSON") << QStringList({"lifecycle", "watch", "--json"})
                          << QStringList({R"({"code":1,"instance":"count.instance2","state":"LaunchingState"})",
                                          R"({"code":2,"instance":"count.instance2","state":"ForegroundState"})",
                                          R"({"code":5,"instance":"count.instance2","state":"StoppedState"})"});
}

void TestProgram::statesOfApplicationsAreWatched()
{
    QFETCH(QStringList, arguments);
    QFETCH(QStringList, lines);

    RunningProgram watch(arguments);
    QCOMPARE(watch.nextLine(QProcess::StandardError), QString("Watching the states of applications. Ctrl-C ends."));
    standIn("start count");
    standIn("stop count");
    for (const QString &line : qAsConst(lines))
        QCOMPARE(watch.nextLine(), line);
    const Result end = watch.end(SIGINT);
    QCOMPARE(end.output, QString());
    QCOMPARE(end.exitCode, 0);
}

void TestProgram::memoryIsWatched()
{
    standIn("set memory low");
    RunningProgram watch({"memory", "watch", "--count", "2"});
    QCOMPARE(watch.nextLine(), QString("100 LowLevel"));
    RunningProgram json({"memory", "watch", "--json", "--count", "2"});
    QCOMPARE(json.nextLine(), QString(R"({"level":100,"name":"LowLevel"})"));
    standIn("set memory 150");
    QCOMPARE(watch.nextLine(), QString("150 MemoryLevel(150)"));
    QCOMPARE(json.nextLine(), QString("{\"level\":150,\"name\":\"MemoryLevel(150)\"}"));
    QCOMPARE(finished(watch).exitCode, 0);
    QCOMPARE(finished(json).exitCode, 0);
}

QTEST_GUILESS_MAIN(TestProgram)
#include "tst_program.moc"
