// SPDX-License-Identifier: BSD-3-Clause
#include <manifest.h>
#include <patience.h>

#include <QtCore/QTemporaryDir>
#include <QtTest/QtTest>

#include <sys/stat.h>

class TestManifest : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void allPropertiesAreRead();
    void nameAndIntentsAreOptional();
    void jsonFilesOfAllDirectoriesAreRead();
    void usageErrorsAreExplained_data();
    void usageErrorsAreExplained();
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
};

void TestManifest::allPropertiesAreRead()
{
    const QTemporaryDir directory;
    write(directory, "a.json",
          R"({"id": "com.example.my-App_1", "name": "Мой", "command": ["./bin/app", "-x"], "intents": ["A", "B"],
              "tasks": [{"id": "sync_1", "command": ["./bin/task", "-y"]},
                        {"id": "-2", "command": ["task"], "properties": {"Autostart": true}}]})");
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
    const QTemporaryDir directory;
    write(directory, "a.json", R"({"id": "a", "command": ["app"]})");
    const Manifests manifests = readManifests({directory.path()});
    QCOMPARE(manifests.errors, QStringList());
    QCOMPARE(manifests.list.first().name, QString("a"));
    QCOMPARE(manifests.list.first().command, QStringList("app"));
    QCOMPARE(manifests.list.first().intents, QStringList());
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
        {"\"intent\": expected one of the keys id, name, command, intents, tasks"});
    row("id of a number", R"({"id": 3, "command": ["x"]})", {idRule + "the number 3"});
    row("id with a digit", R"({"id": "a.3b", "command": ["x"]})", {idRule + "\"a.3b\""});
    row("id with a space", R"({"id": "a b", "command": ["x"]})", {idRule + "\"a b\""});
    row("id with dots only", R"({"id": "a..b", "command": ["x"]})", {idRule + "\"a..b\""});
    row("id with a line end", R"({"id": "a\n", "command": ["x"]})", {idRule + "\"a\n\""});
    row("id that is long", R"({"id": ")" + QByteArray(201, 'a') + R"(", "command": ["x"]})",
        {idRule + QString("\"%1\"").arg(QString(201, 'a'))});
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

    const QTemporaryDir directory;
    write(directory, "a.json", content);
    for (QString &error : errors)
        error.prepend(directory.filePath("a.json: "));
    QCOMPARE(readManifests({directory.path()}).errors, errors);
}

void TestManifest::idsAndIntentsAreUnique()
{
    const QTemporaryDir directory;
    write(directory, "a.json", R"({"id": "a", "command": ["x"], "intents": ["A", "A"]})");
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
