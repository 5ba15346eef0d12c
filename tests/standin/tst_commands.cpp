// SPDX-License-Identifier: BSD-3-Clause
// The commands that show or change the state of a running stand-in.
#include "stand_in.h"

#include <QtCore/QDateTime>
#include <QtCore/QDir>
#include <QtCore/QJsonArray>
#include <QtCore/QJsonDocument>
#include <QtCore/QJsonObject>
#include <QtCore/QRegularExpression>
#include <QtTest/QtTest>

#include <memory>

namespace {

/// The state of a process in /proc: 'S', 'T' and so on.
char processState(int processId)
{
    QFile file(QString("/proc/%1/stat").arg(processId));
    if (!file.open(QIODevice::ReadOnly))
        return 0;
    const QByteArray line = file.readAll();
    return line.at(line.lastIndexOf(')') + 2);
}

QJsonObject withId(const QJsonValue &list, const QString &id)
{
    const QJsonArray array = list.toArray();
    for (const QJsonValue &element : array) {
        if (element.toObject().value("id") == id)
            return element.toObject();
    }
    return {};
}

} // namespace

class TestCommands : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void init();
    void statusShowsApplicationsAndTasks();
    void statusIsReadable();
    void idsAreListed_data();
    void idsAreListed();
    void nothingIsListedWithoutAStandIn();
    void severalStandInsAreAnErrorOfList();
    void memoryLevelsMayBeNegative();
    void clockMovesToATime_data();
    void clockMovesToATime();
    void clockMovesOnlyForward_data();
    void clockMovesOnlyForward();
    void stateIsAnnouncedAndApplied();
    void suspendedApplicationCanBeStopped();
    void stateNeedsARunningApplication();
    void releasedNameIsReported();
    void monitorShowsTheTrace();
    void monitorEndsWithTheStandIn();
    void reloadAppliesManifests();
    void reloadKeepsRunningApplications();
    void reloadKeepsManifestsIfOneIsInvalid();
    void reloadStartsAndRemovesTasks();
    void watchFollowsManifests();
    void watchReportsInvalidManifests();

private:
    Result run(const QStringList &arguments) { return runStandIn(arguments, environment); }
    QJsonObject status()
    {
        const Result result = run({"status", "--json"});
        return QJsonDocument::fromJson(result.output.toUtf8()).object();
    }
    void write(const QString &name, const QByteArray &text)
    {
        QFile file(directory->filePath("manifests/" + name + ".new"));
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write(text);
        file.close();
        QCOMPARE(::rename(qPrintable(file.fileName()), qPrintable(directory->filePath("manifests/" + name))), 0);
    }
    QString manifests() const { return directory->filePath("manifests"); }

    std::unique_ptr<QTemporaryDir> directory;
    QProcessEnvironment environment;
};

void TestCommands::init()
{
    directory = std::make_unique<QTemporaryDir>();
    QVERIFY(QDir(directory->path()).mkdir("manifests"));
    environment = QProcessEnvironment::systemEnvironment();
    environment.insert("XDG_RUNTIME_DIR", directory->path());
    environment.insert("DBUS_SESSION_BUS_ADDRESS", "unix:path=/nonexistent");
}

void TestCommands::statusShowsApplicationsAndTasks()
{
    StandIn standIn(environment, {"--name", "one", "--manifests", Applications});
    QVERIFY(standIn.isReady());
    QCOMPARE(run({"start", "echo"}).exitCode, 0);
    const QJsonObject object = status();
    QCOMPARE(object.value("name").toString(), QString("one"));
    QCOMPARE(object.value("processId").toInt(), int(standIn.process.processId()));
    QCOMPARE(object.value("directory").toString(), QDir::currentPath());
    const QJsonObject echo = withId(object.value("applications"), "echo");
    QCOMPARE(echo.value("state").toString(), QString("foreground"));
    QCOMPARE(echo.value("instanceId").toString(), QString("echo.instance1"));
    QVERIFY(processState(echo.value("processId").toInt()) != 0);
    QCOMPARE(echo.value("intents").toArray(), QJsonArray{"Echo"});
    QCOMPARE(echo.value("manifest").toString(), Applications + "/echo.json");
    const QJsonObject tell = withId(object.value("applications"), "tell");
    QCOMPARE(tell.value("state").toString(), QString("stopped"));
    QVERIFY(!tell.contains("processId") && !tell.contains("instanceId"));
    const QJsonObject early = withId(object.value("tasks"), "worker.task_early");
    QCOMPARE(early.value("state").toString(), QString("running"));
    QVERIFY(processState(early.value("processId").toInt()) != 0);
    QVERIFY(early.value("properties").toObject().contains("LastRun"));
    QVERIFY(early.value("properties").toObject().contains("NextRun"));
    QCOMPARE(withId(object.value("tasks"), "worker.task_long").value("state").toString(), QString("stopped"));
}

void TestCommands::statusIsReadable()
{
    write("a.json", R"({"id": "a", "command": ["sleep", "1000"], "intents": ["One", "Two"], "tasks":
        [{"id": "ok", "command": ["sh", "-c", "exit 3"], "properties": {"Autostart": true, "Interval": 3600}},
         {"id": "killed", "command": ["sh", "-c", "kill -9 $$"], "properties": {"Autostart": true}},
         {"id": "never", "command": ["true"]}]})");
    StandIn standIn(environment, {"--name", "one", "--manifests", manifests()});
    QVERIFY(standIn.isReady());
    QTRY_VERIFY(run({"status"}).output.contains("exit code"));
    QTRY_VERIFY(run({"status"}).output.contains("by signal"));
    QString text = run({"status"}).output;
    text.replace(QRegularExpression(QStringLiteral("process \\d+")), "process N");
    text.replace(QRegularExpression(QStringLiteral("20\\d\\d-[-0-9T:Z]+")), "TIME");
    text.replace(QRegularExpression(QStringLiteral("unix:.*")), "ADDRESS");
    QCOMPARE(text,
             QString("stand-in one (process N), started in %1\nbus: ADDRESS\nclock: TIME\nmemory pressure: 0\n"
                     "application a: stopped, handles One, Two\n"
                     "task a.task_ok: waiting, next run TIME, last run TIME with exit code 3\n"
                     "task a.task_killed: stopped, last run TIME ended by signal 9\n"
                     "task a.task_never: stopped\n")
                 .arg(QDir::currentPath()));
}

void TestCommands::idsAreListed_data()
{
    QTest::addColumn<QString>("subject");
    QTest::addColumn<QString>("output");

    QTest::newRow("applications") << "applications"
                                  << "a\nb\n";
    QTest::newRow("intents") << "intents"
                             << "One\nTwo\nThree\n";
    QTest::newRow("tasks") << "tasks"
                           << "a.task_x\na.task_y\n";
}

void TestCommands::idsAreListed()
{
    QFETCH(QString, subject);
    QFETCH(QString, output);

    write("a.json", R"({"id": "a", "command": ["true"], "intents": ["One", "Two"],
        "tasks": [{"id": "x", "command": ["true"]}, {"id": "y", "command": ["true"]}]})");
    write("b.json", R"({"id": "b", "command": ["true"], "intents": ["Three"]})");
    StandIn standIn(environment, {"--manifests", manifests()});
    QVERIFY(standIn.isReady());
    const Result result = run({"list", subject});
    QCOMPARE(result.exitCode, 0);
    QCOMPARE(result.output, output);
    QCOMPARE(result.errors, QString());
}

void TestCommands::nothingIsListedWithoutAStandIn()
{
    for (const char *subject : {"applications", "intents", "tasks"}) {
        const Result result = run({"list", subject});
        QCOMPARE(result.exitCode, 0);
        QCOMPARE(result.output, QString());
        QCOMPARE(result.errors, QString());
    }
}

void TestCommands::severalStandInsAreAnErrorOfList()
{
    StandIn one(environment);
    StandIn two(environment);
    QVERIFY(one.isReady() && two.isReady());
    QCOMPARE(run({"list", "tasks"}).exitCode, 69);
}

void TestCommands::memoryLevelsMayBeNegative()
{
    StandIn standIn(environment);
    QVERIFY(standIn.isReady());
    for (const int level : {-5, 2147483647, -2147483647 - 1, 0}) {
        QCOMPARE(run({"set", "memory", QString::number(level)}).errors, QString());
        QCOMPARE(status().value("memoryLevel").toInt(), level);
    }
}

void TestCommands::clockMovesToATime_data()
{
    QTest::addColumn<QString>("time");
    QTest::addColumn<QString>("pattern");

    QTest::newRow("time of day") << "03:00"
                                 << "T03:00:0";
    QTest::newRow("with seconds") << "23:59:30"
                                  << "T23:59:3";
    QTest::newRow("date and time") << "2099-12-24T18:00"
                                   << "2099-12-24T18:00:0";
    QTest::newRow("date") << "2099-12-24"
                          << "2099-12-24T00:00:0";
    QTest::newRow("of another zone") << "2099-12-24T18:00:00+02:00" // the tests run in UTC
                                     << "2099-12-24T16:00:0";
}

void TestCommands::clockMovesToATime()
{
    QFETCH(QString, time);
    QFETCH(QString, pattern);

    StandIn standIn(environment);
    QVERIFY(standIn.isReady());
    const QDateTime before = QDateTime::currentDateTime();
    const Result result = run({"set", "clock", time});
    QCOMPARE(result.errors, QString());
    QCOMPARE(result.exitCode, 0);
    QVERIFY2(result.output.contains(pattern), qUtf8Printable(result.output));
    QVERIFY(QDateTime::fromString(result.output.trimmed(), Qt::ISODate) >= before.addSecs(-1));
    if (time.size() == 5) { // the next day then
        const QString again = run({"set", "clock", time}).output;
        QVERIFY2(again.contains(pattern), qUtf8Printable(again));
        QVERIFY(QDateTime::fromString(again.trimmed(), Qt::ISODate)
                > QDateTime::fromString(result.output.trimmed(), Qt::ISODate).addSecs(80000));
    }
}

void TestCommands::clockMovesOnlyForward_data()
{
    QTest::addColumn<QString>("time");

    QTest::newRow("past") << "2000-01-01T00:00";
    QTest::newRow("too far") << "2999-01-01T00:00";
}

void TestCommands::clockMovesOnlyForward()
{
    QFETCH(QString, time);

    StandIn standIn(environment);
    QVERIFY(standIn.isReady());
    const Result result = run({"set", "clock", time});
    QCOMPARE(result.exitCode, 1);
    QCOMPARE(result.output, QString());
    QCOMPARE(result.errors,
             QString("corvane-standin: The clock moves on, by at most 100 years at once, until the year 9999\n"));
}

void TestCommands::stateIsAnnouncedAndApplied()
{
    StandIn standIn(environment, {"--manifests", Applications});
    QVERIFY(standIn.isReady());
    QCOMPARE(run({"start", "echo"}).exitCode, 0);
    const auto echo = [this] { return withId(status().value("applications"), "echo"); };
    const int processId = echo().value("processId").toInt();
    for (const char *state : {"background", "suspended", "foreground", "suspended", "background"}) {
        const Result result = run({"set", "state", "echo", state});
        QCOMPARE(result.errors, QString());
        QCOMPARE(result.exitCode, 0);
        QCOMPARE(echo().value("state").toString(), QString(state));
        const bool isStopped = QString(state) == "suspended";
        QTRY_COMPARE(processState(processId) == 'T', isStopped);
    }
}

void TestCommands::suspendedApplicationCanBeStopped()
{
    StandIn standIn(environment, {"--manifests", Applications});
    QVERIFY(standIn.isReady());
    QCOMPARE(run({"start", "echo"}).exitCode, 0);
    QCOMPARE(run({"set", "state", "echo", "suspended"}).exitCode, 0);
    QCOMPARE(run({"stop", "echo"}).exitCode, 0);
    QCOMPARE(withId(status().value("applications"), "echo").value("state").toString(), QString("stopped"));
    QCOMPARE(run({"start", "echo"}).exitCode, 0);
    QCOMPARE(run({"set", "state", "echo", "suspended"}).exitCode, 0);
    QCOMPARE(standIn.end(), 5); // with a suspended application
}

void TestCommands::stateNeedsARunningApplication()
{
    StandIn standIn(environment, {"--manifests", Applications});
    QVERIFY(standIn.isReady());
    Result result = run({"set", "state", "echo", "background"});
    QCOMPARE(result.exitCode, 1);
    QCOMPARE(result.errors, QString("corvane-standin: echo is not running\n"));
    result = run({"set", "state", "nobody", "background"});
    QCOMPARE(result.exitCode, 1);
    QCOMPARE(result.errors, QString("corvane-standin: No manifest has the id \"nobody\"\n"));
}

void TestCommands::releasedNameIsReported()
{
    StandIn standIn(environment, {"--start-timeout=100", "--manifests", Applications});
    QVERIFY(standIn.isReady());
    // The process may need several calls until it has claimed its name.
    QTRY_COMPARE(run({"start", "release"}).errors,
                 QString("corvane-standin: release.instance1 has released its bus name, and has not claimed it again "
                         "within 100 ms\n"));
    QCOMPARE(run({"set", "state", "release", "background"}).errors,
             QString("corvane-standin: release.instance1 has released its bus name\n"));
}

void TestCommands::monitorShowsTheTrace()
{
    StandIn standIn(environment, {"--manifests", Applications});
    QVERIFY(standIn.isReady());
    QProcess plain;
    QProcess withTimes;
    for (QProcess *process : {&plain, &withTimes}) {
        process->setProcessEnvironment(environment);
        process->start(Program,
                       QStringList("monitor") + (process == &plain ? QStringList() : QStringList("--timestamps")));
        process->setReadChannel(QProcess::StandardError);
        QTRY_VERIFY(process->canReadLine());
        QCOMPARE(process->readLine(), QByteArray("corvane-standin: The monitor runs; end it with Ctrl-C\n"));
        process->setReadChannel(QProcess::StandardOutput);
    }
    QCOMPARE(run({"start", "echo"}).exitCode, 0);
    QTRY_VERIFY(plain.canReadLine() && withTimes.canReadLine());
    const QString line = QString::fromUtf8(plain.readLine());
    QVERIFY2(line.startsWith("echo.instance1 started (process "), qUtf8Printable(line));
    const QString timed = QString::fromUtf8(withTimes.readLine());
    QVERIFY2(QRegularExpression(QStringLiteral("\\A\\d\\d:\\d\\d:\\d\\d\\.\\d{3} ")).match(timed).hasMatch(),
             qUtf8Printable(timed));
    QCOMPARE(timed.mid(13), line);
    plain.terminate();
    QVERIFY(plain.waitForFinished(Patience));
    QCOMPARE(run({"stop", "echo"}).exitCode, 0);
    QTRY_VERIFY(withTimes.canReadLine());
    QCOMPARE(QString::fromUtf8(withTimes.readLine()).mid(13), QString("echo.instance1 was ended by signal 15\n"));
    withTimes.terminate();
    QVERIFY(withTimes.waitForFinished(Patience));
    QCOMPARE(standIn.process.readAllStandardError(), QByteArray());
}

void TestCommands::monitorEndsWithTheStandIn()
{
    StandIn standIn(environment);
    QVERIFY(standIn.isReady());
    QProcess process;
    process.setProcessEnvironment(environment);
    process.start(Program, {"monitor"});
    process.setReadChannel(QProcess::StandardError);
    QTRY_VERIFY(process.canReadLine());
    QCOMPARE(standIn.end(), 5);
    QVERIFY(process.waitForFinished(Patience));
    QCOMPARE(process.exitCode(), 0);
}

void TestCommands::reloadAppliesManifests()
{
    write("a.json", R"({"id": "a", "command": ["true"], "intents": ["One"]})");
    StandIn standIn(environment, {"--manifests", manifests()});
    QVERIFY(standIn.isReady());
    write("a.json", R"({"id": "a", "command": ["true"], "intents": ["Two"]})");
    write("b.json", R"({"id": "b", "command": ["true"]})");
    QCOMPARE(run({"list", "intents"}).output, QString("One\n"));
    const Result result = run({"reload"});
    QCOMPARE(result.errors, QString());
    QCOMPARE(result.output, QString());
    QCOMPARE(result.exitCode, 0);
    QCOMPARE(run({"list", "intents"}).output, QString("Two\n"));
    QCOMPARE(run({"list", "applications"}).output, QString("a\nb\n"));
    QVERIFY(QFile::remove(manifests() + "/a.json"));
    QCOMPARE(run({"reload"}).exitCode, 0);
    QCOMPARE(run({"list", "intents"}).output, QString());
    QCOMPARE(run({"list", "applications"}).output, QString("b\n"));
    QCOMPARE(run({"start", "a"}).errors, QString("corvane-standin: No manifest has the id \"a\"\n"));
}

void TestCommands::reloadKeepsRunningApplications()
{
    QVERIFY(QFile::copy(Applications + "/echo.json", manifests() + "/echo.json"));
    write("a.json", R"({"id": "a", "command": ["true"]})");
    StandIn standIn(environment, {"--manifests", manifests()});
    QVERIFY(standIn.isReady());
    QCOMPARE(run({"start", "echo"}).output, QString("echo.instance1\n"));
    QVERIFY(QFile::remove(manifests() + "/echo.json"));
    QCOMPARE(run({"reload"}).exitCode, 0);
    QCOMPARE(withId(status().value("applications"), "echo").value("instanceId").toString(), QString("echo.instance1"));
    QVERIFY(QFile::copy(Applications + "/echo.json", manifests() + "/echo.json"));
    QCOMPARE(run({"reload"}).exitCode, 0);
    QCOMPARE(run({"start", "echo"}).output, QString("echo.instance1\n"));
    QCOMPARE(run({"stop", "echo"}).exitCode, 0);
    QCOMPARE(run({"start", "echo"}).output, QString("echo.instance2\n"));
}

void TestCommands::reloadKeepsManifestsIfOneIsInvalid()
{
    write("a.json", R"({"id": "a", "command": ["true"]})");
    StandIn standIn(environment, {"--manifests", manifests()});
    QVERIFY(standIn.isReady());
    write("a.json", R"({"id": "b", "command": ["true"]})");
    write("c.json", "{");
    write("d.json", "[]");
    const Result result = run({"reload"});
    QCOMPARE(result.exitCode, 1);
    QCOMPARE(result.errors.count('\n'), 2);
    QVERIFY2(result.errors.contains("corvane-standin: " + manifests() + "/c.json: line 1: expected JSON: "),
             qUtf8Printable(result.errors));
    QVERIFY2(result.errors.contains("corvane-standin: " + manifests() + "/d.json: line 1: expected an object"),
             qUtf8Printable(result.errors));
    QCOMPARE(run({"list", "applications"}).output, QString("a\n"));
}

void TestCommands::reloadStartsAndRemovesTasks()
{
    write("a.json", R"({"id": "a", "command": ["true"], "tasks": [{"id": "old", "command": ["sleep", "1000"],
        "properties": {"Autostart": true, "StartDelay": 1000}}]})");
    StandIn standIn(environment, {"--manifests", manifests()});
    QVERIFY(standIn.isReady());
    QCOMPARE(withId(status().value("tasks"), "a.task_old").value("state").toString(), QString("waiting"));
    write("a.json", R"({"id": "a", "command": ["true"], "tasks": [{"id": "new", "command": ["sleep", "1000"],
        "properties": {"Autostart": true}}]})");
    QCOMPARE(run({"reload"}).exitCode, 0);
    QCOMPARE(run({"list", "tasks"}).output, QString("a.task_new\n"));
    QCOMPARE(withId(status().value("tasks"), "a.task_new").value("state").toString(), QString("running"));
    write("a.json", R"({"id": "a", "command": ["true"]})");
    QCOMPARE(run({"reload"}).exitCode, 0);
    QCOMPARE(withId(status().value("tasks"), "a.task_new").value("state").toString(), QString("running")); // it goes on
    QCOMPARE(run({"set", "clock", "+1h"}).exitCode, 0);
    QCOMPARE(run({"list", "tasks"}).output, QString("a.task_new\n")); // the old task has not run
}

void TestCommands::watchFollowsManifests()
{
    write("a.json", R"({"id": "a", "command": ["true"]})");
    StandIn standIn(environment, {"--watch", "--manifests", manifests()});
    QVERIFY(standIn.isReady());
    const auto list = [this] { return run({"list", "applications"}).output; };
    QCOMPARE(list(), QString("a\n"));
    write("b.json", R"({"id": "b", "command": ["true"]})");
    QTRY_COMPARE(list(), QString("a\nb\n"));
    for (int i = 1; i <= 2; ++i) { // replaced twice
        write("b.json", QString(R"({"id": "b%1", "command": ["true"]})").arg(i).toUtf8());
        QTRY_COMPARE(list(), QString("a\nb%1\n").arg(i));
    }
    QFile file(manifests() + "/b.json"); // changed in place
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.write(R"({"id": "c", "command": ["true"]})");
    file.close();
    QTRY_COMPARE(list(), QString("a\nc\n"));
    QVERIFY(QFile::remove(manifests() + "/b.json"));
    QTRY_COMPARE(list(), QString("a\n"));
}

void TestCommands::watchReportsInvalidManifests()
{
    write("a.json", R"({"id": "a", "command": ["true"]})");
    StandIn standIn(environment, {"--watch", "--manifests", manifests()});
    QVERIFY(standIn.isReady());
    write("a.json", R"({"id": "a"})");
    standIn.process.setReadChannel(QProcess::StandardError);
    QTRY_VERIFY(standIn.process.canReadLine());
    QCOMPARE(
        QString::fromUtf8(standIn.process.readLine()),
        QString("corvane-standin: %1/a.json: \"command\": expected a list of texts, found nothing\n").arg(manifests()));
    QCOMPARE(run({"list", "applications"}).output, QString("a\n"));
}

QTEST_GUILESS_MAIN(TestCommands)
#include "tst_commands.moc"
