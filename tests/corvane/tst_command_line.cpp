// SPDX-License-Identifier: BSD-3-Clause
// The program "corvane" without a bus.
#include "program.h"

#include <QtCore/QTemporaryDir>
#include <QtTest/QtTest>

namespace {

QStringList commands()
{
    return {"invoke",      "handle",     "uri encode",      "uri decode",   "task start", "task stop",
            "task status", "task watch", "lifecycle watch", "memory watch", "check",      "service status"};
}

const char NoBus[] = "There is no session bus, or it has closed the connection (Not connected to D-Bus server). Start "
                     "one with: corvane-standin run -- "
                     "... (join a running one with: corvane-standin exec -- ...)";

QProcessEnvironment environmentWith(const QHash<QString, QString> &values)
{
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    for (auto value = values.begin(); value != values.end(); ++value)
        environment.insert(value.key(), value.value());
    return environment;
}

/// Runs the program on a terminal, which prints standard output and standard error.
Result onTerminal(const QString &commandLine, const QHash<QString, QString> &values = {})
{
    QHash<QString, QString> all{{"TERM", "xterm"}};
    all.insert(values);
    return run("script", {"-qec", QString("%1 %2").arg(CORVANE_PROGRAM, commandLine), "/dev/null"}, {},
               environmentWith(all));
}

} // namespace

class TestCommandLine : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void helpNamesEachCommand();
    void everyCommandHasHelp_data();
    void everyCommandHasHelp();
    void versionIsThatOfTheLibrary();
    void wrongCommandLinesAreRefused_data();
    void wrongCommandLinesAreRefused();
    void failuresHaveTheirCode_data();
    void failuresHaveTheirCode();
    void handlerNeedsABus();
    void environmentDoesNotChangeJson_data();
    void environmentDoesNotChangeJson();
    void fullDeviceIsAFailure();
    void intentsAreEncoded_data();
    void intentsAreEncoded();
    void intentsAreDecoded_data();
    void intentsAreDecoded();
    void terminalHasColours_data();
    void terminalHasColours();
    void objectsAreIndentedOnATerminal();
    void paramsAreChecked_data();
    void paramsAreChecked();
    void checkedParamsAreListed();
    void notesDoNotFail();
};

void TestCommandLine::helpNamesEachCommand()
{
    const Result help = corvane({"--help"});
    QCOMPARE(help.exitCode, 0);
    QCOMPARE(help.errors, QString());
    const QStringList names = commands();
    for (const QString &command : names)
        QVERIFY2(help.output.contains(QString("\n  %1 ").arg(command)), qUtf8Printable(command));
    const QStringList lines = help.output.split('\n');
    for (const QString &line : lines)
        QVERIFY2(line.size() <= 80, qUtf8Printable(line));
}

void TestCommandLine::everyCommandHasHelp_data()
{
    QTest::addColumn<QString>("command");

    const QStringList names = commands();
    for (const QString &command : names)
        QTest::newRow(qUtf8Printable(command)) << command;
}

void TestCommandLine::everyCommandHasHelp()
{
    QFETCH(QString, command);

    const Result help = corvane(command.split(' ') + QStringList("--help"));
    QCOMPARE(help.exitCode, 0);
    QVERIFY2(help.output.startsWith(QString("Usage: corvane %1 ").arg(command)), qUtf8Printable(help.output));
    QVERIFY2(help.output.contains("\n  --json "), qUtf8Printable(help.output));
    QVERIFY2(help.output.contains("\nExample: corvane"), qUtf8Printable(help.output));
}

void TestCommandLine::versionIsThatOfTheLibrary()
{
    QCOMPARE(corvane({"--version"}).output, QString("corvane " CORVANE_VERSION "\n"));
}

void TestCommandLine::wrongCommandLinesAreRefused_data()
{
    QTest::addColumn<QString>("line");
    QTest::addColumn<QString>("message");

    const auto row = [](const char *line, const char *message) {
        QTest::newRow(*line ? line : "nothing") << QString::fromUtf8(line) << QString::fromUtf8(message);
    };
    row("", "Expected a command");
    row("walk", "There is no command \"walk\"");
    row("--loud invoke X", "There is no command \"--loud\"");
    row("uri", "Expected encode or decode after \"uri\"");
    row("task walk", "Expected start or stop or status or watch after \"task\", found \"walk\"");
    row("invoke", "Expected NAME");
    row("invoke X y", "Expected KEY=VALUE or KEY:=JSON, found \"y\"");
    row("invoke X =y", "Expected KEY=VALUE or KEY:=JSON, found \"=y\"");
    row("invoke X --hint y", "--hint: Expected KEY=VALUE or KEY:=JSON, found \"y\"");
    row("invoke X --timeout soon", "--timeout: Expected seconds from 0 to 2000000, found \"soon\"");
    row("invoke X --timeout -1", "--timeout: Expected seconds from 0 to 2000000, found \"-1\"");
    row("invoke X --timeout 1 --timeout 2", "--timeout is given twice");
    row("invoke X --loud", "Unknown option 'loud'.");
    row("invoke X --params", "Missing value after '--params'.");
    row("handle", "Expected NAME");
    row("handle X", "Expected -- COMMAND");
    row("handle X --", "Expected -- COMMAND");
    row("handle X cat", "Expected -- COMMAND");
    row("handle X y -- cat", "Expected nothing more, found \"y\"");
    row("uri encode", "Expected NAME");
    row("uri decode", "Expected URI");
    row("uri decode a b", "Expected nothing more, found \"b\"");
    row("task start", "Expected ID");
    row("task start x y", "Expected nothing more, found \"y\"");
    row("task start x --interval soon", "--interval: Expected an integer, found \"soon\"");
    row("task start x --hours 1,", "--hours: Expected integers such as \"1,2,3\", found \"1,\"");
    row("task start x --since soon", "--since: Expected a date such as \"2030-01-31T08:00\", found \"soon\"");
    row("task stop", "Expected ID");
    row("task status", "Expected ID");
    row("task watch", "Expected ID");
    row("task watch x --count 0", "--count: Expected a positive integer, found \"0\"");
    row("lifecycle watch x", "Expected nothing more, found \"x\"");
    row("lifecycle watch --count -1", "--count: Expected a positive integer, found \"-1\"");
    row("memory watch x", "Expected nothing more, found \"x\"");
    row("check x y", "Expected nothing more, found \"y\"");
    row("service status x", "Expected nothing more, found \"x\"");
}

void TestCommandLine::wrongCommandLinesAreRefused()
{
    QFETCH(QString, line);
    QFETCH(QString, message);

    compareFailure(words(line), 64, "Usage", message);
}

void TestCommandLine::failuresHaveTheirCode_data()
{
    QTest::addColumn<QString>("line");
    QTest::addColumn<QByteArray>("input");
    QTest::addColumn<int>("exitCode");
    QTest::addColumn<QString>("message");

    const auto row = [](const char *line, const char *input, int exitCode, const char *message) {
        QTest::addRow("%s %s", line, input)
            << QString::fromUtf8(line) << QByteArray(input) << exitCode << QString::fromUtf8(message);
    };
    const char absent[] = "/nonexistent: No such file or directory";
    row("invoke X", "", 1, NoBus);
    row("handle X -- cat", "", 1,
        "This process has no identity. Start it with: corvane-standin run --as ID -- corvane handle ..., or: "
        "corvane-standin exec --as ID -- corvane handle ...");
    row("task start x --app y", "", 1, NoBus);
    row("task stop x --app y", "", 1, NoBus);
    row("task status x", "", 1, NoBus);
    row("task watch x", "", 1, NoBus);
    row("lifecycle watch", "", 1, NoBus);
    row("memory watch", "", 1, NoBus);
    row("service status", "", 1, NoBus);
    row("invoke X --params /nonexistent", "", 4, absent);
    row("invoke X --params -", "", 4, "-:1: invalid JSON: illegal value");
    row("invoke X --params -", "{\n\"a\":\n\n?}", 4, "-:4: invalid JSON: illegal number");
    row("invoke X --params -", "[1]", 4, "-: the JSON is not an object");
    row("invoke X y:=z", "", 4, "\"z\" is not JSON");
    row("invoke X y:=1,2", "", 4, "\"1,2\" is not JSON");
    row("invoke X y:=", "", 4, "\"\" is not JSON");
    row("invoke X --hint y:=z", "", 4, "\"z\" is not JSON");
    row("uri encode X y:=[]", "", 4, "The parameter \"y\" is an array or an object");
    row("uri encode X y:=1.2345678", "", 4, "The parameter \"y\" does not read back unchanged");
    row("uri encode X --hint y=;", "", 4, "The hint \"y\" contains a semicolon");
    row("uri encode ''", "", 4, "The intent name is empty");
    row("uri encode X --params /nonexistent", "", 4, absent);
    row("uri decode http://x", "", 4, "The scheme is not \"intent\"");
    row("uri decode ''", "", 4, "The URI is empty");
    row("task start x", "", 4, "The application of the task is unknown. Name it with: --app APP");
    row("task stop x", "", 4, "The application of the task is unknown. Name it with: --app APP");
    row("task start x --app y --hours 25 --months 0", "", 4,
        "\"Hours\" contains 25, which is not between 0 and 23; \"Months\" contains 0, which is not between 1 and 12");
    row("check /nonexistent", "", 4, absent);
    row("check", "{\"a\": 1\n", 4, "-:2: invalid JSON: unterminated object");
    row("check -", "3", 4, "-:1: invalid JSON: illegal value");
}

void TestCommandLine::failuresHaveTheirCode()
{
    QFETCH(QString, line);
    QFETCH(QByteArray, input);
    QFETCH(int, exitCode);
    QFETCH(QString, message);

    compareFailure(words(line), exitCode, exitCode == 1 ? "Failed" : "InvalidArgs", message, input);
}

void TestCommandLine::handlerNeedsABus()
{
    const auto environment = environmentWith({{"HALVIR_APP_INSTANCE_ID", "demo.instance1"}});
    const Result result = run(CORVANE_PROGRAM, {"handle", "X", "--", "cat"}, {}, environment);
    QCOMPARE(result.errors, QString("corvane: %1\n").arg(NoBus));
    QCOMPARE(result.output, QString());
    QCOMPARE(result.exitCode, 1);
}

void TestCommandLine::environmentDoesNotChangeJson_data()
{
    QTest::addColumn<QString>("line");

    QTest::newRow("failure") << "service status --json";
    QTest::newRow("wrong command line") << QString::fromUtf8("invoke é é --json");
    QTest::newRow("result") << QString::fromUtf8("uri decode 'intent://#Intent;name=é;page=d.2.5;end' --json");
    QTest::newRow("problems") << "check /dev/null --json";
}

void TestCommandLine::environmentDoesNotChangeJson()
{
    QFETCH(QString, line);

    const QString expected = corvane(words(line)).output;
    QVERIFY(!fromJson(expected.toUtf8()).toObject().isEmpty());
    const auto other = environmentWith({{"LC_ALL", "C"},
                                        {"LANG", "de_DE.UTF-8"},
                                        {"LANGUAGE", "de"},
                                        {"NO_COLOR", "1"},
                                        {"CLICOLOR_FORCE", "1"},
                                        {"FORCE_COLOR", "1"},
                                        {"QT_MESSAGE_PATTERN", "%{file} %{message}"},
                                        {"QT_LOGGING_RULES", "*=true"},
                                        {"COLUMNS", "10"}});
    QCOMPARE(run(CORVANE_PROGRAM, words(line), {}, other).output, expected);
    const QString shellLine = QString(line).replace(';', "\\;").remove('\'').replace('#', "\\#");
    QCOMPARE(onTerminal(shellLine, {{"FORCE_COLOR", "1"}}).output.replace("\r\n", "\n"), expected);
}

void TestCommandLine::fullDeviceIsAFailure()
{
    QProcess process;
    process.setStandardOutputFile("/dev/full");
    process.start(CORVANE_PROGRAM, {"uri", "encode", "X"});
    const Result result = finished(process);
    QCOMPARE(result.exitCode, 1);
    QCOMPARE(result.errors, QString("corvane: standard output: No space left on device\n"));
}

void TestCommandLine::intentsAreEncoded_data()
{
    QTest::addColumn<QString>("line");
    QTest::addColumn<QString>("uri");

    QTest::newRow("name") << "Show"
                          << "intent://#Intent;name=Show;end";
    QTest::newRow("values") << "Show text=2 number:=2 yes:=true"
                            << "intent://#Intent;name=Show;number=d.2;text=S.2;yes=B.true;end";
    QTest::newRow("equals signs") << "Show text=a=b:=c"
                                  << "intent://#Intent;name=Show;text=S.a=b:=c;end";
    QTest::newRow("hints") << "Show --hint a=b --hint c:=1"
                           << "intent://?a=S.b&c=d.1#Intent;name=Show;end";
    QTest::newRow("file") << "Show --params - b=3"
                          << "intent://#Intent;name=Show;a=d.1;b=S.3;end";
    QTest::newRow("last value") << "Show b=3 b=4"
                                << "intent://#Intent;name=Show;b=S.4;end";
    QTest::newRow("dash") << "--hint a=b -- -Show -a=b"
                          << "intent://?a=S.b#Intent;name=-Show;-a=S.b;end";
    QTest::newRow("other characters") << QString::fromUtf8("Show a=é") << "intent://#Intent;name=Show;a=S.%C3%A9;end";
}

void TestCommandLine::intentsAreEncoded()
{
    QFETCH(QString, line);
    QFETCH(QString, uri);

    const QByteArray input = R"({"a": 1, "b": 2})";
    const Result text = corvane(QStringList({"uri", "encode"}) + words(line), input);
    QCOMPARE(text.errors, QString());
    QCOMPARE(text.output, uri + '\n');
    QCOMPARE(text.exitCode, 0);
    const Result json = corvane(QStringList({"--json", "uri", "encode"}) + words(line), input);
    QCOMPARE(json.output, toJson(QJsonObject{{"uri", uri}}) + '\n');
}

void TestCommandLine::intentsAreDecoded_data()
{
    QTest::addColumn<QString>("line");
    QTest::addColumn<QString>("output");

    QTest::newRow("params") << "intent://#Intent;name=Show;page=d.2;end"
                            << R"({"hints":{},"intent":"Show","params":{"page":2}})";
    QTest::newRow("file hints") << "intent://?readFiles=S.a&b=S.c#Intent;name=Show;end"
                                << R"({"hints":{"b":"c"},"intent":"Show","params":{}})";
    QTest::newRow("kept file hints") << "--keep-file-hints intent://?readFiles=S.a#Intent;name=Show;end"
                                     << R"({"hints":{"readFiles":"a"},"intent":"Show","params":{}})";
    QTest::newRow("escapes") << "intent://#Intent;name=Show;a=S.%C3%A9;end"
                             << QString::fromUtf8(R"({"hints":{},"intent":"Show","params":{"a":"é"}})");
}

void TestCommandLine::intentsAreDecoded()
{
    QFETCH(QString, line);
    QFETCH(QString, output);

    const Result result = corvane(QStringList({"uri", "decode"}) + words(line));
    QCOMPARE(result.errors, QString());
    QCOMPARE(result.output, output + '\n');
    QCOMPARE(result.exitCode, 0);
}

void TestCommandLine::terminalHasColours_data()
{
    QTest::addColumn<QString>("variable");
    QTest::addColumn<QString>("value");
    QTest::addColumn<QString>("failure");

    const char plain[] = "corvane: Expected a command\r\nTry \"corvane --help\".\r\n";
    const char coloured[] = "\033[1;31mcorvane:\033[0m Expected a command\r\nTry \"corvane --help\".\r\n";
    QTest::newRow("terminal") << "X"
                              << "" << coloured;
    QTest::newRow("NO_COLOR") << "NO_COLOR"
                              << "1" << plain;
    QTest::newRow("empty NO_COLOR") << "NO_COLOR"
                                    << "" << coloured;
    QTest::newRow("terminal without colours") << "TERM"
                                              << "dumb" << plain;
}

void TestCommandLine::terminalHasColours()
{
    QFETCH(QString, variable);
    QFETCH(QString, value);
    QFETCH(QString, failure);

    const Result result = onTerminal("", {{variable, value}});
    QCOMPARE(result.output, failure);
    QCOMPARE(result.exitCode, 64);
}

void TestCommandLine::objectsAreIndentedOnATerminal()
{
    QCOMPARE(
        onTerminal("uri decode 'intent://#Intent;name=Show;end'").output,
        QString("{\r\n    \"hints\": {\r\n    },\r\n    \"intent\": \"Show\",\r\n    \"params\": {\r\n    }\r\n}\r\n"));
}

void TestCommandLine::paramsAreChecked_data()
{
    QTest::addColumn<QByteArray>("params");
    QTest::addColumn<QString>("options");
    QTest::addColumn<QString>("problems");

    const auto row = [](const char *name, const QByteArray &params, const char *problems, const QString &options = {}) {
        QTest::newRow(name) << params << options << QString::fromUtf8(problems);
    };
    row("empty", "{}", "");
    row("values", R"({"a": [1, 2.5, -0], "b": {"c": [true, "x", []]}, "d": "é"})", "");
    row("null", R"({"a": {"b": null}})", "a.b omitted 0");
    row("array of nulls", R"({"a": [null, null]})", "a omitted 0");
    row("null in a mixed array", R"({"a": [1, {"b": null}, null]})", "a[1].b omitted 0, a[2] omitted 0");
    row("array of arrays", R"({"a": [{"b": [[1], [2]]}]})", "a[0].b omitted 0");
    row("array of arrays in a mixed array", R"({"a": [1, [[1], [2]]]})", "");
    row("text with U+0000", R"({"a": ["x\u0000"]})", "a[0] refused 0");
    row("key with U+0000", R"({"a": {"x\u0000": 1}})", "a.x\\u0000 refused 0");
    row("key of an omitted value", R"({"x\u0000": null})", "x\\u0000 omitted 0");
    row("lone surrogate", R"({"a": "\ud800"})", "a changed 0");
    row("surrogate pair", R"({"a": "\ud83d\ude00"})", "");
    row("special keys", R"({"": null, "*": null, "a.b": null, "a[b": null, "a]": null})",
        R"([""] omitted 0, ["*"] omitted 0, ["a.b"] omitted 0, ["a[b"] omitted 0, a] omitted 0)");
    row("repeated key", "{\"a\":\n1, \"b\": [{\"c\": \"\\\"}\", \"d\": 2,\n\"c\": 3}], \"\\u0061\": 4}",
        "b[0].c changed 3, a changed 3");
    row("large integers", R"({"a": 9007199254740992, "b": [9007199254740993], "c": -12345678901234567890, "d": 1e30})",
        "b[0] changed 1, c changed 1");
    row("deep enough", QByteArray("{\"a\":").repeated(21) + "1" + QByteArray("}").repeated(21), "");
    row("too deep", QByteArray("{\"a\":").repeated(22) + "1" + QByteArray("}").repeated(22),
        "a.a.a.a.a.a.a.a.a.a.a.a.a.a.a.a.a.a.a.a.a refused 0");
    const QByteArray files = R"({"f":[)" + QByteArray(R"("a",)").repeated(16) + R"("file:///b"], "g": {"h": "b"}})";
    row("too many files", files, "f[16] refused 0", "--read-files f[*]");
    row("files of both hints", files, "f[15] refused 0, f[16] refused 0", "--read-files g.* --write-files f[*]");
    row("one file", files, "", "--read-files f[-1] --read-files f[0] --write-files g.h --read-files nothing.x");
    row("no files", R"({"f": ["", 1, "http://x"]})", "", "--read-files f[*]");
    row("URI", R"({"a": 1.5, "b": 1.2345678, "c;": 1, "d": [], "e": "x;y", "f": "x"})",
        "b notInUri 0, c; notInUri 0, d notInUri 0, e notInUri 0", "--uri");
}

void TestCommandLine::paramsAreChecked()
{
    QFETCH(QByteArray, params);
    QFETCH(QString, options);
    QFETCH(QString, problems);

    const Result result = corvane(QStringList({"check", "--json"}) + words(options), params);
    const QJsonObject object = fromJson(result.output.toUtf8()).toObject();
    QStringList found;
    const QJsonArray list = object.value("problems").toArray();
    for (const auto &value : list) {
        const QJsonObject problem = value.toObject();
        found << QString("%1 %2 %3")
                     .arg(problem.value("path").toString().replace(QChar(0), "\\u0000"),
                          problem.value("effect").toString())
                     .arg(problem.value("line").toInt());
    }
    QCOMPARE(found.join(", "), problems);
    QCOMPARE(result.exitCode, found.isEmpty() ? 0 : 4);
    QCOMPARE(object.value("error").toObject().value("code").toInt(), result.exitCode);
}

void TestCommandLine::checkedParamsAreListed()
{
    const Result result = corvane({"check"}, R"({"a": [1, null], "n": 1, "n": 2})");
    QCOMPARE(result.output,
             QString("n: the key is repeated, and only its last value arrives (line 1)\n"
                     "a[1]: a null is omitted\n"
                     "a: not in a URI: The parameter \"a\" is an array or an object\n"));
    QCOMPARE(result.errors, QString("corvane: -: Not all params arrive unchanged; problems: 2\n"));
    QCOMPARE(result.exitCode, 4);
}

void TestCommandLine::notesDoNotFail()
{
    const Result result = corvane({"check"}, R"({"a": 1.2345678})");
    QCOMPARE(result.output,
             QString("a: not in a URI: The parameter \"a\" does not read back unchanged\n"
                     "All params arrive unchanged.\n"));
    QCOMPARE(result.errors, QString());
    QCOMPARE(result.exitCode, 0);
}

QTEST_GUILESS_MAIN(TestCommandLine)
#include "tst_command_line.moc"
