// SPDX-License-Identifier: BSD-3-Clause
#include <Core/intent_uri.h>
#include <Corvane/intents_invoker.h>

#include <message_log.h>
#include <patience.h>

#include <QtCore/QJsonArray>
#include <QtCore/QUrlQuery>
#include <QtTest/QtTest>

#include <tuple>
#include <type_traits>

using namespace Core;

static_assert(
    std::is_same_v<decltype(&IntentUri::toUri), QUrl (*)(const QString &, const QJsonObject &, const QJsonObject &)>);
static_assert(
    std::is_same_v<decltype(&IntentUri::fromUri), std::tuple<QString, QJsonObject, QJsonObject> (*)(const QUrl &)>);

class TestIntentUri : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void intentsAreWritten_data();
    void intentsAreWritten();
    void namesAreWrittenUnchanged();
    void onlyTheFirstProblemIsLogged_data();
    void onlyTheFirstProblemIsLogged();
    void unwritableIntentsGiveAnEmptyUri_data();
    void unwritableIntentsGiveAnEmptyUri();
    void intentsAreRead_data();
    void intentsAreRead();
    void invalidUrisGiveAnEmptyIntent_data();
    void invalidUrisGiveAnEmptyIntent();
    void unreadableHintIsNull();
    void writtenUrisReadBackUnchanged_data();
    void writtenUrisReadBackUnchanged();
    void someCharactersAreReadEncoded_data();
    void someCharactersAreReadEncoded();
    void invokerWritesTheSameUri();
    void thousandsOfParamsAreConverted();
};

void TestIntentUri::intentsAreWritten_data()
{
    QTest::addColumn<QJsonObject>("hints");
    QTest::addColumn<QJsonObject>("params");
    QTest::addColumn<QString>("uri");

    const auto row = [](const char *tag, const QJsonObject &hints, const QJsonObject &params, const char *uri) {
        QTest::newRow(tag) << hints << params << QString::fromUtf8(uri);
    };
    const QString a = "a";
    const QString b = "b";
    row("name only", {}, {}, "intent://#Intent;name=OpenURI;end");
    row("true", {}, {{a, true}}, "intent://#Intent;name=OpenURI;a=B.true;end");
    row("false", {}, {{a, false}}, "intent://#Intent;name=OpenURI;a=B.false;end");
    row("integer", {}, {{a, 2}}, "intent://#Intent;name=OpenURI;a=d.2;end");
    row("fraction", {}, {{a, 0.1}}, "intent://#Intent;name=OpenURI;a=d.0.1;end");
    row("six digits are kept", {}, {{a, 123456}}, "intent://#Intent;name=OpenURI;a=d.123456;end");
    row("seven are rounded", {}, {{a, 1234567}}, "intent://#Intent;name=OpenURI;a=d.1.23457e+06;end");
    row("string", {}, {{a, "file:///tmp/a.txt"}}, "intent://#Intent;name=OpenURI;a=S.file:///tmp/a.txt;end");
    row("empty string", {}, {{a, QString()}}, "intent://#Intent;name=OpenURI;a=S.;end");
    row("params in the order of their keys", {}, {{b, 1}, {a, 2}}, "intent://#Intent;name=OpenURI;a=d.2;b=d.1;end");
    row("hint", {{"h", true}}, {}, "intent://?h=B.true#Intent;name=OpenURI;end");
    row("hints in the order of their keys", {{b, 1}, {a, QString()}}, {},
        "intent://?a=S.&b=d.1#Intent;name=OpenURI;end");
    row("large and small numbers", {}, {{a, 1e21}, {b, -1.5e-7}},
        "intent://#Intent;name=OpenURI;a=d.1e+21;b=d.-1.5e-07;end");
    row("keys as they are", {}, {{"c;d=e", true}, {QString(), 1}},
        "intent://#Intent;name=OpenURI;=d.1;c;d=e=B.true;end");
    row("all together", {{"h", true}, {"i", 1}}, {{"count", 2}, {"uri", "file:///tmp/a.txt"}},
        "intent://?h=B.true&i=d.1#Intent;name=OpenURI;count=d.2;uri=S.file:///tmp/a.txt;end");
}

void TestIntentUri::intentsAreWritten()
{
    QFETCH(QJsonObject, hints);
    QFETCH(QJsonObject, params);
    QFETCH(QString, uri);

    const QUrl written = IntentUri::toUri("OpenURI", hints, params);
    QCOMPARE(written.toString(), uri);
    QCOMPARE(written.hasQuery(), !hints.isEmpty());
    QVERIFY(written.isValid());
}

void TestIntentUri::namesAreWrittenUnchanged()
{
    const QUrl uri = IntentUri::toUri("a;b=c", {}, {});
    QCOMPARE(uri.toString(), QString("intent://#Intent;name=a;b=c;end"));
    QCOMPARE(uri.scheme(), QString("intent"));
    QCOMPARE(uri.fragment(), QString("Intent;name=a;b=c;end"));
}

void TestIntentUri::onlyTheFirstProblemIsLogged_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<QJsonObject>("hints");
    QTest::addColumn<QJsonObject>("params");
    QTest::addColumn<QStringList>("warnings");

    const QString a = "a";
    const QString b = "b";
    const QString text = "x;y";
    const QString semicolons = "Cannot encode strings with semicolons";
    const QString containers = "Intent URI conversion does not support arrays or maps";
    QTest::newRow("name before all") << QString() << QJsonObject{{a, text}} << QJsonObject{{a, text}} << QStringList();
    QTest::newRow("hints before params") << "X" << QJsonObject{{a, QJsonArray()}} << QJsonObject{{a, text}}
                                         << QStringList{containers};
    QTest::newRow("hints in order") << "X" << QJsonObject{{a, text}, {b, QJsonArray()}} << QJsonObject()
                                    << QStringList{semicolons};
    QTest::newRow("params in order") << "X" << QJsonObject() << QJsonObject{{b, text}, {a, QJsonObject()}}
                                     << QStringList{containers};
    QTest::newRow("null in silence") << "X" << QJsonObject{{a, QJsonValue()}, {b, text}} << QJsonObject{{a, text}}
                                     << QStringList();
}

void TestIntentUri::onlyTheFirstProblemIsLogged()
{
    QFETCH(QString, name);
    QFETCH(QJsonObject, hints);
    QFETCH(QJsonObject, params);
    QFETCH(QStringList, warnings);

    MessageLog log;
    QVERIFY(IntentUri::toUri(name, hints, params).isEmpty());
    QCOMPARE(log.takeWarnings(), warnings);
}

void TestIntentUri::unwritableIntentsGiveAnEmptyUri_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<QJsonValue>("value");
    QTest::addColumn<QString>("warning");

    const QString semicolons = "Cannot encode strings with semicolons";
    const QString containers = "Intent URI conversion does not support arrays or maps";
    QTest::newRow("no name") << QString() << QJsonValue(1) << QString();
    QTest::newRow("semicolon") << "X" << QJsonValue("a;b") << semicolons;
    QTest::newRow("array") << "X" << QJsonValue(QJsonArray{1}) << containers;
    QTest::newRow("object") << "X" << QJsonValue(QJsonObject()) << containers;
    QTest::newRow("null") << "X" << QJsonValue() << QString();
}

void TestIntentUri::unwritableIntentsGiveAnEmptyUri()
{
    QFETCH(QString, name);
    QFETCH(QJsonValue, value);
    QFETCH(QString, warning);

    const QJsonObject object{{"a", value}};
    const QStringList warnings = warning.isEmpty() ? QStringList() : QStringList(warning);
    MessageLog log;
    QCOMPARE(IntentUri::toUri(name, {}, object), QUrl());
    QCOMPARE(log.takeWarnings(), warnings);
    QCOMPARE(IntentUri::toUri(name, object, {}), QUrl());
    QCOMPARE(log.takeWarnings(), warnings);
}

void TestIntentUri::intentsAreRead_data()
{
    QTest::addColumn<QString>("uri");
    QTest::addColumn<QString>("name");
    QTest::addColumn<QJsonObject>("hints");
    QTest::addColumn<QJsonObject>("params");

    const QString a = "a";
    const auto param = [a](const char *tag, const char *text, const QJsonValue &value) {
        QTest::newRow(tag) << QString("intent://#Intent;name=X;a=%1;end").arg(QString::fromUtf8(text)) << "X"
                           << QJsonObject() << QJsonObject{{a, value}};
    };
    param("integer", "i.42", 42);
    param("negative integer", "i.-42", -42);
    param("integer that is none", "i.4x", 0);
    param("integer without digits", "i.", 0);
    param("integer with a fraction", "i.4.5", 0);
    param("integer of 33 bits", "i.4294967296", 0);
    param("decimal integer", "i.010", 10);
    param("hexadecimal integer", "i.0x10", 0);
    param("number with an exponent", "d.-1e3", -1000);
    param("number with a comma", "d.1,5", 0);
    param("number without digits", "d.", 0);
    param("number", "d.2.5", 2.5);
    param("number that is none", "d.x", 0);
    param("true", "B.true", true);
    param("false", "B.false", false);
    param("any other boolean", "B.TRUE", false);
    param("no boolean", "B.", false);
    param("string", "S.x y", "x y");
    param("empty string", "S.", QString());
    param("string with '='", "S.b=c", "b=c");

    const auto row = [](const char *tag, const char *uri, const char *name, const QJsonObject &hints,
                        const QJsonObject &params) {
        QTest::newRow(tag) << QString::fromUtf8(uri) << QString::fromUtf8(name) << hints << params;
    };
    row("no params", "intent://#Intent;name=X;end", "X", {}, {});
    row("empty name", "intent://#Intent;name=;end", "", {}, {});
    row("head and tail in one", "intent://#Intent;name=end", "end", {}, {});
    row("end within the last part", "intent://#Intent;name=X;a=S.bend", "X", {}, {{a, "bend"}});
    row("parts after the end", "intent://#Intent;name=X;a=d.1;end;a=d.2;nonsense;end", "X", {}, {{a, 1}});
    row("later param wins", "intent://#Intent;name=X;a=d.1;a=d.2;end", "X", {}, {{a, 2}});
    row("later hint wins", "intent://?a=d.1&a=d.2#Intent;name=X;end", "X", {{a, 2}}, {});
    row("hints", "intent://?a=S.b%26c&d=B.true#Intent;name=X;end", "X", {{a, "b&c"}, {"d", true}}, {});
    row("without authority", "intent:#Intent;name=X;end", "X", {}, {});
    row("with an authority and a path", "intent://host/path?a=d.1#Intent;name=X;end", "X", {{a, 1}}, {});
    row("scheme in capitals", "INTENT://#Intent;name=X;end", "X", {}, {}); // QUrl converts the scheme to lower case
    row("empty name and a param", "intent://#Intent;name=;a=d.1;end", "", {}, {{a, 1}});
    row("another end within", "intent://#Intent;name=X;a=S.x;End=d.1;end", "X", {}, {{a, "x"}, {"End", 1}});
    row("param called end", "intent://#Intent;name=X;end=d.1;end", "X", {}, {{"end", 1}});
}

void TestIntentUri::intentsAreRead()
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

void TestIntentUri::invalidUrisGiveAnEmptyIntent_data()
{
    QTest::addColumn<QString>("uri");
    QTest::addColumn<QStringList>("warnings");

    const auto row = [](const char *tag, const char *uri, const QStringList &before, const char *last) {
        QTest::newRow(tag) << QString::fromUtf8(uri)
                           << before + QStringList{QString("%1 QUrl(\"%2\")").arg(last, QString::fromUtf8(uri))};
    };
    const QStringList value{"Intent URI with invalid value"};
    const QStringList type{"Unknown intent value type: 'x'"};
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
    row("type without a dot", "intent://#Intent;name=X;a=S;end", value, "Invalid intent URI:");
    row("type of two letters", "intent://#Intent;name=X;a=SS.b;end", value, "Invalid intent URI:");
    row("type in a capital", "intent://#Intent;name=X;a=D.1;end", {"Unknown intent value type: 'D'"},
        "Invalid intent URI:");
    row("type in a small letter", "intent://#Intent;name=X;a=s.b;end", {"Unknown intent value type: 's'"},
        "Invalid intent URI:");
    row("type beyond ASCII", "intent://#Intent;name=X;a=ž.1;end", {"Unknown intent value type: '\\u017e'"},
        "Invalid intent URI:");
    row("good ones before", "intent://?h=d.1#Intent;name=X;a=d.1;b=x.1;end", type, "Invalid intent URI:");
    row("bad ones after", "intent://#Intent;name=X;a;b=x.1;end", {}, "Invalid intent URI:");
    row("bad hint and param", "intent://?h=#Intent;name=X;a=x.1;end", value + type, "Invalid intent URI:");
    row("head before hints", "intent://?h=x.1#Intent;name=X", {}, "Not an intent URI:");
    row("head in part", "intent://#Intent;name;end", {}, "Not an intent URI:");
    QTest::newRow("invalid URL")
        << "intent://host:port#Intent;name=X;end"
        << QStringList{QString("Invalid intent URI \"%1\"")
                           .arg(QUrl("intent://host:port#Intent;name=X;end").errorString().replace('"', "\\\""))};
    QTest::newRow("empty URL") << QString() << QStringList{"Invalid intent URI \"\""};
}

void TestIntentUri::invalidUrisGiveAnEmptyIntent()
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
    const auto [name, hints, params] = IntentUri::fromUri(QUrl("intent://?h=x.1&i=&j=d.1#Intent;name=X;a=d.1;end"));
    QCOMPARE(name, QString("X"));
    QCOMPARE(hints, QJsonObject({{"h", {}}, {"i", {}}, {"j", 1}}));
    QCOMPARE(params, QJsonObject({{"a", 1}}));
    QCOMPARE(log.takeWarnings(), QStringList({"Unknown intent value type: 'x'", "Intent URI with invalid value"}));
}

void TestIntentUri::writtenUrisReadBackUnchanged_data()
{
    QTest::addColumn<QString>("text");

    QTest::newRow("words") << "two words";
    QTest::newRow("delimiters") << "a=b?c:d/e@f[g]&h+i";
    QTest::newRow("quotes") << R"("<'>{|}\^)";
    QTest::newRow("beyond Latin 1") << QString::fromUtf8("žluťoučký 🐎");
}

void TestIntentUri::writtenUrisReadBackUnchanged()
{
    QFETCH(QString, text);

    const QJsonObject object{{"text", text}, {"on", true}, {"n", -2.5}};
    const QUrl uri = IntentUri::toUri("Say", object, object);
    const auto [name, hints, params] = IntentUri::fromUri(QUrl(QString::fromUtf8(uri.toEncoded())));
    QCOMPARE(name, QString("Say"));
    QCOMPARE(params, object);
    QCOMPARE(hints, object);
}

void TestIntentUri::someCharactersAreReadEncoded_data()
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

void TestIntentUri::someCharactersAreReadEncoded()
{
    QFETCH(QString, text);
    QFETCH(QString, inHints);
    QFETCH(QString, inParams);

    const QString key = "text";
    const QUrl uri = IntentUri::toUri("Say", {{key, text}}, {{key, text}});
    const auto [name, hints, params] = IntentUri::fromUri(QUrl(QString::fromUtf8(uri.toEncoded())));
    QCOMPARE(name, QString("Say"));
    QCOMPARE(hints.value(key).toString(), inHints);
    QCOMPARE(params.value(key).toString(), inParams);
}

void TestIntentUri::invokerWritesTheSameUri()
{
    const QJsonObject hints{{"h", 1}};
    const QJsonObject params{{"p", "x"}};
    const QUrl uri = Corvane::IntentsInvoker::intentToUri("Say", hints, params);
    QCOMPARE(uri, IntentUri::toUri("Say", hints, params));
    QCOMPARE(uri.toString(), QString("intent://?h=d.1#Intent;name=Say;p=S.x;end"));
}

void TestIntentUri::thousandsOfParamsAreConverted()
{
    QJsonObject params;
    QString fragment = "Intent;name=X";
    for (int i = 20000; i-- > 0;) { // descending keys
        const QString key = QString("k%1").arg(i, 5, 10, QLatin1Char('0'));
        fragment += QString(";%1=i.%2").arg(key).arg(i);
        params.insert(key, i);
    }
    const auto [name, hints, read] = IntentUri::fromUri(QUrl("intent://#" + fragment + ";end"));
    QCOMPARE(read.size(), 20000);
    QVERIFY(read == params);
    QVERIFY(hints.isEmpty());
}

QTEST_GUILESS_MAIN(TestIntentUri)
#include "tst_intent_uri.moc"
