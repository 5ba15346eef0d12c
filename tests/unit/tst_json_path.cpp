// SPDX-License-Identifier: BSD-3-Clause
#include <Core/json_path.h>

#include <json.h>
#include <message_log.h>
#include <patience.h>

#include <QtCore/QJsonArray>
#include <QtTest/QtTest>

#include <limits>
#include <memory>
#include <type_traits>

static_assert(sizeof(Core::JsonPath::Element) == 4);
static_assert(std::is_same_v<decltype(&Core::JsonPath::value), QJsonValue (*)(const QJsonObject &, const QString &)>);
static_assert(std::is_same_v<decltype(&Core::JsonPath::expand), QStringList (*)(const QJsonObject &, const QString &)>);

class TestJsonPath : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void pathsAreExpanded_data();
    void pathsAreExpanded();
    void valuesAreFound_data();
    void valuesAreFound();
    void nextElementIsRemovedFromThePath_data();
    void nextElementIsRemovedFromThePath();
    void syntaxErrorsAreLogged_data();
    void syntaxErrorsAreLogged();
    void warningsNameTheTokenizer_data();
    void warningsNameTheTokenizer();
    void longPathsAreRead();
};

void TestJsonPath::pathsAreExpanded_data()
{
    QTest::addColumn<QByteArray>("root");
    QTest::addColumn<QString>("path");
    QTest::addColumn<QStringList>("expected");

    const auto row = [](const char *root, const char *path, const QStringList &expected) {
        QTest::addRow("%s in %s", path, root) << QByteArray(root) << QString::fromLatin1(path) << expected;
    };
    const auto list = [](auto... paths) { return QStringList{QString::fromUtf8(paths)...}; };

    row(R"({"uri": ["a", "b"]})", "uri[*]", list("uri[0]", "uri[1]"));
    row(R"({"uri": []})", "uri[*]", {});
    row(R"({})", "uri[*]", {});
    row(R"({"uri": "a"})", "uri[*]", {});
    row(R"({"uri": "a"})", "uri", list("uri"));
    row(R"({"uri": "a"})", "other", {});
    row(R"({"a": [1, 2, 3]})", "a[0]", list("a[0]"));
    row(R"({"a": [1, 2, 3]})", "a[-1]", list("a[2]"));
    row(R"({"a": [1, 2, 3]})", "a[-3]", list("a[0]"));
    row(R"({"a": [1, 2, 3]})", "a[-4]", {});
    row(R"({"a": [1, 2, 3]})", "a[3]", {});
    row(R"({"a": [{"p": 1}, {"q": 1}, {"p": 1}]})", "a[*].p", list("a[0].p", "a[2].p"));
    row(R"({"a": {"y": {"b": 1}, "x": {"b": 1}}})", "a.*.b", list("a.x.b", "a.y.b"));
    row(R"({"a": {"x": [1, 2]}, "b": {"y": [3]}})", "*.*[*]", list("a.x[0]", "a.x[1]", "b.y[0]"));
    row(R"({"b": 1, "a": 2})", "*", list("a", "b"));
    row(R"({"b": [1], "a": [2]})", "*[0]", list("a[0]", "b[0]"));
    row(R"({"a": [[1, 2], [3]]})", "a[*][*]", list("a[0][0]", "a[0][1]", "a[1][0]"));
    row(R"({"a": [[1, 2], [3]]})", "a[1][-1]", list("a[1][0]"));
    row(R"({"a": {"b": 1}})", ".a..b", list("a.b"));
    row(R"({"a": {"b": 1}})", "a.b.", list("a.b"));
    row(R"({"a": 1})", "*.x", {});
    row(R"({"a": 1})", "", list(""));
    row(R"({"a": 1})", "...", list(""));
    row(R"({"": 1})", "*", list(""));
    row(R"({"x.y": 1})", "*", list("x.y"));
    row(R"({"a": {"[0]": 1}})", "*.*", list("a[0]"));
    row(R"({"a": {"[0]": 1}})", "a.*", list("a.[0]"));

    // A key has no dot before it only after an empty prefix, and no dot after it only before an empty rest or an index.
    row(R"({"": {"b": 1}})", "*.b", list(".b"));
    row(R"({"": [1]})", "*[0]", list("[0]"));
    row(R"({"": [1]})", "*[*]", list("[0]"));
    row(R"({"": {"": 1}})", "*.*", list(""));
    row(R"({"": {"": {"b": 1}}})", "*.*.b", list("..b"));
    row(R"({"": {"": [1]}})", "*.*[*]", list("[0]"));
    row(R"({"": {"[": 1}})", "*.*", list("["));
    row(R"({"": {".": 1}})", "*.*", list(".."));
    row(R"({"a": {"": {"b": 1}}})", "a.*.b", list("a..b"));
    row(R"({"a": {"": 1}})", "a.*", list("a."));
    row(R"({"a": {"": 1}})", "*.*", list("a"));
    row(R"({"a": [{"": {"b": 1}}]})", "a[*].*.b", list("a[0]..b"));
    row(R"({"a": [{"": {"b": 1}}]})", "a[0].*.b", list("a[0]..b"));
    row(R"({"a": [{"": 1}]})", "a[*].*", list("a[0]"));
    row(R"({"a": [{"": 1}]})", "a[0].*", list("a[0]."));
    row(R"({"a": {"b": 1}})", "*.b", list("a.b"));
    row(R"({"a": [{"b": 1}]})", "a[*].b", list("a[0].b"));
    row(R"({"a": [{"b": 1}]})", "a[0].b", list("a[0].b"));
    row(R"({"%1": ["x"]})", "%1[0]", list("%1[0]"));
    row(R"({"%1": ["x"]})", "*[*]", list("%1[0]"));
}

void TestJsonPath::pathsAreExpanded()
{
    QFETCH(QByteArray, root);
    QFETCH(QString, path);
    QFETCH(QStringList, expected);

    QCOMPARE(Core::JsonPath::expand(fromJson(root).toObject(), path), expected);
}

void TestJsonPath::valuesAreFound_data()
{
    QTest::addColumn<QString>("path");
    QTest::addColumn<QJsonValue>("expected");

    QTest::newRow("element") << "uri[1]" << QJsonValue("b");
    QTest::newRow("last element") << "uri[-1]" << QJsonValue("b");
    QTest::newRow("missing key") << "missing" << QJsonValue(QJsonValue::Null);
    QTest::newRow("key below a missing one") << "missing.more" << QJsonValue(QJsonValue::Null);
    QTest::newRow("key below a scalar") << "uri[0].more" << QJsonValue(QJsonValue::Null);
    QTest::newRow("index past the end") << "uri[2]" << QJsonValue(QJsonValue::Undefined);
    QTest::newRow("index before the start") << "uri[-3]" << QJsonValue(QJsonValue::Undefined);
    QTest::newRow("index into an object") << "a[0]" << QJsonValue(QJsonValue::Undefined);
    QTest::newRow("nested") << "a.b" << QJsonValue(7);
    QTest::newRow("dots are skipped") << ".a..b" << QJsonValue(7);
    QTest::newRow("index without a dot before its key") << "list[0]c" << QJsonValue(true);
    QTest::newRow("wildcards are skipped") << "a[*].*.b" << QJsonValue(7);
    QTest::newRow("empty path is the root") << "" << QJsonValue(QJsonObject{{"x", 1}});
}

void TestJsonPath::valuesAreFound()
{
    QFETCH(QString, path);
    QFETCH(QJsonValue, expected);

    const QJsonObject root = path.isEmpty()
        ? fromJson(R"({"x": 1})").toObject()
        : fromJson(R"({"uri": ["a", "b"], "a": {"b": 7}, "list": [{"c": true}]})").toObject();
    QCOMPARE(Core::JsonPath::value(root, path), expected);
}

void TestJsonPath::nextElementIsRemovedFromThePath_data()
{
    QTest::addColumn<QString>("path");
    QTest::addColumn<int>("element");
    QTest::addColumn<QString>("rest");
    QTest::addColumn<QString>("key");
    QTest::addColumn<int>("index");
    QTest::addColumn<QString>("message");

    // "before" and 99 are the initial values of the variables.
    const auto row = [](const char *path, int element, const char *rest, const char *key, int index,
                        const char *message = "") {
        QTest::newRow(path) << QString::fromUtf8(path) << element << QString::fromUtf8(rest) << QString::fromUtf8(key)
                            << index << QString::fromUtf8(message);
    };
    row("", 0, "", "before", 99);
    row(".", 0, "", "before", 99);
    row("...", 0, "", "before", 99);
    row("a", 1, "", "a", 99);
    row("a.b", 1, ".b", "a", 99);
    row("a..b", 1, "..b", "a", 99);
    row("..a.b", 1, ".b", "a", 99);
    row("a[0]", 1, "[0]", "a", 99);
    row("a]b[0]", 1, "[0]", "a]b", 99);
    row("ž 🐎.b", 1, ".b", "ž 🐎", 99);
    row("*", 3, "", "before", 99);
    row("*.b", 3, ".b", "before", 99);
    row("*[0]", 3, "[0]", "before", 99);
    row("**.b", 1, ".b", "**", 99);
    row("* .b", 1, ".b", "* ", 99);
    row("[3]", 2, "", "before", 3);
    row("[3]b", 2, "b", "before", 3);
    row("[3].b", 2, ".b", "before", 3);
    row(".[-1][0]", 2, "[0]", "before", -1);
    row("[-2147483648]", 2, "", "before", std::numeric_limits<int>::min());
    row("[010]", 2, "", "before", 10); // decimal
    row("[*]", 4, "", "before", 99);
    row("[*].b", 4, ".b", "before", 99);
    row("[1", 0, "[1", "before", 99, "JSON path error: missing right bracket");
    row("..[1.b", 0, "[1.b", "before", 99, "JSON path error: missing right bracket");
    row("[x].b", 0, ".b", "before", 0, R"(JSON path error: could not parse index "x")");
    row("[]b", 0, "b", "before", 0, R"(JSON path error: could not parse index "")");
    row("[[0]]", 0, "]", "before", 0, R"(JSON path error: could not parse index "[0")");
    row("[0x1]", 0, "", "before", 0, R"(JSON path error: could not parse index "0x1")");
    row("[2147483648]", 0, "", "before", 0, R"(JSON path error: could not parse index "2147483648")");
}

void TestJsonPath::nextElementIsRemovedFromThePath()
{
    QFETCH(QString, path);
    QFETCH(int, element);
    QFETCH(QString, rest);
    QFETCH(QString, key);
    QFETCH(int, index);
    QFETCH(QString, message);

    QString takenKey = "before";
    int takenIndex = 99;
    const QString before(path.constData(), path.size());
    QString shortened = path;
    if (!message.isEmpty())
        QTest::ignoreMessage(QtDebugMsg, qUtf8Printable(message));
    const Core::JsonPath::Element taken = Core::JsonPath::nextPathElement(shortened, &takenKey, &takenIndex);
    QCOMPARE(int(taken), element);
    QCOMPARE(shortened, rest);
    QCOMPARE(takenKey, key);
    QCOMPARE(takenIndex, index);
    QCOMPARE(path, before); // path shares its characters with the shortened copy
}

void TestJsonPath::syntaxErrorsAreLogged_data()
{
    QTest::addColumn<QString>("path");
    QTest::addColumn<QString>("message");
    QTest::addColumn<QStringList>("expanded");

    QTest::newRow("no right bracket") << "a[1"
                                      << "JSON path error: missing right bracket" << QStringList{"a"};
    QTest::newRow("letters") << "a[x]"
                             << R"(JSON path error: could not parse index "x")" << QStringList{"a"};
    QTest::newRow("empty") << "a[]"
                           << R"(JSON path error: could not parse index "")" << QStringList{"a"};
    QTest::newRow("too large") << "a[99999999999]"
                               << R"(JSON path error: could not parse index "99999999999")" << QStringList{"a"};
}

void TestJsonPath::syntaxErrorsAreLogged()
{
    QFETCH(QString, path);
    QFETCH(QString, message);
    QFETCH(QStringList, expanded);

    const QJsonObject root = fromJson(R"({"a": [1, 2]})").toObject();
    QTest::ignoreMessage(QtDebugMsg, qUtf8Printable(message));
    QCOMPARE(Core::JsonPath::value(root, path), root.value("a"));
    QTest::ignoreMessage(QtDebugMsg, qUtf8Printable(message));
    QCOMPARE(Core::JsonPath::expand(root, path), expanded);
}

void TestJsonPath::warningsNameTheTokenizer_data()
{
    QTest::addColumn<QString>("path");

    QTest::newRow("missing bracket") << "a[1";
    QTest::newRow("no number") << "a[x]";
}

void TestJsonPath::warningsNameTheTokenizer()
{
    QFETCH(QString, path);

    static QStringList contexts; // where the messages were logged
    contexts.clear();
    const auto previous =
        qInstallMessageHandler([](QtMsgType type, const QMessageLogContext &context, const QString &) {
            const bool isDebug = type == QtDebugMsg && qstrcmp(context.category, "default") == 0;
            const bool isHere = QByteArray(context.file).endsWith("Core/json_path.cpp");
            contexts << (isDebug && isHere ? QString::fromUtf8(context.function) : "elsewhere");
        });
    const QJsonObject root = fromJson(R"({"a": [1, 2]})").toObject();
    Core::JsonPath::value(root, path);
    Core::JsonPath::expand(root, path);
    QString rest = path.mid(1);
    Core::nextPathElement(rest, nullptr, std::make_unique<int>().get());
    qInstallMessageHandler(previous);
    QCOMPARE(contexts.size(), 3);
    for (const QString &function : qAsConst(contexts))
        QVERIFY2(function.endsWith("Core::JsonPath::nextPathElement(QString&, QString*, int*)"),
                 qUtf8Printable(function));
}

void TestJsonPath::longPathsAreRead()
{
    QString path;
    for (int i = 0; i < 100000; ++i)
        path += "a.[-1]";
    QCOMPARE(Core::JsonPath::expand(fromJson(R"({"a": [1, 2]})").toObject(), path), QStringList());
    QCOMPARE(Core::JsonPath::value(fromJson(R"({"a": [1, 2]})").toObject(), path), QJsonValue(QJsonValue::Undefined));
}

QTEST_GUILESS_MAIN(TestJsonPath)
#include "tst_json_path.moc"
