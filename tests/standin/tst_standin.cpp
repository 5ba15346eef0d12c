// SPDX-License-Identifier: BSD-3-Clause
#include <patience.h>
#include <under_valgrind.h>

#include <QtCore/QDir>
#include <QtCore/QRegularExpression>
#include <QtTest/QtTest>

#include <csignal>

namespace {

const QString Binaries = QStringLiteral(CORVANE_BINARIES);
const QString StandIn = Binaries + QStringLiteral("/corvane-standin");
const QString Applications = QStringLiteral(CORVANE_APPLICATIONS);
const QString Sources = QStringLiteral(CORVANE_SOURCES);
const QString BusProgram = QStringLiteral("--bus-program=") + qEnvironmentVariable("CORVANE_BUS_PROGRAM");
const QString StartTimeout = QStringLiteral("--start-timeout=%1").arg(Patience);

struct Result
{
    int exitCode;
    QString output;
    QString errors;
};

QProcessEnvironment environment()
{
    QProcessEnvironment values = QProcessEnvironment::systemEnvironment();
    values.insert("PATH", Binaries + ':' + values.value("PATH"));
    values.insert("DBUS_SESSION_BUS_ADDRESS", "unix:path=/nonexistent");
    static const QTemporaryDir runtimeDirectory; // other tests run other stand-ins
    values.insert("XDG_RUNTIME_DIR", runtimeDirectory.path());
    return values;
}

Result standIn(QStringList arguments, const QProcessEnvironment &values = environment())
{
    if (arguments.value(0) == "run" && !arguments.contains(BusProgram))
        arguments.insert(1, BusProgram);
    QProcess process;
    process.setProcessEnvironment(values);
    process.start(StandIn, arguments);
    if (!process.waitForFinished(Patience))
        qFatal("The stand-in does not end: %s", process.readAllStandardError().constData());
    return {process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1,
            QString::fromUtf8(process.readAllStandardOutput()), QString::fromUtf8(process.readAllStandardError())};
}

/// Runs a stand-in and a command for a manifest "a.json" with a task of the given properties. Its program does not
/// exist.
Result standInWithTask(const QByteArray &properties, const QString &command = "echo ran")
{
    const QTemporaryDir directory;
    QFile file(directory.filePath("a.json"));
    if (!file.open(QIODevice::WriteOnly))
        qFatal("The manifest cannot be written");
    file.write(R"({"id": "a", "command": ["x"], "tasks": [{"id": "t", "command": ["x"], "properties": )" + properties
               + "}]}");
    file.close();
    return standIn({"run", "--manifests", directory.path(), "--", "sh", "-c", command});
}

QStringList shell(const QString &script)
{
    return {"run", BusProgram, "--", "sh", "-c", script};
}

bool isRunning(qint64 processId)
{
    QFile file(QString("/proc/%1/stat").arg(processId));
    if (!file.open(QIODevice::ReadOnly))
        return false;
    const QByteArray line = file.readAll();
    return !line.mid(line.lastIndexOf(')')).startsWith(") Z"); // a zombie has ended
}

} // namespace

class TestStandIn : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void helpAndVersionAreShown();
    void manualContainsTheHelp();
    void wrongCommandLinesAreRefused_data();
    void wrongCommandLinesAreRefused();
    void wrongManifestsAreRefused();
    void wrongTaskPropertiesAreRefused();
    void automaticTaskWithoutTimeLeftIsReported();
    void taskThatCannotBeStartedIsReported();
    void exitCodeIsThatOfTheCommand_data();
    void exitCodeIsThatOfTheCommand();
    void missingCommandIsReported();
    void optionsEndAtTheCommand();
    void commandReadsStandardInput();
    void commandCanRunAsAnApplication();
    void busIsPrivate();
    void missingBusIsReported();
    void lostBusIsReported();
    void endOfTheCommandLeavesNoProcesses();
    void signalLeavesNoProcesses_data();
    void signalLeavesNoProcesses();
    void killedStandInLeavesNothing_data();
    void killedStandInLeavesNothing();
    void earlierChildrenKeepRunning();
    void orphanedProcessesAreReaped();
    void ignoredSignalsStayIgnored();
    void leavesNoFiles();
    void missingTemporaryDirectoryIsReported();
    void readOnlyTemporaryDirectoryIsReplaced();
    void traceShowsEachMessageInOneLine();
    void traceShowsMissingFiles();
    void traceShowsTimes();
    void outputIsLabelled_data();
    void outputIsLabelled();
    void outputOfEndedApplicationsIsComplete();
    void nothingIsPrintedWithoutVerbose();
    void examplesExchangeAnIntentWithAFile();
    void exampleReportsErrors();
    void controlNeedsAStandIn();
    void controlReportsErrors();
    void applicationHasToClaimItsName();
    void monitorPrintsStatesAndLevels();
    void syncExchangesMessagesWithItsTask();
};

void TestStandIn::helpAndVersionAreShown()
{
    const Result help = standIn({"--help"});
    QCOMPARE(help.exitCode, 0);
    QVERIFY2(help.output.startsWith("Usage: corvane-standin run "), qUtf8Printable(help.output));
    QCOMPARE(standIn({"run", "--help"}).output, help.output);
    const Result version = standIn({"--version"});
    QCOMPARE(version.exitCode, 0);
    QCOMPARE(version.output, QString("corvane-standin " CORVANE_VERSION "\n"));
}

void TestStandIn::manualContainsTheHelp()
{
    QProcess mandoc;
    mandoc.start("mandoc", {"-T", "ascii", "-O", "width=200", CORVANE_STANDIN_MANUAL});
    QVERIFY(mandoc.waitForFinished(Patience));
    QStringList manual = QString::fromUtf8(mandoc.readAllStandardOutput()).split('\n');
    for (QString &line : manual)
        line = line.simplified();
    const QStringList help = standIn({"--help"}).output.remove("Usage: ").split('\n');
    QVERIFY(help.size() > 80);
    for (const QString &line : help)
        QVERIFY2(manual.contains(line.simplified()), qUtf8Printable(line));
}

void TestStandIn::wrongCommandLinesAreRefused_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<QString>("reason");

    const auto row = [](const char *name, const char *arguments, const char *reason) {
        QTest::newRow(name) << QString::fromUtf8(arguments).split(' ', Qt::SkipEmptyParts) << QString::fromUtf8(reason);
    };
    row("nothing", "", "Expected a command");
    row("another word", "walk", "Expected a command, found \"walk\"");
    row("option of run elsewhere", "--verbose run true", "Unknown option 'verbose'.");
    row("set nothing", "set", "Expected \"memory\", \"clock\" or \"state\"");
    row("set something else", "set volume 3", "Expected \"memory\", \"clock\" or \"state\", found \"volume\"");
    row("set clock", "set clock",
        "Expected a duration such as \"+90m\", or a time such as \"03:00\" or \"2030-12-24T18:00\"");
    row("set clock back", "set clock -1h", "The clock moves only forward, found \"-1h\"");
    row("set clock to no time", "set clock 25:00",
        "Expected a duration such as \"+90m\", or a time such as \"03:00\" or \"2030-12-24T18:00\", found \"25:00\"");
    row("set state", "set state", "Expected the id of an application");
    row("set another state", "set state a gone",
        "Expected \"foreground\", \"background\" or \"suspended\", found \"gone\"");
    row("set state and more", "set state a suspended now", "Expected nothing more, found \"now\"");
    row("list nothing", "list", "Expected \"applications\", \"intents\" or \"tasks\"");
    row("list something else", "list files", "Expected \"applications\", \"intents\" or \"tasks\", found \"files\"");
    row("status and more", "status now", "Expected nothing more, found \"now\"");
    row("reload and more", "reload now", "Expected nothing more, found \"now\"");
    row("set memory to a large number", "set memory 2147483648",
        "Expected \"normal\", \"low\", \"critical\", \"auto\" or a number from -2147483648 to 2147483647, found "
        "\"2147483648\"");
    row("set clock by more", "set clock +1h +1m", "Expected nothing more, found \"+1m\"");
    row("set memory", "set memory",
        "Expected \"normal\", \"low\", \"critical\", \"auto\" or a number from -2147483648 to 2147483647");
    row("set memory to text", "set memory high",
        "Expected \"normal\", \"low\", \"critical\", \"auto\" or a number from -2147483648 to 2147483647, found "
        "\"high\"");
    row("set memory and more", "set memory low now", "Expected nothing more, found \"now\"");
    row("start nothing", "start", "Expected the id of an application");
    row("stop two", "stop a b", "Expected nothing more, found \"b\"");
    row("no command", "run", "Expected a command to run");
    row("no command after --", "run --verbose --", "Expected a command to run");
    row("unknown option", "run --loud true", "Unknown option 'loud'.");
    row("missing value", "run --as", "Missing value after '--as'.");
    row("timeout of text", "run --start-timeout soon true", "--start-timeout: expected milliseconds, found \"soon\"");
    row("timeout of zero", "run --start-timeout 0 true", "--start-timeout: expected milliseconds, found \"0\"");
    row("unknown application", "run --as nobody -- true", "--as: no manifest has the id \"nobody\"");
}

void TestStandIn::wrongCommandLinesAreRefused()
{
    QFETCH(QStringList, arguments);
    QFETCH(QString, reason);

    const Result result = standIn(arguments);
    QCOMPARE(result.exitCode, 64);
    QCOMPARE(result.output, QString());
    QCOMPARE(result.errors.section('\n', 0, 0), "corvane-standin: " + reason);
}

void TestStandIn::wrongManifestsAreRefused()
{
    const Result result = standIn({"run", "--manifests", "/nonexistent", "--", "echo", "ran"});
    QCOMPARE(result.exitCode, 65);
    QCOMPARE(result.output, QString());
    QCOMPARE(result.errors, QString("corvane-standin: /nonexistent: expected a directory with manifests\n"));
}

void TestStandIn::wrongTaskPropertiesAreRefused()
{
    const Result result = standInWithTask(R"({"Autostart": true, "Interval": "1"})");
    QCOMPARE(result.exitCode, 65);
    QCOMPARE(result.output, QString());
    QCOMPARE(result.errors.section("/a.json: ", 1),
             QString("\"tasks[0].properties.Interval\": expected an integer from 0 to 2147483647, found \"1\"\n"));
}

void TestStandIn::automaticTaskWithoutTimeLeftIsReported()
{
    const Result result = standInWithTask(R"({"Autostart": true, "Schedule": {"EndDate": "2020-01-01"}})");
    QCOMPARE(result.exitCode, 0);
    QCOMPARE(result.output, QString("ran\n"));
    QCOMPARE(result.errors, QString("corvane-standin: The schedule of a.task_t has no time left\n"));
}

void TestStandIn::taskThatCannotBeStartedIsReported()
{
    const Result result =
        standInWithTask(R"({"Autostart": true})", "until corvane-standin status | grep -q 'exit code 127'; do :; done");
    QVERIFY2(result.errors.startsWith("corvane-standin: a.task_t cannot be started: "), qUtf8Printable(result.errors));
}

void TestStandIn::exitCodeIsThatOfTheCommand_data()
{
    QTest::addColumn<QString>("script");
    QTest::addColumn<int>("exitCode");

    QTest::newRow("success") << "exit 0" << 0;
    QTest::newRow("failure") << "exit 7" << 7;
    QTest::newRow("killed") << "kill -KILL $$" << 128 + SIGKILL;
    QTest::newRow("terminated") << "kill -TERM $$" << 128 + SIGTERM;
}

void TestStandIn::exitCodeIsThatOfTheCommand()
{
    QFETCH(QString, script);
    QFETCH(int, exitCode);

    const Result result = standIn(shell("echo ran; " + script));
    QCOMPARE(result.exitCode, exitCode);
    QCOMPARE(result.output, QString("ran\n"));
    QCOMPARE(result.errors, QString());
}

void TestStandIn::missingCommandIsReported()
{
    const Result result = standIn({"run", "--", "/nonexistent"});
    QCOMPARE(result.exitCode, 127);
    QCOMPARE(result.errors,
             QString("corvane-standin: The command cannot be started: /nonexistent: No such file or directory\n"));
}

void TestStandIn::optionsEndAtTheCommand()
{
    QCOMPARE(standIn({"run", "echo", "--verbose", "--", "--help", "-qmljsdebugger=port:1"}).output,
             QString("--verbose -- --help -qmljsdebugger=port:1\n"));
}

void TestStandIn::commandReadsStandardInput()
{
    QProcess process;
    process.start(StandIn, shell("cat"));
    process.write("typed");
    process.closeWriteChannel();
    QVERIFY(process.waitForFinished(Patience));
    QCOMPARE(process.readAllStandardOutput(), QByteArray("typed"));
}

void TestStandIn::commandCanRunAsAnApplication()
{
    const Result result = standIn({"run", "--manifests", Applications, "--as", "echo", "--", "sh", "-c",
                                   "echo $HALVIR_APP_ID $HALVIR_APP_INSTANCE_ID"});
    QCOMPARE(result.output, QString("echo echo.instance1\n"));
}

void TestStandIn::busIsPrivate()
{
    const Result result = standIn(shell("echo $DBUS_SESSION_BUS_ADDRESS"));
    QVERIFY2(result.output.startsWith("unix:path=/"), qUtf8Printable(result.output));
    QVERIFY2(!result.output.contains("nonexistent"), qUtf8Printable(result.output));
}

void TestStandIn::missingBusIsReported()
{
    QProcessEnvironment values = environment();
    values.insert("PATH", "/nonexistent");
    const Result result = standIn(shell("echo ran"), values);
    QCOMPARE(result.exitCode, 69);
    QCOMPARE(result.output, QString());
    const QString program = qEnvironmentVariable("CORVANE_BUS_PROGRAM");
    QVERIFY2(result.errors.startsWith(QString("corvane-standin: %1 does not start: ").arg(program)),
             qUtf8Printable(result.errors));
}

void TestStandIn::lostBusIsReported()
{
    const Result result = standIn(
        shell("for p in $(cat /proc/$PPID/task/*/children); do test $p = $$ || kill $p; done; exec sleep 1000"));
    QCOMPARE(result.exitCode, 69);
    QCOMPARE(result.errors, QString("corvane-standin: The private bus has ended\n"));
}

void TestStandIn::endOfTheCommandLeavesNoProcesses()
{
    // A child, a child in another session, a child that ignores SIGTERM, and an orphan.
    QProcess process;
    process.start(StandIn,
                  shell("sleep 1000 & echo $!; setsid sleep 1000 & echo $!; sh -c 'trap \"\" TERM; echo $$; sleep 1000 "
                        "& wait; wait' & (sleep 1000 & echo $!); read answer; exit 5"));
    QStringList ids;
    while (ids.size() < 4) {
        QTRY_VERIFY(process.canReadLine());
        ids << QString::fromUtf8(process.readLine()).trimmed();
    }
    process.write("go on\n");
    QVERIFY(process.waitForFinished(Patience));
    QCOMPARE(process.exitCode(), 5);
    for (const QString &id : qAsConst(ids))
        QVERIFY2(!isRunning(id.toLongLong()), qUtf8Printable(id));
}

void TestStandIn::signalLeavesNoProcesses_data()
{
    QTest::addColumn<int>("signal");

    QTest::newRow("Ctrl-C") << SIGINT;
    QTest::newRow("SIGQUIT") << SIGQUIT;
    QTest::newRow("SIGTERM") << SIGTERM;
    QTest::newRow("SIGHUP") << SIGHUP;
}

void TestStandIn::signalLeavesNoProcesses()
{
    QFETCH(int, signal);

    QProcess process;
    process.start(StandIn, shell("sleep 1000 & echo $! $$ $(cat /proc/$PPID/task/*/children); wait"));
    QTRY_VERIFY(process.canReadLine());
    const QStringList ids = QString::fromUtf8(process.readLine()).simplified().split(' ');
    QCOMPARE(ids.size(), 4); // the command twice, and the bus
    ::kill(pid_t(process.processId()), signal);
    QVERIFY(process.waitForFinished(Patience));
    QCOMPARE(process.exitStatus(), QProcess::NormalExit);
    QCOMPARE(process.exitCode(), 128 + signal);
    for (const QString &id : ids)
        QVERIFY2(!isRunning(id.toLongLong()), qUtf8Printable(id));
}

void TestStandIn::killedStandInLeavesNothing_data()
{
    QTest::addColumn<QStringList>("killed");

    QTest::newRow("process that the shell has started") << QStringList("original");
    QTest::newRow("supervisor") << QStringList("supervisor");
    QTest::newRow("stand-in") << QStringList("stand-in");
    QTest::newRow("stand-in and original process") << QStringList({"stand-in", "original"});
    QTest::newRow("process group") << QStringList("group");
}

void TestStandIn::killedStandInLeavesNothing()
{
    QFETCH(QStringList, killed);

    // A child, an orphan in another session without environment, and a child that ignores SIGTERM.
    const QString script = "sleep 1000 & echo child $!; (env -i setsid sh -c 'echo orphan $$; exec sleep 1000' &); "
                           "sh -c 'trap \"\" TERM; echo stubborn $$; sleep 1000 & wait; wait' & "
                           "supervisor=$(cut -d' ' -f4 /proc/$PPID/stat); "
                           "echo command $$; echo stand-in $PPID; echo supervisor $supervisor; "
                           "echo original $(cut -d' ' -f4 /proc/$supervisor/stat); "
                           "for id in $(cat /proc/$PPID/task/*/children); do echo child$id $id; done; echo end; wait";
    const QTemporaryDir directory;
    QProcessEnvironment values = environment();
    values.insert("TMPDIR", directory.path());
    QProcess process;
    process.setProcessEnvironment(values);
    process.start("setsid", QStringList(StandIn) + shell(script)); // the leader of its process group
    QMap<QString, pid_t> ids;
    while (!ids.contains("end") || !ids.contains("orphan") || !ids.contains("stubborn")) {
        QTRY_VERIFY(process.canReadLine());
        const QStringList words = QString::fromUtf8(process.readLine()).simplified().split(' ');
        ids.insert(words.first(), words.value(1).toInt());
    }
    QVERIFY2(ids.size() >= 10, qPrintable(QString::number(ids.size()))); // the bus is a child, too
    QCOMPARE(ids.value("original"), pid_t(process.processId()));
    ids.remove("end");
    for (const QString &name : killed)
        QCOMPARE(::kill(name == "group" ? -ids.value("original") : ids.value(name), SIGKILL), 0);
    QVERIFY(process.waitForFinished(Patience));
    for (auto it = ids.cbegin(); it != ids.cend(); ++it)
        QTRY_VERIFY2(!isRunning(*it), qUtf8Printable(it.key()));
    QTRY_COMPARE(QDir(directory.path()).entryList(QDir::AllEntries | QDir::NoDotAndDotDot), QStringList());
    if (killed == QStringList("stand-in")) // else nobody may read the report
        QCOMPARE(process.readAllStandardError(), QByteArray("corvane-standin: The stand-in was ended by signal 9\n"));
}

void TestStandIn::earlierChildrenKeepRunning()
{
    // A shell has a child, and then becomes the stand-in.
    QProcess process;
    process.start(
        "sh",
        {"-c", "sleep 1000 & echo $!; exec \"$0\" run \"$1\" -- sh -c 'sleep 1000 & echo $!'", StandIn, BusProgram});
    QTRY_VERIFY(process.canReadLine());
    const qint64 before = process.readLine().toLongLong();
    QTRY_VERIFY(process.canReadLine());
    const qint64 started = process.readLine().toLongLong();
    QTRY_COMPARE(process.state(), QProcess::NotRunning);
    QVERIFY(!isRunning(started));
    const bool isSpared = isRunning(before);
    ::kill(pid_t(before), SIGKILL);
    QVERIFY(isSpared);
}

void TestStandIn::orphanedProcessesAreReaped()
{
    // An orphaned process ends. The stand-in must reap it, so that the shell sees its end.
    const Result result = standIn(shell(
        "id=$(sh -c 'sleep 0 >/dev/null & echo $!'); while kill -0 $id 2>/dev/null; do sleep 0.1; done; echo gone"));
    QCOMPARE(result.output, QString("gone\n"));
    QCOMPARE(result.exitCode, 0);
}

void TestStandIn::ignoredSignalsStayIgnored()
{
    QProcess process;
    process.start("nohup", QStringList(StandIn) + shell("echo $PPID; read line; exit 3"));
    QTRY_VERIFY(process.canReadLine());
    ::kill(process.readLine().trimmed().toInt(), SIGHUP);
    process.write("go on\n");
    QVERIFY(process.waitForFinished(Patience));
    QCOMPARE(process.exitCode(), 3);
}

void TestStandIn::leavesNoFiles()
{
    const QTemporaryDir directory;
    QProcessEnvironment values = environment();
    values.insert("TMPDIR", directory.filePath("with 100% é~"));
    QVERIFY(QDir().mkpath(values.value("TMPDIR")));
    const Result result = standIn(shell("ls -A \"$TMPDIR\" | wc -l"), values);
    QCOMPARE(result.output, QString("1\n"));
    QCOMPARE(QDir(values.value("TMPDIR")).entryList(QDir::AllEntries | QDir::NoDotAndDotDot).size(), 0);
}

void TestStandIn::missingTemporaryDirectoryIsReported()
{
    if (underValgrind()) {
        QTest::qSkip("valgrind needs the directory too", __FILE__, __LINE__); // in QSKIP, Clang misses an argument
        return;
    }
    QProcessEnvironment values = environment();
    values.insert("TMPDIR", "/nonexistent");
    const Result result = standIn(shell("echo ran"), values);
    QCOMPARE(result.exitCode, 69);
    QCOMPARE(result.output, QString());
    QCOMPARE(result.errors, QString("corvane-standin: TMPDIR names no directory: /nonexistent\n"));
}

void TestStandIn::readOnlyTemporaryDirectoryIsReplaced()
{
    if (underValgrind()) {
        QTest::qSkip("valgrind needs the directory too", __FILE__, __LINE__);
        return;
    }
    const QString readOnly = "mount --bind /tmp /tmp && mount -o remount,bind,ro /tmp && ";
    QProcess probe;
    probe.start("unshare", {"-m", "sh", "-c", readOnly + "true"});
    if (!probe.waitForFinished(Patience) || probe.exitCode() != 0) {
        QTest::qSkip("Only root can mount", __FILE__, __LINE__); // in QSKIP, Clang misses an argument
        return;
    }
    QProcess process;
    QProcessEnvironment values = environment();
    values.remove("XDG_RUNTIME_DIR");
    values.insert("NAME",
                  QString("read-only-%1").arg(QCoreApplication::applicationPid())); // /tmp has records of others
    process.setProcessEnvironment(values);
    const QString script = readOnly
        + "\"$0\" run \"$1\" echo ran; mount -t tmpfs none /mnt && TMPDIR=/mnt \"$0\" run --name $NAME \"$1\" sh -c "
          "'cd /; unset DBUS_SESSION_BUS_ADDRESS XDG_RUNTIME_DIR; corvane-standin exec --name $NAME echo found'; "
          "ls -A /mnt";
    process.start("unshare", {"-m", "sh", "-c", script, StandIn, BusProgram});
    QVERIFY(process.waitForFinished(Patience));
    QCOMPARE(process.readAllStandardOutput(), QByteArray("found\n"));
    QCOMPARE(
        process.readAllStandardError(),
        QByteArray("corvane-standin: No directory can be created in /tmp: Read-only file system; set TMPDIR to one "
                   "that can be written\n"));
}

void TestStandIn::traceShowsEachMessageInOneLine()
{
    QTemporaryFile file;
    QVERIFY(file.open());
    file.write("content");
    file.close();
    const Result result = standIn({"run", StartTimeout, "--verbose", "--manifests", Sources + "/examples/viewer", "--",
                                   "corvane-example-launcher", file.fileName()});
    QString trace = result.errors;
    trace.replace(QRegularExpression(QStringLiteral("process \\d+")), "process N");
    trace.replace(QRegularExpression(QStringLiteral("from :[0-9.]+")), "from :N");
    trace.replace(QRegularExpression(QStringLiteral("/tmp/note-\\w+\\.txt")), "/tmp/note");
    trace.replace(file.fileName(), "/tmp/file");
    QCOMPARE(trace.split('\n'),
             QString::fromUtf8(R"(
corvane-standin: [1] InvokeIntent "OpenURI" {"uri":"file:///tmp/file"} with the hints {"readFiles":["uri"]} from :N, to read: "/tmp/file" (read-only, 7 bytes)
corvane-standin: viewer.instance1 started (process N)
corvane-standin: [1] HandleIntent "OpenURI" {"uri":"file:///tmp/file"} to viewer.instance1
corvane-standin: [1] Reply {"firstLine":"content"} from viewer.instance1
corvane-standin: [2] InvokeIntent "WriteNote" {"text":"Remember the milk."} from :N
corvane-standin: [2] HandleIntent "WriteNote" {"text":"Remember the milk."} to viewer.instance1
corvane-standin: [2] Reply {"file":"/tmp/note"} from viewer.instance1, to read: "/tmp/note" (read-only, 18 bytes)
)")
                 .mid(1)
                 .split('\n'));
}

void TestStandIn::traceShowsMissingFiles()
{
    const QString root = CORVANE_SERVICE_ROOT;
    const QString interface = root + ".Intents1";
    const Result result = standIn({"run",     "--verbose",    "--",          "busctl",
                                   "--user",  "call",         root,          '/' + QString(interface).replace('.', '/'),
                                   interface, "InvokeIntent", "sa{sv}a{sv}", "Open",
                                   "2",       "readFiles",    "as",          "1",
                                   "file",    "writeFiles",   "as",          "0",
                                   "0"});
    QString line = result.errors.section('\n', 0, 0);
    line.replace(QRegularExpression(QStringLiteral("from :[0-9.]+")), "from :N");
    QCOMPARE(line,
             QString("corvane-standin: [1] InvokeIntent \"Open\" {} with the hints "
                     "{\"readFiles\":[\"file\"],\"writeFiles\":[]} from :N, to read: no file"));
}

void TestStandIn::outputIsLabelled_data()
{
    QTest::addColumn<QString>("option");
    QTest::addColumn<QString>("output");
    QTest::addColumn<QString>("errors");

    const QString half(65536, 'x');
    QTest::newRow("labels") << "--start-timeout=1000"
                            << "a: out\na: \na: " + half + "\na: yy\na: no end\n"
                            << "a.task_t: task\na: err\n";
    QTest::newRow("raw") << "--raw"
                         << "out\n\n" + half + "yy\nno end"
                         << "task\nerr\n";
}

void TestStandIn::outputIsLabelled()
{
    QFETCH(QString, option);
    QFETCH(QString, output);
    QFETCH(QString, errors);

    const QTemporaryDir directory;
    QFile file(directory.filePath("a.json"));
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.write(R"({"id": "a", "command": ["sh", "-c", "echo out; echo; head -c 65536 /dev/zero | tr '\\0' x; echo yy; )"
               R"(printf 'no end'; echo err >&2"], "tasks": [{"id": "t", "command": ["sh", "-c", "echo task >&2"],
                   "properties": {"Autostart": true}}]})");
    file.close();
    const QString script = "while corvane-standin status | grep -q running; do :; done; "
                           "corvane-standin start a 2>/dev/null";
    const Result result = standIn({"run", option, "--manifests", directory.path(), "--", "sh", "-c", script});
    QCOMPARE(result.output, output);
    QCOMPARE(result.errors, errors);
}

void TestStandIn::outputOfEndedApplicationsIsComplete()
{
    // The application writes more than a pipe can hold when it is ended.
    const QTemporaryDir directory;
    QFile file(directory.filePath("a.json"));
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.write(QString(R"({"id": "a", "command": ["true"], "tasks": [{"id": "t", "properties": {"Autostart": true},
        "command": ["sh", "-c", "trap 'i=0; while test $i -lt 20000; do echo $i; i=$((i+1)); done; exit' TERM; : >%1/ready; while :; do sleep 0.01; done"]}]})")
                   .arg(directory.path())
                   .toUtf8());
    file.close();
    const Result result = standIn({"run", "--manifests", directory.path(), "--", "sh", "-c",
                                   QString("while ! test -e %1/ready; do :; done").arg(directory.path())});
    QVERIFY2(result.output.endsWith("a.task_t: 19999\n"), qUtf8Printable(result.output.right(100)));
    QCOMPARE(result.output.count('\n'), 20000);
}

void TestStandIn::traceShowsTimes()
{
    const Result result = standIn({"run", StartTimeout, "--verbose", "--timestamps", "--manifests", Applications, "--",
                                   "corvane-standin", "stop", "worker"});
    const QRegularExpression pattern(
        QStringLiteral("\\Acorvane-standin: \\d\\d:\\d\\d:\\d\\d\\.\\d{3} worker.task_early is to run at "));
    QVERIFY2(pattern.match(result.errors).hasMatch(), qUtf8Printable(result.errors));
}

void TestStandIn::nothingIsPrintedWithoutVerbose()
{
    const Result result = standIn(
        {"run", StartTimeout, "--manifests", Sources + "/examples/viewer", "--", "corvane-example-launcher", StandIn});
    QCOMPARE(result.exitCode, 0);
    QCOMPARE(result.errors, QString());
}

void TestStandIn::examplesExchangeAnIntentWithAFile()
{
    QTemporaryFile file(QDir::tempPath() + "/a file with 100% # XXXXXX");
    QVERIFY(file.open());
    file.write("first line\nsecond line\n");
    file.close();
    const Result result =
        standIn({"run", "--raw", StartTimeout, "--as", "launcher", "--manifests", Sources + "/examples/viewer",
                 "--manifests", Sources + "/examples/launcher", "--", "corvane-example-launcher", file.fileName()});
    QCOMPARE(result.exitCode, 0);
    QCOMPARE(result.errors, QString());
    QVERIFY2(
        result.output.contains(QString("viewer: I show %1, which begins with \"first line\"\n").arg(file.fileName())),
        qUtf8Printable(result.output));
    QVERIFY2(result.output.contains("launcher: The note says \"Remember the milk.\"\n"), qUtf8Printable(result.output));
}

void TestStandIn::exampleReportsErrors()
{
    const Result result = standIn({"run", "--", "corvane-example-launcher", "/etc/os-release"});
    QCOMPARE(result.exitCode, 1);
    QVERIFY2(result.output.endsWith("launcher: That failed: No application handles \"OpenURI\"\n"),
             qUtf8Printable(result.output));
}

void TestStandIn::controlNeedsAStandIn()
{
    const Result result = standIn({"set", "memory", "low"});
    QCOMPARE(result.exitCode, 69);
    QCOMPARE(result.errors,
             QString("corvane-standin: No stand-in is running; start one with: corvane-standin run -- COMMAND\n"));
}

void TestStandIn::controlReportsErrors()
{
    const Result result =
        standIn({"run", StartTimeout, "--manifests", Applications, "--", "corvane-standin", "start", "exit"});
    QCOMPARE(result.exitCode, 1);
    QCOMPARE(result.errors, QString("corvane-standin: exit.instance1 has ended with exit code 3\n"));
}

void TestStandIn::applicationHasToClaimItsName()
{
    const Result result = standIn(
        {"run", "--start-timeout", "100", "--manifests", Applications, "--", "corvane-standin", "start", "hide"});
    QCOMPARE(result.exitCode, 1);
    QCOMPARE(result.errors,
             QString("corvane-standin: hide.instance1 has not claimed its bus name within 100 ms "
                     "(startService() claims it)\n"));
}

void TestStandIn::monitorPrintsStatesAndLevels()
{
    QProcess process;
    process.setProcessEnvironment(environment());
    process.start(StandIn,
                  {"run", "--raw", StartTimeout, "--manifests", Sources + "/examples/viewer", "--manifests",
                   Sources + "/examples/monitor", "--", "sh"});
    QString output; // only the lines of the monitor, because the viewer prints too
    const auto show = [&process, &output](const char *command, const char *expected) {
        process.write(command);
        process.write("\n");
        while (!output.contains(QString::fromUtf8(expected))) {
            QTRY_VERIFY2(process.canReadLine(), qUtf8Printable(output));
            const QString line = QString::fromUtf8(process.readLine());
            if (line.startsWith("monitor: "))
                output += line;
        }
        output.clear();
    };
    show("corvane-standin set memory normal; corvane-standin start monitor",
         "monitor: monitor.instance1 is in the foreground\n");
    show("corvane-standin start viewer",
         "monitor: viewer.instance1 has been launched\nmonitor: viewer.instance1 is in the foreground\n");
    show("corvane-standin set memory low", "monitor: memory pressure is 100 (LowLevel)\n");
    show("corvane-standin set memory critical", "monitor: memory pressure is 200 (CriticalLevel)\n");
    show("corvane-standin set memory 150", "monitor: memory pressure is 150 (has no name)\n");
    show("corvane-standin set memory normal", "monitor: memory pressure is 0 (NormalLevel)\n");
    show("corvane-standin stop viewer", "monitor: viewer.instance1 has stopped\n");
    process.write("corvane-standin stop viewer && corvane-standin set memory auto && exit 42\n"); // there is none
    QVERIFY(process.waitForFinished(Patience));
    QCOMPARE(process.exitCode(), 42);
    QCOMPARE(QString::fromUtf8(process.readAllStandardError()), QString());
}

void TestStandIn::syncExchangesMessagesWithItsTask()
{
    QProcess process;
    process.setProcessEnvironment(environment());
    process.start(StandIn, {"run", "--raw", StartTimeout, "--manifests", Sources + "/examples/sync", "--", "sh"});
    QString output;
    const auto waitFor = [&process, &output](const char *line) {
        const QString expected = QString::fromUtf8(line) + '\n';
        while (!output.contains(expected)) {
            QTRY_VERIFY2(process.canReadLine(), qUtf8Printable(output));
            output += QString::fromUtf8(process.readLine());
        }
    };
    process.write("corvane-standin start sync\n");
    waitFor("sync: the task is Corvane::Task::Waiting");
    process.write("corvane-standin set clock +1d\n");
    waitFor("sync: the task is Corvane::Task::Running");
    waitFor("sync: the task says QJsonObject({\"progress\":0})");
    waitFor("sync: the task says QJsonObject({\"progress\":50})");
    waitFor("sync: the task says QJsonObject({\"progress\":100})");
    output.clear();
    waitFor("sync: the task is Corvane::Task::Waiting");
    process.write("exit 0\n");
    QVERIFY(process.waitForFinished(Patience));
    QCOMPARE(process.exitCode(), 0);
    QCOMPARE(QString::fromUtf8(process.readAllStandardError()), QString());
}

QTEST_GUILESS_MAIN(TestStandIn)
#include "tst_standin.moc"
