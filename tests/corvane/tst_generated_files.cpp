// SPDX-License-Identifier: BSD-3-Clause
// The manual page and the completions of "corvane", in the programs that read them.
#include "program.h"

#include <QtCore/QTemporaryDir>
#include <QtTest/QtTest>

namespace {

const QString Files = QStringLiteral(CORVANE_GENERATED_FILES);
const QString Sources = QStringLiteral(CORVANE_TEST_SOURCES);

} // namespace

class TestGeneratedFiles : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void initTestCase();
    void manualPageHasNoWarnings();
    void filesNameEachOption();
    void unknownFileIsRefused();
    void bashCompletes_data();
    void bashCompletes();
    void bashCompletesNothingWithoutAStandIn();
    void zshCompletes_data();
    void zshCompletes();

private:
    QTemporaryDir directory;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
};

void TestGeneratedFiles::initTestCase()
{
    // A stand-in that knows some ids.
    QFile program(directory.filePath("corvane-standin"));
    QVERIFY(program.open(QIODevice::WriteOnly));
    program.write("#!/bin/sh\n"
                  "test \"$1\" = list || exit 64\n"
                  "case $2 in\n"
                  "applications) echo viewer; echo launcher;;\n"
                  "intents) echo OpenURI; echo Open;;\n"
                  "tasks) echo sync.task_fetch; echo 'sync.task_two words';;\n"
                  "esac\n");
    QVERIFY(program.setPermissions(QFile::ReadOwner | QFile::ExeOwner));
    program.close();
    QFile file(directory.filePath("params.json"));
    QVERIFY(file.open(QIODevice::WriteOnly));
    environment.insert("PATH", directory.path() + ':' + environment.value("PATH"));
}

void TestGeneratedFiles::manualPageHasNoWarnings()
{
    const Result result = run("mandoc", {"-T", "lint", Files + "/man/corvane.1"});
    QStringList warnings = result.output.split('\n', Qt::SkipEmptyParts);
    // The page may not be installed.
    warnings.erase(std::remove_if(warnings.begin(), warnings.end(),
                                  [](const QString &line) { return line.contains("referenced manual not found"); }),
                   warnings.end());
    QCOMPARE(warnings, QStringList());
}

void TestGeneratedFiles::filesNameEachOption()
{
    static const QRegularExpression overstrike(QStringLiteral(".\b"));
    const QString page = run("mandoc", {"-T", "ascii", Files + "/man/corvane.1"}).output.remove(overstrike);
    QString bash = run("cat", {Files + "/bash/corvane"}).output;
    QString zsh = run("cat", {Files + "/zsh/_corvane"}).output;
    static const QRegularExpression option(QStringLiteral("^  (--[a-z-]+)"), QRegularExpression::MultilineOption);
    int count = 0;
    for (const char *command :
         {"invoke", "uri encode", "uri decode", "task start", "task stop", "task status", "check"}) {
        const QString help = corvane(words(command) + QStringList("--help")).output;
        auto match = option.globalMatch(help);
        while (match.hasNext()) {
            const QString name = match.next().captured(1);
            QVERIFY2(page.contains(name) && bash.contains(name) && zsh.contains(name), qUtf8Printable(name));
            ++count;
        }
    }
    QVERIFY(count > 30);
}

void TestGeneratedFiles::unknownFileIsRefused()
{
    const Result result = corvane({"--generate", "nothing"});
    QCOMPARE(result.output, QString());
    QCOMPARE(result.exitCode, 64);
}

void TestGeneratedFiles::bashCompletes_data()
{
    QTest::addColumn<QStringList>("line");
    QTest::addColumn<QStringList>("completions");

    const auto row = [](const char *line, const char *completions) {
        QTest::newRow(line) << QString("corvane %1").arg(line).split(' ') << QString(completions).split(' ');
    };
    row("", "invoke handle uri task lifecycle memory check service --help --version");
    row("in", "invoke");
    row("uri ", "encode decode");
    row("task st", "start stop status");
    row("lifecycle ", "watch");
    row("nothing ", "");
    row("task nothing ", "");
    row("invoke ", "OpenURI Open");
    row("invoke OpenU", "OpenURI");
    row("invoke OpenURI ", "");
    row("invoke --t", "--timeout");
    row("invoke OpenURI a=b --h", "--hint --help");
    row("invoke --params par", "params.json");
    row("invoke --params = par", "params.json");
    row("invoke --params =", "params.json corvane-standin");
    row("invoke --timeout ", "");
    row("invoke --timeout 3 OpenU", "OpenURI");
    row("invoke --timeout = 3 OpenU", "OpenURI");
    row("handle OpenU", "OpenURI");
    row("handle Open -- corvane-st", "corvane-standin");
    row("handle Open -- cat par", "params.json");
    row("handle Open -- cat --params par", "params.json");
    row("task start fetch --app v", "viewer");
    row("task start fetch --app = v", "viewer");
    row("task stop --f", "--force");
    row("check par", "params.json");
    row("service status --", "--json --help");
    QTest::newRow("ids with spaces") << QStringList({"corvane", "task", "status", ""})
                                     << QStringList({"fetch", "two words"});
}

void TestGeneratedFiles::bashCompletes()
{
    QFETCH(QStringList, line);
    QFETCH(QStringList, completions);

    QProcess process;
    process.setProcessEnvironment(environment);
    process.setWorkingDirectory(directory.path());
    process.start("bash", QStringList({"--norc", Sources + "/complete.bash", Files + "/bash/corvane"}) + line);
    const Result result = finished(process);
    QCOMPARE(result.errors, QString());
    QStringList found = result.output.chopped(1).split('\n');
    found.sort();
    completions.sort();
    QCOMPARE(found, completions);
}

void TestGeneratedFiles::bashCompletesNothingWithoutAStandIn()
{
    const Result result =
        run("bash", {"--norc", Sources + "/complete.bash", Files + "/bash/corvane", "corvane", "invoke", ""});
    QCOMPARE(result.errors, QString());
    QCOMPARE(result.output, QString("\n"));
}

void TestGeneratedFiles::zshCompletes_data()
{
    QTest::addColumn<QString>("line");
    QTest::addColumn<QString>("completed");

    const auto row = [](const char *line, const char *completed) { QTest::newRow(line) << line << completed; };
    row("corvane inv", "corvane invoke ");
    row("corvane task sta", "corvane task sta");
    row("corvane task stat", "corvane task status ");
    row("corvane invoke OpenU", "corvane invoke OpenURI ");
    row("corvane invoke --tim", "corvane invoke --timeout=");
    row("corvane invoke --params par", "corvane invoke --params params.json ");
    row("corvane task start fetch --app v", "corvane task start fetch --app viewer ");
    row("corvane task status f", "corvane task status fetch ");
    row("corvane handle Open -- corvane-standi", "corvane handle Open -- corvane-standin ");
    row("corvane check par", "corvane check params.json ");
}

void TestGeneratedFiles::zshCompletes()
{
    QFETCH(QString, line);
    QFETCH(QString, completed);

    QProcess process;
    process.setProcessEnvironment(environment);
    process.setWorkingDirectory(directory.path());
    process.start("zsh", {"-f", Sources + "/complete.zsh", Files + "/zsh", line});
    const Result result = finished(process);
    QCOMPARE(result.output, completed + '\n');
}

QTEST_GUILESS_MAIN(TestGeneratedFiles)
#include "tst_generated_files.moc"
