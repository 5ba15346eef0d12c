// SPDX-License-Identifier: BSD-3-Clause
#include <manifest.h>
#include <patience.h>

#include <Corvane/schedule.h>

#include <QtCore/QDirIterator>
#include <QtCore/QJsonArray>
#include <QtCore/QJsonDocument>
#include <QtCore/QProcess>
#include <QtCore/QTemporaryDir>
#include <QtTest/QtTest>

#include <sys/stat.h>

namespace {

/// Returns a manifest with a task.
QByteArray withProperties(const QByteArray &properties)
{
    return R"({"id": "a", "command": ["x"], "tasks": [{"id": "t", "command": ["x"], "properties": )" + properties
        + "}]}";
}

} // namespace

class TestManifest : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void initTestCase();
    void allPropertiesAreRead();
    void nameAndIntentsAreOptional();
    void validTaskPropertiesAreRead_data();
    void validTaskPropertiesAreRead();
    void manifestsOfTheProjectAreValid_data();
    void manifestsOfTheProjectAreValid();
    void jsonFilesOfAllDirectoriesAreRead();
    void usageErrorsAreExplained_data();
    void usageErrorsAreExplained();
    void taskPropertiesAreChecked_data();
    void taskPropertiesAreChecked();
    void errorsBeyondTheSchemaAreExplained_data();
    void errorsBeyondTheSchemaAreExplained();
    void idsAndIntentsAreUnique();
    void directoriesAreChecked();
    void entriesThatAreNotFilesAreRefused();

private:
    static void write(const QTemporaryDir &directory, const char *name, const QByteArray &content)
    {
        QFile file(directory.filePath(name));
        QVERIFY(file.open(QIODevice::WriteOnly));
        QCOMPARE(file.write(content), qint64(content.size()));
    }
    /// Returns the errors of a manifest without the name of its file.
    static QStringList errorsIn(const QByteArray &content)
    {
        const QTemporaryDir directory;
        write(directory, "a.json", content);
        QStringList errors = readManifests({directory.path()}).errors;
        for (QString &error : errors)
            error.remove(directory.filePath("a.json: "));
        return errors;
    }
    /// Checks a manifest against the JSON Schema, in another implementation. Returns "valid" or "refused: reason".
    QString schemaSays(const QByteArray &content)
    {
        checker.write(QJsonDocument(QJsonArray{QString::fromUtf8(content)}).toJson(QJsonDocument::Compact) + '\n');
        while (!checker.canReadLine()) {
            if (!checker.waitForReadyRead(Patience))
                return "no answer";
        }
        return QString::fromUtf8(checker.readLine()).trimmed();
    }

    QProcess checker;
};

void TestManifest::initTestCase()
{
    checker.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    checker.start(CORVANE_PYTHON, {CORVANE_SOURCES "/tests/standin/schema_checker.py", CORVANE_MANIFEST_SCHEMA});
    QVERIFY(checker.waitForStarted(Patience));
}

void TestManifest::allPropertiesAreRead()
{
    const QByteArray content =
        R"({"$schema": "corvane-manifest.schema.json", "id": "com.example.my-App_1", "name": "Мой",
            "command": ["./bin/app", "-x"], "intents": ["A", "B"],
            "tasks": [{"id": "sync_1", "command": ["./bin/task", "-y"]},
                      {"id": "-2", "command": ["task"], "properties": {"Autostart": true}}]})";
    QCOMPARE(schemaSays(content), QString("valid"));
    const QTemporaryDir directory;
    write(directory, "a.json", content);
    const Manifests manifests = readManifests({directory.path()});
    QCOMPARE(manifests.errors, QStringList());
    QCOMPARE(manifests.list.size(), 1);
    const Manifest &manifest = manifests.list.first();
    QCOMPARE(manifest.file, directory.filePath("a.json"));
    QCOMPARE(manifest.id, QString("com.example.my-App_1"));
    QCOMPARE(manifest.name, QString::fromUtf8("Мой"));
    QCOMPARE(manifest.command, QStringList({directory.filePath("./bin/app"), "-x"}));
    QCOMPARE(manifest.intents, QStringList({"A", "B"}));
    QCOMPARE(manifest.tasks.size(), 2);
    QCOMPARE(manifest.tasks.at(0).id, QString("sync_1"));
    QCOMPARE(manifest.tasks.at(0).command, QStringList({directory.filePath("./bin/task"), "-y"}));
    QCOMPARE(manifest.tasks.at(0).properties, QVariantMap());
    QCOMPARE(manifest.tasks.at(1).properties.value("Autostart"), QVariant(true));
}

void TestManifest::nameAndIntentsAreOptional()
{
    const QString id = QString(200, 'a'); // as long as possible
    const QByteArray content = R"({"id": ")" + id.toUtf8() + R"(", "command": ["app"]})";
    QCOMPARE(schemaSays(content), QString("valid"));
    const QTemporaryDir directory;
    write(directory, "a.json", content);
    const Manifests manifests = readManifests({directory.path()});
    QCOMPARE(manifests.errors, QStringList());
    QCOMPARE(manifests.list.first().name, id);
    QCOMPARE(manifests.list.first().command, QStringList("app"));
    QCOMPARE(manifests.list.first().intents, QStringList());
}

void TestManifest::validTaskPropertiesAreRead_data()
{
    QTest::addColumn<QByteArray>("properties");
    QTest::addColumn<QVariantMap>("expected");

    const auto numbers = [](const QList<int> &list) { return QVariant::fromValue(list); };
    const auto row = [](const char *properties, const QVariantMap &expected) {
        QTest::newRow(properties) << QByteArray(properties) << expected;
    };
    row("{}", {});
    row(R"({"Autostart": false, "CreateIPCSocket": true})", {{"Autostart", false}, {"CreateIPCSocket", true}});
    row(R"({"Interval": 1, "RunningTime": 2147483647, "StartDelay": 0})",
        {{"Interval", 1}, {"RunningTime", 2147483647}, {"StartDelay", 0}});
    row(R"({"Interval": 60.0, "StartDelay": 1e3})", {{"Interval", 60}, {"StartDelay", 1000}});
    row(R"({"Priority": -20})", {{"Priority", -20}});
    row(R"({"Priority": 19})", {{"Priority", 19}});
    for (const char *date : {"2030-07-31", "2032-02-29T23:59", "2030-07-01T00:00:00", "2030-07-01T08:00:00.250",
                             "2030-07-01T08:00Z", "2030-07-01T08:00:00-09:30"})
        QTest::newRow(date) << R"({"StartTime": ")" + QByteArray(date) + "\"}" << QVariantMap{{"StartTime", date}};
    row(R"({"Schedule": {}})", {{"Schedule", QVariantMap()}});
    row(R"({"Schedule": {"StartDate": "2030-01-01", "EndDate": "2030-01-01", "Months": [1, 12], "WeekDays": [1, 7],
                         "Hours": [0, 23, 0], "Minutes": [59, 0]}})",
        {{"Schedule",
          QVariantMap{{"StartDate", "2030-01-01"},
                      {"EndDate", "2030-01-01"},
                      {"Months", numbers({1, 12})},
                      {"WeekDays", numbers({1, 7})},
                      {"Hours", numbers({0, 23, 0})},
                      {"Minutes", numbers({59, 0})}}}});
}

void TestManifest::validTaskPropertiesAreRead()
{
    QFETCH(QByteArray, properties);
    QFETCH(QVariantMap, expected);

    const QByteArray content = withProperties(properties);
    QCOMPARE(schemaSays(content), QString("valid"));
    const QTemporaryDir directory;
    write(directory, "a.json", content);
    const Manifests manifests = readManifests({directory.path()});
    QCOMPARE(manifests.errors, QStringList());
    // A schedule compares its lists by their numbers.
    QVariantMap read = manifests.list.first().tasks.first().properties;
    QCOMPARE(Corvane::Schedule(read.take("Schedule").toMap()), Corvane::Schedule(expected.take("Schedule").toMap()));
    QCOMPARE(read, expected);
    for (const QVariant &value : qAsConst(read))
        QVERIFY(value.userType() != QMetaType::Double); // the bus has other types for integers
}

void TestManifest::manifestsOfTheProjectAreValid_data()
{
    QTest::addColumn<QString>("directory");
    QTest::addColumn<QString>("name");

    for (const char *directory : {CORVANE_SOURCES "/examples", CORVANE_SOURCES "/tests", CORVANE_APPLICATIONS}) {
        QDirIterator files(directory, {"*.json"}, QDir::Files, QDirIterator::Subdirectories);
        while (files.hasNext()) {
            files.next();
            QTest::newRow(qPrintable(files.filePath())) << files.fileInfo().path() << files.fileName();
        }
    }
}

void TestManifest::manifestsOfTheProjectAreValid()
{
    QFETCH(QString, directory);
    QFETCH(QString, name);

    QFile file(QDir(directory).filePath(name));
    QVERIFY(file.open(QIODevice::ReadOnly));
    QCOMPARE(schemaSays(file.readAll()), QString("valid"));
    QCOMPARE(readManifests({directory}).errors, QStringList());
}

void TestManifest::jsonFilesOfAllDirectoriesAreRead()
{
    const QTemporaryDir first;
    write(first, "b.json", R"({"id": "b", "command": ["app"]})");
    write(first, "a.json", R"({"id": "a", "command": ["/bin/app"]})");
    write(first, "README.md", "# Read me");
    const QTemporaryDir second;
    write(second, "c.json", R"({"id": "c", "command": ["app"]})");

    const Manifests manifests = readManifests({first.path(), second.path()});
    QCOMPARE(manifests.errors, QStringList());
    QStringList ids;
    for (const Manifest &manifest : manifests.list)
        ids << manifest.id;
    QCOMPARE(ids, QStringList({"a", "b", "c"}));
    QCOMPARE(manifests.list.first().command, QStringList("/bin/app"));
    QVERIFY(readManifests({}).errors.isEmpty());
}

void TestManifest::usageErrorsAreExplained_data()
{
    QTest::addColumn<QByteArray>("content");
    QTest::addColumn<QStringList>("errors");

    const QString idRule = "\"id\": expected at most 200 of the characters A-Z a-z 0-9 _ - and dots between names that "
                           "begin with no digit, found ";
    const auto row = [](const char *name, const QByteArray &content, const QStringList &errors) {
        QTest::newRow(name) << content << errors;
    };
    row("no JSON", "{\n  \"id\": \"a\",\n  oops\n}", {"line 3: expected JSON: unterminated object"});
    row("empty file", "", {"line 1: expected JSON: illegal value"});
    row("list", "[]", {"line 1: expected an object, found a list"});
    row("empty object", "{}", {idRule + "nothing", "\"command\": expected a list of texts, found nothing"});
    row("unknown key", R"({"id": "a", "command": ["x"], "intent": ["A"]})",
        {"\"intent\": expected one of the keys $schema, id, name, command, intents, tasks"});
    row("id of a number", R"({"id": 3, "command": ["x"]})", {idRule + "the number 3"});
    row("id with a digit", R"({"id": "a.3b", "command": ["x"]})", {idRule + "\"a.3b\""});
    row("id with a space", R"({"id": "a b", "command": ["x"]})", {idRule + "\"a b\""});
    row("id with dots only", R"({"id": "a..b", "command": ["x"]})", {idRule + "\"a..b\""});
    row("id with a line end", R"({"id": "a\n", "command": ["x"]})", {idRule + "\"a\n\""});
    row("id that is long", R"({"id": ")" + QByteArray(201, 'a') + R"(", "command": ["x"]})",
        {idRule + QString("\"%1\"").arg(QString(201, 'a'))});
    row("schema of a number", R"({"$schema": 7, "id": "a", "command": ["x"]})",
        {"\"$schema\": expected a text that is not empty, found the number 7"});
    row("name of null", R"({"id": "a", "name": null, "command": ["x"]})",
        {"\"name\": expected a text that is not empty, found null"});
    row("command of text", R"({"id": "a", "command": "x"})", {"\"command\": expected a list of texts, found \"x\""});
    row("command of nothing", R"({"id": "a", "command": []})",
        {"\"command\": expected a program and its arguments, found an empty list"});
    row("argument that is empty", R"({"id": "a", "command": ["x", ""]})",
        {"\"command[1]\": expected a text that is not empty, found \"\""});
    row("command of truths", R"({"id": "a", "command": [true, false]})",
        {"\"command[0]\": expected a text that is not empty, found true",
         "\"command[1]\": expected a text that is not empty, found false"});
    row("intents of an object", R"({"id": "a", "command": ["x"], "intents": {}})",
        {"\"intents\": expected a list of texts, found an object"});
    row("tasks of an object", R"({"id": "a", "command": ["x"], "tasks": {}})",
        {"\"tasks\": expected a list of objects, found an object"});
    row("tasks of texts", R"({"id": "a", "command": ["x"], "tasks": ["t"]})",
        {"\"tasks[0]\": expected an object, found \"t\""});
    row("empty task", R"({"id": "a", "command": ["x"], "tasks": [{}]})",
        {"\"tasks[0].id\": expected at most 100 of the characters A-Z a-z 0-9 _ -, found nothing",
         "\"tasks[0].command\": expected a list of texts, found nothing"});
    row("unknown key of a task",
        R"({"id": "a", "command": ["x"], "tasks": [{"id": "t", "command": ["x"], "when": 1}]})",
        {"\"tasks[0].when\": expected one of the keys id, command, properties"});
    row("task without a program", R"({"id": "a", "command": ["x"], "tasks": [{"id": "t", "command": []}]})",
        {"\"tasks[0].command\": expected a program and its arguments, found an empty list"});
    const QString taskIdRule = "\"tasks[0].id\": expected at most 100 of the characters A-Z a-z 0-9 _ -, found ";
    row("task id of a number", R"({"id": "a", "command": ["x"], "tasks": [{"id": 3, "command": ["x"]}]})",
        {taskIdRule + "the number 3"});
    row("task id with a line end", R"({"id": "a", "command": ["x"], "tasks": [{"id": "t\n", "command": ["x"]}]})",
        {taskIdRule + "\"t\n\""});
    row("task id that is long",
        R"({"id": "a", "command": ["x"], "tasks": [{"id": ")" + QByteArray(101, 't') + R"(", "command": ["x"]}]})",
        {taskIdRule + '"' + QString(101, 't') + '"'});
    row("wrong tasks",
        R"({"id": "a", "command": ["x"], "tasks": [{"id": "t", "command": ["x"], "when": 1},
                                                   {"id": "t", "command": [], "properties": []},
                                                   {"id": "t.u", "command": [""]}]})",
        {"\"tasks[0].when\": expected one of the keys id, command, properties",
         "\"tasks[1].id\": expected one that is not taken, found \"t\"",
         "\"tasks[1].command\": expected a program and its arguments, found an empty list",
         "\"tasks[1].properties\": expected an object, found an empty list",
         "\"tasks[2].id\": expected at most 100 of the characters A-Z a-z 0-9 _ -, found \"t.u\"",
         "\"tasks[2].command[0]\": expected a text that is not empty, found \"\""});
    row("intents of lists", R"({"id": "a", "command": ["x"], "intents": ["A", [1]]})",
        {"\"intents[1]\": expected a text that is not empty, found a list"});
}

void TestManifest::usageErrorsAreExplained()
{
    QFETCH(QByteArray, content);
    QFETCH(QStringList, errors);

    QCOMPARE(errorsIn(content), errors);
    QVERIFY2(schemaSays(content).startsWith("refused: "), qUtf8Printable(schemaSays(content)));
}

void TestManifest::taskPropertiesAreChecked_data()
{
    QTest::addColumn<QByteArray>("properties");
    QTest::addColumn<QString>("error");

    const auto row = [](const char *properties, const QString &error) {
        QTest::newRow(properties) << QByteArray(properties) << error;
    };
    const QString keys = ": expected one of the keys Autostart, CreateIPCSocket, Interval, Priority, RunningTime, "
                         "Schedule, StartDelay, StartTime";
    row("null", "\": expected an object, found null");
    row("[]", "\": expected an object, found an empty list");
    row(R"({"Intervall": 1})", ".Intervall\"" + keys);
    row(R"({"autostart": true})", ".autostart\"" + keys);
    row(R"({"": true})", ".\"" + keys);
    row(R"({"Autostart": 1})", ".Autostart\": expected true or false, found the number 1");
    row(R"({"Autostart": null})", ".Autostart\": expected true or false, found null");
    row(R"({"CreateIPCSocket": "true"})", ".CreateIPCSocket\": expected true or false, found \"true\"");
    const QString seconds = "\": expected an integer from 0 to 2147483647, found ";
    row(R"({"Interval": "1"})", ".Interval" + seconds + "\"1\"");
    row(R"({"Interval": true})", ".Interval" + seconds + "true");
    row(R"({"Interval": null})", ".Interval" + seconds + "null");
    row(R"({"RunningTime": -1})", ".RunningTime" + seconds + "the number -1");
    row(R"({"RunningTime": 2147483648})", ".RunningTime" + seconds + "the number 2.14748e+09");
    row(R"({"StartDelay": 1.5})", ".StartDelay" + seconds + "the number 1.5");
    row(R"({"StartDelay": [1]})", ".StartDelay" + seconds + "a list");
    row(R"({"Priority": -21})", ".Priority\": expected an integer from -20 to 19, found the number -21");
    row(R"({"Priority": "low"})", ".Priority\": expected an integer from -20 to 19, found \"low\"");
    row(R"({"Priority": 20})", ".Priority\": expected an integer from -20 to 19, found the number 20");
    const QString date = "\": expected a date such as \"2030-07-01\" or \"2030-07-01T08:00:00+02:00\", found ";
    row(R"({"StartTime": 5})", ".StartTime" + date + "the number 5");
    for (const char *text :
         {"", "tomorrow", "2030-7-1", "20300701", "2030-07-01 08:00", "2030-07-01T8:00", "2030-07-01T08",
          "2030-07-01T24:00", "2030-07-01T08:60", "2030-07-01T08:00:00+02", "2030-07-01Z", "2030-13-01", "2030-00-01",
          "2030-01-32", "2030-01-00", "0000-01-01", "2030-07-01T08:00:60", " 2030-07-01", "2030-07-01T08:00:00."})
        row(qPrintable(QString(R"({"StartTime": "%1"})").arg(text)), ".StartTime" + date + '"' + text + '"');
    row(R"({"StartTime": "2030-07-01T08:00:00\n"})", ".StartTime" + date + "\"2030-07-01T08:00:00\n\"");
    row(R"({"Schedule": "daily"})", ".Schedule\": expected an object, found \"daily\"");
    row(R"({"Schedule": null})", ".Schedule\": expected an object, found null");
    row(R"({"Schedule": {"Hour": [8]}})",
        ".Schedule.Hour\": expected one of the keys StartDate, EndDate, Months, WeekDays, Hours, Minutes");
    row(R"({"Schedule": {"EndDate": "31.12.2030"}})", ".Schedule.EndDate" + date + "\"31.12.2030\"");
    row(R"({"Schedule": {"StartDate": null}})", ".Schedule.StartDate" + date + "null");
    for (const QString &key : {QString("Months"), QString("WeekDays"), QString("Hours"), QString("Minutes")}) {
        const QString path = ".Schedule." + key;
        const auto listRow = [&](const QString &list, const QString &error) {
            row(qPrintable(QString(R"({"Schedule": {"%1": %2}})").arg(key, list)), error);
        };
        listRow("8", path + "\": expected a list of integers, found the number 8");
        listRow("null", path + "\": expected a list of integers, found null");
        listRow("[1, \"2\"]", path + "[1]\": expected an integer, found \"2\"");
        listRow("[1.5]", path + "[0]\": expected an integer, found the number 1.5");
        listRow("[]", ".Schedule\": \"" + key + "\" is an empty list");
    }
    row(R"({"Schedule": {"Hours": [24]}})", ".Schedule\": \"Hours\" contains 24, which is not between 0 and 23");
    row(R"({"Schedule": {"Hours": [-1]}})", ".Schedule\": \"Hours\" contains -1, which is not between 0 and 23");
    row(R"({"Schedule": {"Minutes": [60]}})", ".Schedule\": \"Minutes\" contains 60, which is not between 0 and 59");
    row(R"({"Schedule": {"Minutes": [-1]}})", ".Schedule\": \"Minutes\" contains -1, which is not between 0 and 59");
    row(R"({"Schedule": {"Months": [0]}})", ".Schedule\": \"Months\" contains 0, which is not between 1 and 12");
    row(R"({"Schedule": {"Months": [13]}})", ".Schedule\": \"Months\" contains 13, which is not between 1 and 12");
    row(R"({"Schedule": {"WeekDays": [0]}})", ".Schedule\": \"WeekDays\" contains 0, which is not between 1 and 7");
    row(R"({"Schedule": {"WeekDays": [8]}})", ".Schedule\": \"WeekDays\" contains 8, which is not between 1 and 7");
}

void TestManifest::taskPropertiesAreChecked()
{
    QFETCH(QByteArray, properties);
    QFETCH(QString, error);

    const QByteArray content = withProperties(properties);
    QCOMPARE(errorsIn(content), QStringList("\"tasks[0].properties" + error));
    QVERIFY2(schemaSays(content).startsWith("refused: "), qUtf8Printable(schemaSays(content)));
}

void TestManifest::errorsBeyondTheSchemaAreExplained_data()
{
    QTest::addColumn<QByteArray>("content");
    QTest::addColumn<QString>("error");

    QTest::newRow("ids of tasks") << QByteArray(
        R"({"id": "a", "command": ["x"], "tasks": [{"id": "t", "command": ["x"]},
                                                                 {"id": "t", "command": ["y"]}]})")
                                  << "\"tasks[1].id\": expected one that is not taken, found \"t\"";
    QTest::newRow("days of a month") << withProperties(R"({"StartTime": "2030-02-30"})")
                                     << "\"tasks[0].properties.StartTime\": expected a date such as \"2030-07-01\" or "
                                        "\"2030-07-01T08:00:00+02:00\", found \"2030-02-30\"";
    QTest::newRow("order of dates") << withProperties(
        R"({"Schedule": {"StartDate": "2030-07-02", "EndDate": "2030-07-01"}})")
                                    << "\"tasks[0].properties.Schedule\": \"EndDate\" is before \"StartDate\"";
}

void TestManifest::errorsBeyondTheSchemaAreExplained()
{
    QFETCH(QByteArray, content);
    QFETCH(QString, error);

    QCOMPARE(errorsIn(content), QStringList(error));
    QCOMPARE(schemaSays(content), QString("valid"));
}

void TestManifest::idsAndIntentsAreUnique()
{
    const QByteArray twice = R"({"id": "a", "command": ["x"], "intents": ["A", "A"]})";
    QVERIFY(schemaSays(twice).startsWith("refused: "));
    const QTemporaryDir directory;
    write(directory, "a.json", twice);
    write(directory, "b.json", R"({"id": "a", "command": ["x"], "intents": ["B", "A"]})");
    const QString a = directory.filePath("a.json");
    const QString b = directory.filePath("b.json");
    QCOMPARE(readManifests({directory.path()}).errors,
             QStringList({a + ": \"intents[1]\": expected one that is not taken, found \"A\", as in " + a,
                          b + ": \"id\": expected one that is not taken, found \"a\", as in " + a,
                          b + ": \"intents[1]\": expected one that is not taken, found \"A\", as in " + a}));
}

void TestManifest::directoriesAreChecked()
{
    const QTemporaryDir empty;
    QCOMPARE(readManifests({"/nonexistent", empty.path()}).errors,
             QStringList({"/nonexistent: expected a directory with manifests",
                          empty.path() + ": expected manifests, found no *.json file"}));
}

void TestManifest::entriesThatAreNotFilesAreRefused()
{
    const QTemporaryDir directory;
    QVERIFY(QFile::link("/nonexistent", directory.filePath("a.json")));
    QCOMPARE(::mkfifo(qPrintable(directory.filePath("b.json")), 0600), 0);
    QCOMPARE(readManifests({directory.path()}).errors,
             QStringList({directory.filePath("a.json: expected a file that can be read"),
                          directory.filePath("b.json: expected a file that can be read")}));
}

QTEST_GUILESS_MAIN(TestManifest)
#include "tst_manifest.moc"
