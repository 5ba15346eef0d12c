// SPDX-License-Identifier: BSD-3-Clause
#include <Core/intent_uri.h>
#include <Corvane/intents_invoker.h>

#include <message_log.h>
#include <patience.h>

#include <QtCore/QJsonArray>
#include <QtCore/QUrlQuery>
#include <QtTest/QtTest>

using namespace Core;

class TestIntentUri : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void writes_data();
    void writes();
    void refusesToWrite_data();
    void refusesToWrite();
    void reads_data();
    void reads();
    void refusesToRead_data();
    void refusesToRead();
    void unreadableHintIsNull();
    void readsBackWhatItWrote_data();
    void readsBackWhatItWrote();
    void someCharactersComeBackEncoded_data();
    void someCharactersComeBackEncoded();
    void invokerWritesTheSame();
    void takesThousandsOfParams();
};

void TestIntentUri::writes_data()
{
    QTest::addColumn<QJsonObject>("hints");
    QTest::addColumn<QJsonObject>("params");
    QTest::addColumn<QString>("uri");

    const auto row = [](const char *tag, const QJsonObject &hints, const QJsonObject &params, const char *uri) {
        QTest::newRow(tag) << hints << params << QString::fromUtf8(uri);
    };
    const QString a = QStringLiteral("a");
    const QString b = QStringLiteral("b");
    row("name only", {}, {}, "intent://#Intent;name=OpenURI;end");
    row("true", {}, {{a, true}}, "intent://#Intent;name=OpenURI;a=B.true;end");
    row("false", {}, {{a, false}}, "intent://#Intent;name=OpenURI;a=B.false;end");
    row("integer", {}, {{a, 2}}, "intent://#Intent;name=OpenURI;a=d.2;end");
    row("fraction", {}, {{a, 0.1}}, "intent://#Intent;name=OpenURI;a=d.0.1;end");
    row("six digits are kept", {}, {{a, 123456}}, "intent://#Intent;name=OpenURI;a=d.123456;end");
    row("seven are rounded", {}, {{a, 1234567}}, "intent://#Intent;name=OpenURI;a=d.1.23457e+06;end");
    row("string", {}, {{a, QStringLiteral("file:///tmp/a.txt")}},
        "intent://#Intent;name=OpenURI;a=S.file:///tmp/a.txt;end");
    row("empty string", {}, {{a, QString()}}, "intent://#Intent;name=OpenURI;a=S.;end");
    row("params in the order of their keys", {}, {{b, 1}, {a, 2}}, "intent://#Intent;name=OpenURI;a=d.2;b=d.1;end");
    row("hint", {{QStringLiteral("h"), true}}, {}, "intent://?h=B.true#Intent;name=OpenURI;end");
    row("all together", {{QStringLiteral("h"), true}, {QStringLiteral("i"), 1}},
        {{QStringLiteral("count"), 2}, {QStringLiteral("uri"), QStringLiteral("file:///tmp/a.txt")}},
        "intent://?h=B.true&i=d.1#Intent;name=OpenURI;count=d.2;uri=S.file:///tmp/a.txt;end");
}

void TestIntentUri::writes()
{
    QFETCH(QJsonObject, hints);
    QFETCH(QJsonObject, params);
    QFETCH(QString, uri);

    const QUrl written = IntentUri::toUri(QStringLiteral("OpenURI"), hints, params);
    QCOMPARE(written.toString(), uri);
    QCOMPARE(written.hasQuery(), !hints.isEmpty());
    QVERIFY(written.isValid());
}

void TestIntentUri::refusesToWrite_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<QJsonValue>("value");
    QTest::addColumn<QString>("warning");

    const QString semicolons = QStringLiteral("Cannot encode strings with semicolons");
    const QString containers = QStringLiteral("Intent URI conversion does not support arrays or maps");
    QTest::newRow("no name") << QString() << QJsonValue(1) << QString();
    QTest::newRow("semicolon") << "X" << QJsonValue(QStringLiteral("a;b")) << semicolons;
    QTest::newRow("array") << "X" << QJsonValue(QJsonArray{1}) << containers;
    QTest::newRow("object") << "X" << QJsonValue(QJsonObject()) << containers;
    QTest::newRow("null") << "X" << QJsonValue() << QString();
}

void TestIntentUri::refusesToWrite()
{
    QFETCH(QString, name);
    QFETCH(QJsonValue, value);
    QFETCH(QString, warning);

    const QJsonObject object{{QStringLiteral("a"), value}};
    const QStringList warnings = warning.isEmpty() ? QStringList() : QStringList(warning);
    MessageLog log;
    QCOMPARE(IntentUri::toUri(name, {}, object), QUrl());
    QCOMPARE(log.takeWarnings(), warnings);
    QCOMPARE(IntentUri::toUri(name, object, {}), QUrl());
    QCOMPARE(log.takeWarnings(), warnings);
}

void TestIntentUri::reads_data()
{
    QTest::addColumn<QString>("uri");
    QTest::addColumn<QString>("name");
    QTest::addColumn<QJsonObject>("hints");
    QTest::addColumn<QJsonObject>("params");

    const QString a = QStringLiteral("a");
    const auto param = [a](const char *tag, const char *text, const QJsonValue &value) {
        QTest::newRow(tag) << QStringLiteral("intent://#Intent;name=X;a=%1;end").arg(QString::fromUtf8(text)) << "X"
                           << QJsonObject() << QJsonObject{{a, value}};
    };
    param("integer", "i.42", 42);
    param("negative integer", "i.-42", -42);
    param("integer that is none", "i.4x", 0);
    param("number", "d.2.5", 2.5);
    param("number that is none", "d.x", 0);
    param("true", "B.true", true);
    param("false", "B.false", false);
    param("any other boolean", "B.TRUE", false);
    param("string", "S.x y", QStringLiteral("x y"));
    param("empty string", "S.", QString());
    param("string with '='", "S.b=c", QStringLiteral("b=c"));

    const auto row = [](const char *tag, const char *uri, const char *name, const QJsonObject &hints,
                        const QJsonObject &params) {
        QTest::newRow(tag) << QString::fromUtf8(uri) << QString::fromUtf8(name) << hints << params;
    };
    row("no params", "intent://#Intent;name=X;end", "X", {}, {});
    row("empty name", "intent://#Intent;name=;end", "", {}, {});
    row("head and tail in one", "intent://#Intent;name=end", "end", {}, {});
    row("end within the last part", "intent://#Intent;name=X;a=S.bend", "X", {}, {{a, QStringLiteral("bend")}});
    row("parts after the end", "intent://#Intent;name=X;a=d.1;end;a=d.2;nonsense;end", "X", {}, {{a, 1}});
    row("later param wins", "intent://#Intent;name=X;a=d.1;a=d.2;end", "X", {}, {{a, 2}});
    row("later hint wins", "intent://?a=d.1&a=d.2#Intent;name=X;end", "X", {{a, 2}}, {});
    row("hints", "intent://?a=S.b%26c&d=B.true#Intent;name=X;end", "X",
        {{a, QStringLiteral("b&c")}, {QStringLiteral("d"), true}}, {});
    row("without authority", "intent:#Intent;name=X;end", "X", {}, {});
}

void TestIntentUri::reads()
{
    QFETCH(QString, uri);
    QFETCH(QString, name);
    QFETCH(QJsonObject, hints);
    QFETCH(QJsonObject, params);

    MessageLog log;
    const auto [readName, readHints, readParams] = IntentUri::fromUri(QUrl(uri));
    QCOMPARE(readName, name);
    QCOMPARE(readHints, hints);
    QCOMPARE(readParams, params);
    QCOMPARE(log.takeWarnings(), QStringList());
}

void TestIntentUri::refusesToRead_data()
{
    QTest::addColumn<QString>("uri");
    QTest::addColumn<QStringList>("warnings");

    const auto row = [](const char *tag, const char *uri, const QStringList &before, const char *last) {
        QTest::newRow(tag) << QString::fromUtf8(uri)
                           << before
                + QStringList{QStringLiteral("%1 QUrl(\"%2\")").arg(QLatin1String(last), QString::fromUtf8(uri))};
    };
    const QStringList value{QStringLiteral("Intent URI with invalid value")};
    const QStringList type{QStringLiteral("Unknown intent value type: 'x'")};
    row("scheme", "http://#Intent;name=X;end", {}, "Not an intent URI:");
    row("no fragment", "intent://", {}, "Not an intent URI:");
    row("head", "intent://#intent;name=X;end", {}, "Not an intent URI:");
    row("tail", "intent://#Intent;name=X;END", {}, "Not an intent URI:");
    row("empty part", "intent://#Intent;name=X;;end", {}, "Invalid intent URI:");
    row("empty key", "intent://#Intent;name=X;=S.a;end", {}, "Invalid intent URI:");
    row("no '='", "intent://#Intent;name=X;a;end", {}, "Invalid intent URI:");
    row("no type", "intent://#Intent;name=X;a=;end", value, "Invalid intent URI:");
    row("no dot", "intent://#Intent;name=X;a=Sb;end", value, "Invalid intent URI:");
    row("unknown type", "intent://#Intent;name=X;a=x.1;end", type, "Invalid intent URI:");
    QTest::newRow("invalid URL") << "intent://host:port#Intent;name=X;end"
                                 << QStringList{QStringLiteral("Invalid intent URI \"%1\"")
                                                    .arg(QUrl(QStringLiteral("intent://host:port#Intent;name=X;end"))
                                                             .errorString()
                                                             .replace(QLatin1Char('"'), QLatin1String("\\\"")))};
    QTest::newRow("empty URL") << QString() << QStringList{QStringLiteral("Invalid intent URI \"\"")};
}

void TestIntentUri::refusesToRead()
{
    QFETCH(QString, uri);
    QFETCH(QStringList, warnings);

    MessageLog log;
    const auto [name, hints, params] = IntentUri::fromUri(QUrl(uri));
    QVERIFY(name.isNull());
    QVERIFY(hints.isEmpty());
    QVERIFY(params.isEmpty());
    QCOMPARE(log.takeWarnings(), warnings);
}

void TestIntentUri::unreadableHintIsNull()
{
    MessageLog log;
    const auto [name, hints, params] =
        IntentUri::fromUri(QUrl(QStringLiteral("intent://?h=x.1&i=&j=d.1#Intent;name=X;a=d.1;end")));
    QCOMPARE(name, QStringLiteral("X"));
    QCOMPARE(hints, QJsonObject({{QStringLiteral("h"), {}}, {QStringLiteral("i"), {}}, {QStringLiteral("j"), 1}}));
    QCOMPARE(params, QJsonObject({{QStringLiteral("a"), 1}}));
    QCOMPARE(log.takeWarnings(),
             QStringList(
                 {QStringLiteral("Unknown intent value type: 'x'"), QStringLiteral("Intent URI with invalid value")}));
}

void TestIntentUri::readsBackWhatItWrote_data()
{
    QTest::addColumn<QString>("text");

    QTest::newRow("words") << "two words";
    QTest::newRow("delimiters") << "a=b?c:d/e@f[g]&h+i";
    QTest::newRow("quotes") << R"("<'>{|}\^)";
    QTest::newRow("beyond Latin 1") << QString::fromUtf8("žluťoučký 🐎");
}

void TestIntentUri::readsBackWhatItWrote()
{
    QFETCH(QString, text);

    const QJsonObject object{{QStringLiteral("text"), text}, {QStringLiteral("on"), true}, {QStringLiteral("n"), -2.5}};
    const QUrl uri = IntentUri::toUri(QStringLiteral("Say"), object, object);
    const auto [name, hints, params] = IntentUri::fromUri(QUrl(QString::fromUtf8(uri.toEncoded())));
    QCOMPARE(name, QStringLiteral("Say"));
    QCOMPARE(params, object);
    QCOMPARE(hints, object);
}

void TestIntentUri::someCharactersComeBackEncoded_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<QString>("inHints");
    QTest::addColumn<QString>("inParams");

    QTest::newRow("number sign") << "a#b"
                                 << "a#b"
                                 << "a%23b";
    QTest::newRow("line break") << "a\nb"
                                << "a%0Ab"
                                << "a%0Ab";
    QTest::newRow("per cent") << "100%"
                              << "100%25"
                              << "100%25";
    QTest::newRow("encoded before") << "%41"
                                    << "A"
                                    << "A";
}

void TestIntentUri::someCharactersComeBackEncoded()
{
    QFETCH(QString, text);
    QFETCH(QString, inHints);
    QFETCH(QString, inParams);

    const QString key = QStringLiteral("text");
    const QUrl uri = IntentUri::toUri(QStringLiteral("Say"), {{key, text}}, {{key, text}});
    const auto [name, hints, params] = IntentUri::fromUri(QUrl(QString::fromUtf8(uri.toEncoded())));
    QCOMPARE(name, QStringLiteral("Say"));
    QCOMPARE(hints.value(key).toString(), inHints);
    QCOMPARE(params.value(key).toString(), inParams);
}

void TestIntentUri::invokerWritesTheSame()
{
    const QJsonObject hints{{QStringLiteral("h"), 1}};
    const QJsonObject params{{QStringLiteral("p"), QStringLiteral("x")}};
    const QUrl uri = Corvane::IntentsInvoker::intentToUri(QStringLiteral("Say"), hints, params);
    QCOMPARE(uri, IntentUri::toUri(QStringLiteral("Say"), hints, params));
    QCOMPARE(uri.toString(), QStringLiteral("intent://?h=d.1#Intent;name=Say;p=S.x;end"));
}

void TestIntentUri::takesThousandsOfParams()
{
    QJsonObject params;
    QString fragment = QStringLiteral("Intent;name=X");
    for (int i = 20000; i-- > 0;) { // in descending order
        const QString key = QStringLiteral("k%1").arg(i, 5, 10, QLatin1Char('0'));
        fragment += QStringLiteral(";%1=i.%2").arg(key).arg(i);
        params.insert(key, i);
    }
    const auto [name, hints, read] =
        IntentUri::fromUri(QUrl(QStringLiteral("intent://#") + fragment + QStringLiteral(";end")));
    QCOMPARE(read.size(), 20000);
    QVERIFY(read == params);
    QVERIFY(hints.isEmpty());
}

QTEST_GUILESS_MAIN(TestIntentUri)
#include "tst_intent_uri.moc"
