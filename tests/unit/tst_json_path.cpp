// SPDX-License-Identifier: BSD-3-Clause
#include <Core/json_path.h>

#include <message_log.h>
#include <patience.h>

#include <QtCore/QJsonArray>
#include <QtCore/QJsonDocument>
#include <QtTest/QtTest>

namespace {

QJsonObject fromJson(const QByteArray &text)
{
    QJsonParseError error;
    const QJsonDocument document = QJsonDocument::fromJson(text, &error);
    if (error.error != QJsonParseError::NoError)
        qFatal("%s: %s", text.constData(), qPrintable(error.errorString()));
    return document.object();
}

} // namespace

class TestJsonPath : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void expands_data();
    void expands();
    void findsValues_data();
    void findsValues();
    void reportsSyntaxErrors_data();
    void reportsSyntaxErrors();
    void takesLongPaths();
};

void TestJsonPath::expands_data()
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
}

void TestJsonPath::expands()
{
    QFETCH(QByteArray, root);
    QFETCH(QString, path);
    QFETCH(QStringList, expected);

    QCOMPARE(Core::JsonPath::expand(fromJson(root), path), expected);
}

void TestJsonPath::findsValues_data()
{
    QTest::addColumn<QString>("path");
    QTest::addColumn<QJsonValue>("expected");

    QTest::newRow("element") << "uri[1]" << QJsonValue(QStringLiteral("b"));
    QTest::newRow("last element") << "uri[-1]" << QJsonValue(QStringLiteral("b"));
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
    QTest::newRow("empty path is the root") << "" << QJsonValue(QJsonObject{{QStringLiteral("x"), 1}});
}

void TestJsonPath::findsValues()
{
    QFETCH(QString, path);
    QFETCH(QJsonValue, expected);

    const QJsonObject root = path.isEmpty() ? fromJson(R"({"x": 1})")
                                            : fromJson(R"({"uri": ["a", "b"], "a": {"b": 7}, "list": [{"c": true}]})");
    QCOMPARE(Core::JsonPath::value(root, path), expected);
}

void TestJsonPath::reportsSyntaxErrors_data()
{
    QTest::addColumn<QString>("path");
    QTest::addColumn<QString>("message");
    QTest::addColumn<QStringList>("expanded");

    QTest::newRow("no right bracket") << "a[1"
                                      << "JSON path error: missing right bracket" << QStringList{QStringLiteral("a")};
    QTest::newRow("letters") << "a[x]"
                             << R"(JSON path error: could not parse index "x")" << QStringList{QStringLiteral("a")};
    QTest::newRow("empty") << "a[]"
                           << R"(JSON path error: could not parse index "")" << QStringList{QStringLiteral("a")};
    QTest::newRow("too large") << "a[99999999999]"
                               << R"(JSON path error: could not parse index "99999999999")"
                               << QStringList{QStringLiteral("a")};
}

void TestJsonPath::reportsSyntaxErrors()
{
    QFETCH(QString, path);
    QFETCH(QString, message);
    QFETCH(QStringList, expanded);

    const QJsonObject root = fromJson(R"({"a": [1, 2]})");
    QTest::ignoreMessage(QtDebugMsg, qUtf8Printable(message));
    QCOMPARE(Core::JsonPath::value(root, path), root.value(QStringLiteral("a")));
    QTest::ignoreMessage(QtDebugMsg, qUtf8Printable(message));
    QCOMPARE(Core::JsonPath::expand(root, path), expanded);
}

void TestJsonPath::takesLongPaths()
{
    QString path;
    for (int i = 0; i < 100000; ++i)
        path += QLatin1String("a.[-1]");
    QCOMPARE(Core::JsonPath::expand(fromJson(R"({"a": [1, 2]})"), path), QStringList());
    QCOMPARE(Core::JsonPath::value(fromJson(R"({"a": [1, 2]})"), path), QJsonValue(QJsonValue::Undefined));
}

QTEST_GUILESS_MAIN(TestJsonPath)
#include "tst_json_path.moc"
