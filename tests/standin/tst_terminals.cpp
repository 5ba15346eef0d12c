// SPDX-License-Identifier: BSD-3-Clause
// The commands that use a running stand-in from another terminal.
#include "stand_in.h"

#include <QtCore/QDir>
#include <QtCore/QJsonDocument>
#include <QtCore/QJsonObject>
#include <QtTest/QtTest>

#include <csignal>
#include <memory>
#include <sys/stat.h>
#include <unistd.h>

class TestTerminals : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void init();
    void commandsNeedARunningStandIn_data();
    void commandsNeedARunningStandIn();
    void onlyStandInIsFound();
    void standInOfTheSessionBusComesFirst();
    void severalStandInsAreChosenByName();
    void defaultNamesAreUnique();
    void takenNameIsRefused();
    void wrongNamesAreRefused_data();
    void wrongNamesAreRefused();
    void recordIsPrivate();
    void recordIsRemovedAtTheEnd();
    void recordOfAKilledStandInIsRemoved();
    void staleRecordIsIgnored();
    void unsafeDirectoryIsNotUsed_data();
    void unsafeDirectoryIsNotUsed();
    void runtimeDirectoryIsOptional();
    void execRunsOnTheBus();
    void execReturnsTheExitCode();
    void execReportsAMissingCommand();
    void execCanBeAnApplication();
    void joinedApplicationIsStopped();
    void joinedApplicationRunsOnce();
    void shellIsThatOfTheUser();

private:
    Result run(const QStringList &arguments, const QByteArray &input = {})
    {
        return runStandIn(arguments, environment, input);
    }
    QString records() const { return directory->filePath("corvane-standin"); }

    std::unique_ptr<QTemporaryDir> directory;
    QProcessEnvironment environment;
};

void TestTerminals::init()
{
    directory = std::make_unique<QTemporaryDir>();
    environment = QProcessEnvironment::systemEnvironment();
    environment.insert("XDG_RUNTIME_DIR", directory->path());
    environment.insert("DBUS_SESSION_BUS_ADDRESS", "unix:path=/nonexistent");
}

void TestTerminals::commandsNeedARunningStandIn_data()
{
    QTest::addColumn<QStringList>("arguments");

    QTest::newRow("set") << QStringList({"set", "memory", "low"});
    QTest::newRow("set by name") << QStringList({"set", "--name", "any", "memory", "low"});
    QTest::newRow("start") << QStringList({"start", "echo"});
    QTest::newRow("exec") << QStringList({"exec", "true"});
    QTest::newRow("shell") << QStringList("shell");
}

void TestTerminals::commandsNeedARunningStandIn()
{
    QFETCH(QStringList, arguments);

    for (const bool isAddressSet : {true, false}) {
        if (!isAddressSet)
            environment.remove("DBUS_SESSION_BUS_ADDRESS");
        const Result result = run(arguments);
        QCOMPARE(result.exitCode, 69);
        QCOMPARE(result.output, QString());
        QCOMPARE(result.errors,
                 QString("corvane-standin: No stand-in is running; start one with: corvane-standin run -- COMMAND\n"));
    }
    QVERIFY(!QFile::exists(records()));
}

void TestTerminals::onlyStandInIsFound()
{
    StandIn standIn(environment, {"--manifests", Applications});
    QVERIFY(standIn.isReady());
    const Result result = run({"start", "echo"});
    QCOMPARE(result.errors, QString());
    QCOMPARE(result.output, QString("echo.instance1\n"));
    QCOMPARE(run({"stop", "echo", "--name", "sh"}).exitCode, 0);
}

void TestTerminals::standInOfTheSessionBusComesFirst()
{
    StandIn other(environment, {"--name", "other"});
    QVERIFY(other.isReady());
    StandIn standIn(environment, {"--name", "mine"},
                    {"sh", "-c",
                     "\"$0\" exec sh -c 'echo ready $DBUS_SESSION_BUS_ADDRESS'; echo $DBUS_SESSION_BUS_ADDRESS; "
                     "\"$0\" exec --name other sh -c 'echo $DBUS_SESSION_BUS_ADDRESS'",
                     Program});
    QVERIFY(standIn.process.waitForFinished(Patience));
    const QStringList lines = QString::fromUtf8(standIn.process.readAllStandardOutput()).split('\n');
    QCOMPARE(lines.size(), 4);
    QCOMPARE(lines.at(0), "ready " + lines.at(1));
    QVERIFY(lines.at(1) != lines.at(2));
    QVERIFY(!lines.at(2).isEmpty());
}

void TestTerminals::severalStandInsAreChosenByName()
{
    StandIn one(environment, {"--name", "one"});
    StandIn two(environment, {"--name", "two"});
    QVERIFY(one.isReady() && two.isReady());
    const QString list = QString("  one (process %1, started in %3)\n  two (process %2, started in %3)\n")
                             .arg(one.process.processId())
                             .arg(two.process.processId())
                             .arg(QDir::currentPath());
    const auto sorted = [](const QString &text) {
        QStringList lines = text.split('\n');
        std::sort(lines.begin(), lines.end());
        return lines;
    };
    Result result = run({"set", "memory", "low"});
    QCOMPARE(result.exitCode, 69);
    QCOMPARE(sorted(result.errors),
             sorted("corvane-standin: Several stand-ins are running; choose one with --name:\n" + list));
    result = run({"set", "--name", "three", "memory", "low"});
    QCOMPARE(result.exitCode, 69);
    QCOMPARE(sorted(result.errors),
             sorted("corvane-standin: No running stand-in has the name \"three\". These are running:\n" + list));
    result = run({"set", "--name", "two", "memory", "low"});
    QCOMPARE(result.exitCode, 0);
    QCOMPARE(two.end(), 5);
    QCOMPARE(run({"set", "memory", "low"}).exitCode, 0);
}

void TestTerminals::defaultNamesAreUnique()
{
    StandIn one(environment);
    QVERIFY(one.isReady());
    StandIn two(environment);
    QVERIFY(two.isReady());
    QCOMPARE(run({"exec", "--name", "sh", "true"}).exitCode, 0);
    QCOMPARE(run({"exec", "--name", "sh-2", "true"}).exitCode, 0);
}

void TestTerminals::takenNameIsRefused()
{
    StandIn one(environment, {"--name", "one"});
    QVERIFY(one.isReady());
    const Result result = run({"run", "--name", "one", "echo", "ran"});
    QCOMPARE(result.exitCode, 64);
    QCOMPARE(result.output, QString());
    QCOMPARE(result.errors, QString("corvane-standin: --name: A stand-in with the name \"one\" is running already\n"));
}

void TestTerminals::wrongNamesAreRefused_data()
{
    QTest::addColumn<QString>("name");

    QTest::newRow("empty") << "";
    QTest::newRow("path") << "../x";
    QTest::newRow("hidden") << ".x";
    QTest::newRow("long") << QString(41, 'x');
}

void TestTerminals::wrongNamesAreRefused()
{
    QFETCH(QString, name);

    const Result result = run({"run", "--name=" + name, "true"});
    QCOMPARE(result.exitCode, 64);
    QCOMPARE(result.errors.section('\n', 0, 0),
             QString("corvane-standin: --name: expected at most 40 of the characters A-Z a-z 0-9 _ . -, found \"%1\"")
                 .arg(name));
}

void TestTerminals::recordIsPrivate()
{
    StandIn standIn(environment, {"--name", "one"});
    QVERIFY(standIn.isReady());
    const QString file = QString("%1/%2.json").arg(records()).arg(standIn.process.processId());
    struct stat status = {};
    QCOMPARE(::stat(qPrintable(records()), &status), 0);
    QCOMPARE(status.st_mode & 07777, mode_t(0700));
    QCOMPARE(::stat(qPrintable(file), &status), 0);
    QCOMPARE(status.st_mode & 07777, mode_t(0600));
    QFile record(file);
    QVERIFY(record.open(QIODevice::ReadOnly));
    const QJsonObject object = QJsonDocument::fromJson(record.readAll()).object();
    QCOMPARE(object.value("name").toString(), QString("one"));
    QCOMPARE(object.value("directory").toString(), QDir::currentPath());
}

void TestTerminals::recordIsRemovedAtTheEnd()
{
    StandIn standIn(environment);
    QVERIFY(standIn.isReady());
    QCOMPARE(QDir(records()).entryList(QDir::Files).size(), 1);
    QCOMPARE(standIn.end(), 5);
    QVERIFY(!QFile::exists(records()));
}

void TestTerminals::recordOfAKilledStandInIsRemoved()
{
    StandIn standIn(environment);
    QVERIFY(standIn.isReady());
    standIn.process.kill();
    QVERIFY(standIn.process.waitForFinished(Patience));
    QTRY_VERIFY(!QFile::exists(records()));
}

void TestTerminals::staleRecordIsIgnored()
{
    QVERIFY(QDir(directory->path()).mkdir("corvane-standin"));
    QCOMPARE(::chmod(qPrintable(records()), 0700), 0);
    QFile file(records() + QString("/%1.json").arg(::getpid())); // a process with this id exists
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.write(R"({"name": "stale", "busAddress": "unix:path=/nonexistent"})");
    file.close();
    const Result result = run({"exec", "true"});
    QCOMPARE(result.exitCode, 69);
    QVERIFY2(result.errors.contains("No stand-in is running"), qUtf8Printable(result.errors));
    QVERIFY(!QFile::exists(records()));
}

void TestTerminals::unsafeDirectoryIsNotUsed_data()
{
    QTest::addColumn<bool>("isLink");

    QTest::newRow("others may write") << false;
    QTest::newRow("link") << true;
}

void TestTerminals::unsafeDirectoryIsNotUsed()
{
    QFETCH(bool, isLink);

    const QTemporaryDir target; // of the mode 0700
    if (isLink)
        QVERIFY(QFile::link(target.path(), records()));
    else
        QVERIFY(QDir(directory->path()).mkdir("corvane-standin") && ::chmod(qPrintable(records()), 0777) == 0);
    const Result result = run({"run", "--bus-program", qEnvironmentVariable("CORVANE_BUS_PROGRAM"), "echo", "ran"});
    QCOMPARE(result.exitCode, 0);
    QCOMPARE(result.output, QString("ran\n"));
    const QString reason = isLink ? "Not a directory" : "expected a directory of this user alone, with the mode 0700";
    QCOMPARE(result.errors,
             QString("corvane-standin: Other terminals cannot find this stand-in: %1 cannot be used: %2\n")
                 .arg(records(), reason));
    QCOMPARE(QDir(target.path()).entryList(QDir::AllEntries | QDir::NoDotAndDotDot), QStringList());
}

void TestTerminals::runtimeDirectoryIsOptional()
{
    for (const char *value : {"", "/nonexistent"}) {
        environment.insert("XDG_RUNTIME_DIR", value);
        StandIn standIn(environment, {"--name", QString("optional-%1").arg(::getpid())});
        QVERIFY(standIn.isReady());
        environment.remove("XDG_RUNTIME_DIR");
        const Result result = run({"exec", "--name", QString("optional-%1").arg(::getpid()), "sh", "-c",
                                   "test -d \"$XDG_RUNTIME_DIR\" && echo found"});
        QCOMPARE(result.output, QString("found\n"));
        QCOMPARE(result.errors, QString());
    }
}

void TestTerminals::execRunsOnTheBus()
{
    environment.insert("HALVIR_APP_ID", "other");
    StandIn standIn(environment, {"--name", "one"},
                    {"sh", "-c", "echo ready $DBUS_SESSION_BUS_ADDRESS; echo $XDG_RUNTIME_DIR; read line"});
    const Result result = [&standIn, this] {
        while (!standIn.process.canReadLine())
            standIn.process.waitForReadyRead(Patience);
        return run({"exec", "--", "sh", "-c",
                    "echo ready $DBUS_SESSION_BUS_ADDRESS; echo $XDG_RUNTIME_DIR; cat; echo $HALVIR_APP_ID >&2"},
                   "input");
    }();
    QCOMPARE(result.exitCode, 0);
    QTRY_COMPARE(result.output, QString::fromUtf8(standIn.process.peek(1000)) + "input");
    QCOMPARE(result.errors, QString("\n"));
}

void TestTerminals::execReturnsTheExitCode()
{
    StandIn standIn(environment);
    QVERIFY(standIn.isReady());
    QCOMPARE(run({"exec", "sh", "-c", "exit 7"}).exitCode, 7);
}

void TestTerminals::execReportsAMissingCommand()
{
    StandIn standIn(environment);
    QVERIFY(standIn.isReady());
    const Result result = run({"exec", "/nonexistent"});
    QCOMPARE(result.exitCode, 127);
    QCOMPARE(result.errors, QString("corvane-standin: /nonexistent cannot be started: No such file or directory\n"));
}

void TestTerminals::execCanBeAnApplication()
{
    StandIn standIn(environment, {"--manifests", Applications});
    QVERIFY(standIn.isReady());
    for (int i = 1; i <= 2; ++i) { // one after the other
        const Result result =
            run({"exec", "--as", "echo", "sh", "-c", "echo $HALVIR_APP_ID $HALVIR_APP_INSTANCE_ID; exit 3"});
        QCOMPARE(result.errors, QString());
        QCOMPARE(result.output, QString("echo echo.instance%1\n").arg(i));
        QCOMPARE(result.exitCode, 3);
    }
    const Result result = run({"exec", "--as", "nobody", "true"});
    QCOMPARE(result.exitCode, 1);
    QCOMPARE(result.errors, QString("corvane-standin: No manifest has the id \"nobody\"\n"));
}

void TestTerminals::joinedApplicationIsStopped()
{
    StandIn standIn(environment, {"--manifests", Applications});
    QVERIFY(standIn.isReady());
    QProcess process;
    process.setProcessEnvironment(environment);
    // It ignores SIGTERM.
    process.start(Program,
                  {"exec", "--as", "echo", "sh", "-c", "trap '' TERM; echo running; while :; do sleep 1; done"});
    QTRY_VERIFY(process.canReadLine());
    const Result result = run({"stop", "echo"});
    QCOMPARE(result.errors, QString());
    QCOMPARE(result.exitCode, 0);
    QVERIFY(process.waitForFinished(Patience));
    QCOMPARE(process.exitStatus(), QProcess::CrashExit);
    QCOMPARE(process.exitCode(), SIGKILL);
}

void TestTerminals::joinedApplicationRunsOnce()
{
    StandIn standIn(environment, {"--manifests", Applications});
    QVERIFY(standIn.isReady());
    QCOMPARE(run({"start", "echo"}).output, QString("echo.instance1\n"));
    const Result result = run({"exec", "--as", "echo", "true"});
    QCOMPARE(result.exitCode, 1);
    QCOMPARE(result.errors, QString("corvane-standin: echo.instance1 is running already\n"));
}

void TestTerminals::shellIsThatOfTheUser()
{
    StandIn standIn(environment, {"--manifests", Applications});
    QVERIFY(standIn.isReady());
    environment.insert("SHELL", "/bin/cat");
    QCOMPARE(run({"shell"}, "input").output, QString("input"));
    environment.remove("SHELL");
    QCOMPARE(run({"shell", "--as", "echo"}, "echo $HALVIR_APP_INSTANCE_ID; exit 4").output,
             QString("echo.instance1\n"));
    QCOMPARE(run({"shell", "more"}).errors.section('\n', 0, 0),
             QString("corvane-standin: Expected nothing more, found \"more\""));
}

QTEST_GUILESS_MAIN(TestTerminals)
#include "tst_terminals.moc"
