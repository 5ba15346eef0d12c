// SPDX-License-Identifier: BSD-3-Clause
#include <Core/intent_uri.h>
#include <Corvane/intent_uri.h>
#include <Corvane/intents_invoker.h>

#include <message_log.h>
#include <patience.h>

#include <QtCore/QJsonArray>
#include <QtCore/QMetaProperty>
#include <QtTest/QtTest>

#include <limits>

using Corvane::Error;
using Corvane::IntentsInvoker;
using Corvane::IntentUri;

class TestPublicIntentUri : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void intentsAreRead_data();
    void intentsAreRead();
    void namesTheProblem_data();
    void namesTheProblem();
    void fileHintsAreRemoved();
    void loggingReaderReturnsTheSame_data();
    void loggingReaderReturnsTheSame();
    void defaultIsAnEmptyUri();
    void checkAcceptsIntentsThatReadBack_data();
    void checkAcceptsIntentsThatReadBack();
    void checkNamesTheProblem_data();
    void checkNamesTheProblem();
    void isAGadget();
    void intentsArePrinted();
};

void TestPublicIntentUri::intentsAreRead_data()
{
    QTest::addColumn<QString>("uri");
    QTest::addColumn<QString>("name");
    QTest::addColumn<QJsonObject>("hints");
    QTest::addColumn<QJsonObject>("params");

    const QJsonObject none;
    QTest::newRow("name alone") << "intent://#Intent;name=X;end"
                                << "X" << none << none;
    QTest::newRow("hints and parameters")
        << "intent://?h=B.true&g=i.7#Intent;name=X;a=d.2.5;b=S.x y;end"
        << "X" << QJsonObject{{"h", true}, {"g", 7}} << QJsonObject{{"a", 2.5}, {"b", "x y"}};
    QTest::newRow("invalid hints") << "intent://?h=x.1&i=&j=d.1#Intent;name=X;end"
                                   << "X" << QJsonObject{{"h", {}}, {"i", {}}, {"j", 1}} << none;
    QTest::newRow("parameters named like file hints")
        << "intent://#Intent;name=X;readFiles=S.a;writeFiles=S.b;end"
        << "X" << none << QJsonObject{{"readFiles", "a"}, {"writeFiles", "b"}};
}

void TestPublicIntentUri::intentsAreRead()
{
    QFETCH(QString, uri);
    QFETCH(QString, name);
    QFETCH(QJsonObject, hints);
    QFETCH(QJsonObject, params);

    MessageLog log; // a warning would fail the test
    const IntentUri intent{QUrl(uri)};
    QCOMPARE(intent.error(), Error());
    QCOMPARE(intent.intentName(), name);
    QCOMPARE(intent.hints(), hints);
    QCOMPARE(intent.params(), params);
}

void TestPublicIntentUri::namesTheProblem_data()
{
    QTest::addColumn<QString>("uri");
    QTest::addColumn<QString>("problem");

    const auto param = [](const char *part) {
        QTest::newRow(part) << QString("intent://?h=d.1#Intent;name=X;a=d.1;%1;end").arg(part)
                            << QString(R"(The parameter "%1" does not have the form "KEY=TYPE.VALUE")").arg(part);
    };
    const QString form = R"(The fragment does not have the form "Intent;name=NAME;KEY=TYPE.VALUE;end")";
    QTest::newRow("no URI") << ""
                            << "The URI is empty";
    QTest::newRow("invalid URL") << "intent://host:port#Intent;name=X;end"
                                 << QUrl("intent://host:port#Intent;name=X;end").errorString();
    QTest::newRow("scheme") << "http://?h=d.1#Intent;name=X;end"
                            << R"(The scheme is not "intent")";
    QTest::newRow("no fragment") << "intent://?h=d.1" << form;
    QTest::newRow("head") << "intent://#intent;name=X;end" << form;
    QTest::newRow("tail") << "intent://#Intent;name=X;END" << form;
    QTest::newRow("no name") << "intent://?h=d.1#Intent;name=;a=d.1;end"
                             << "The intent name is empty";
    param("");
    param("=S.a");
    param("b");
    param("b=");
    param("b=S");
    param("b=x.1");
}

void TestPublicIntentUri::namesTheProblem()
{
    QFETCH(QString, uri);
    QFETCH(QString, problem);

    MessageLog log; // a warning would fail the test
    const IntentUri intent{QUrl(uri)};
    QCOMPARE(intent.error(), Error(Error::InvalidArgs, problem));
    QCOMPARE(intent.intentName(), QString());
    QCOMPARE(intent.hints(), QJsonObject());
    QCOMPARE(intent.params(), QJsonObject());
}

void TestPublicIntentUri::fileHintsAreRemoved()
{
    const QUrl uri("intent://?h=d.1&readFiles=S.a&readfiles=S.c&writeFiles=S.b#Intent;name=X;end");
    const QJsonObject safe{{"h", 1}, {"readfiles", "c"}};
    QCOMPARE(IntentUri(uri).hints(), safe);
    QCOMPARE(IntentUri(uri, IntentUri::RemoveFileHints).hints(), safe);
    QCOMPARE(IntentUri(uri, IntentUri::KeepFileHints).hints(),
             QJsonObject({{"h", 1}, {"readFiles", "a"}, {"readfiles", "c"}, {"writeFiles", "b"}}));
    const QUrl escaped("intent://?read%46iles=S.a&write%46iles=S.b#Intent;name=X;end");
    QCOMPARE(IntentUri(escaped).hints(), QJsonObject());
}

void TestPublicIntentUri::loggingReaderReturnsTheSame_data()
{
    QTest::addColumn<QString>("uri");

    for (const char *uri :
         {"intent://?readFiles=S.a&h=x.1#Intent;name=X;a=S.bend", "intent:#Intent;name=X;a=i.0x10;end",
          "INTENT://host/path?a=d.1&a=d.2#Intent;name=X;a=d.1;a=d.2;end;b", "http://a",
          "intent://#Intent;name=X;a=d.nan;b=d.inf;end", "intent://#Intent;name=end"})
        QTest::newRow(uri) << uri;
}

/// The reader in Core, which logs warnings, returns the same intent.
void TestPublicIntentUri::loggingReaderReturnsTheSame()
{
    QFETCH(QString, uri);

    MessageLog log;
    const auto [name, hints, params] = Core::IntentUri::fromUri(QUrl(uri));
    const int warnings = log.takeWarnings().size();
    const IntentUri intent(QUrl(uri), IntentUri::KeepFileHints);
    QCOMPARE(intent.intentName(), name);
    QCOMPARE(intent.hints(), hints);
    QCOMPARE(intent.params().keys(), params.keys());
    QVERIFY(!intent.error() || warnings > 0);
}

void TestPublicIntentUri::defaultIsAnEmptyUri()
{
    QCOMPARE(IntentUri().error(), Error(Error::InvalidArgs, "The URI is empty"));
}

void TestPublicIntentUri::checkAcceptsIntentsThatReadBack_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<QJsonObject>("hints");
    QTest::addColumn<QJsonObject>("params");

    const QJsonObject none;
    const QJsonObject values{{"on", true}, {"off", false}, {"n", -2.5}, {"text", "x y"}, {"", ""}};
    QJsonObject params = values;
    params.remove("");
    params.insert("end", "");
    QTest::newRow("name alone") << "X" << none << none;
    QTest::newRow("all types") << "X" << values << params;
    QTest::newRow("file hints") << "X" << QJsonObject{{"readFiles", "file"}} << QJsonObject{{"file", "/tmp/a"}};
    QTest::newRow("delimiters") << "a=b&c" << QJsonObject{{"a:b?c", "=&+/#"}} << QJsonObject{{"a&b", "=&+/?"}};
    QTest::newRow("beyond ASCII") << "ž" << QJsonObject{{"ž", "🐎"}} << QJsonObject{{"ž", "🐎"}};
}

void TestPublicIntentUri::checkAcceptsIntentsThatReadBack()
{
    QFETCH(QString, name);
    QFETCH(QJsonObject, hints);
    QFETCH(QJsonObject, params);

    QCOMPARE(IntentUri::check(name, hints, params), Error());
    const QUrl uri = IntentsInvoker::intentToUri(name, hints, params);
    const IntentUri intent(QUrl(QString(uri.toEncoded())), IntentUri::KeepFileHints);
    QCOMPARE(intent.error(), Error());
    QCOMPARE(intent.intentName(), name);
    QCOMPARE(intent.hints(), hints);
    QCOMPARE(intent.params(), params);
}

void TestPublicIntentUri::checkNamesTheProblem_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<QJsonObject>("hints");
    QTest::addColumn<QJsonObject>("params");
    QTest::addColumn<QString>("problem");

    const QJsonObject none;
    const auto hint = [&none](const char *tag, const char *key, const QJsonValue &value, const char *problem) {
        QTest::addRow("hint, %s", tag) << "X" << QJsonObject{{key, value}, {"~", 1}} << none << problem;
    };
    const auto param = [&none](const char *tag, const char *key, const QJsonValue &value, const char *problem) {
        QTest::addRow("parameter, %s", tag) << "X" << none << QJsonObject{{key, value}, {"~", 1}} << problem;
    };
    QTest::newRow("no name") << "" << QJsonObject{{"a", {}}} << none << "The intent name is empty";
    QTest::newRow("semicolon in the name")
        << "X;a=d.1" << none << none << "The intent name does not read back unchanged";
    QTest::newRow("unreadable part in the name")
        << "X;a" << none << none
        << R"(The intent cannot be read back: The parameter "a" does not have the form "KEY=TYPE.VALUE")";
    hint("null", "a", {}, R"(The hint "a" is null)");
    hint("array", "a", QJsonArray{1}, R"(The hint "a" is an array or an object)");
    hint("object", "a", QJsonObject(), R"(The hint "a" is an array or an object)");
    hint("semicolon", "%2", "x;y", R"(The hint "%2" contains a semicolon)");
    hint("long number", "a", 1234567, R"(The hint "a" does not read back unchanged)");
    hint("percent sign", "a", "100%", R"(The hint "a" does not read back unchanged)");
    param("null", "a", {}, R"(The parameter "a" is null)");
    param("array", "a", QJsonArray{1}, R"(The parameter "a" is an array or an object)");
    param("object", "a", QJsonObject(), R"(The parameter "a" is an array or an object)");
    param("semicolon", "a", "x;y", R"(The parameter "a" contains a semicolon)");
    param("long number", "a", 1234567, R"(The parameter "a" does not read back unchanged)");
    param("no number", "a", std::numeric_limits<double>::quiet_NaN(),
          R"(The parameter "a" does not read back unchanged)");
    param("number sign", "a", "x#y", R"(The parameter "a" does not read back unchanged)");
    param("line break", "a", "x\ny", R"(The parameter "a" does not read back unchanged)");
    param("key with an equals sign", "a=b", 1,
          R"(The intent cannot be read back: The parameter "a=b=d.1" does not have the form "KEY=TYPE.VALUE")");
    param("key with an equals sign and a value", "a=S.b", 1, R"(The parameter "a=S.b" does not read back unchanged)");
    param("key with a parameter", "a=d.1;b", 1, R"(The parameter "a=d.1;b" does not read back unchanged)");
    param("empty key", "", 1,
          R"(The intent cannot be read back: The parameter "=d.1" does not have the form "KEY=TYPE.VALUE")");
    QTest::newRow("hints before parameters")
        << "X" << QJsonObject{{"a", {}}} << QJsonObject{{"b", {}}} << R"(The hint "a" is null)";
}

void TestPublicIntentUri::checkNamesTheProblem()
{
    QFETCH(QString, name);
    QFETCH(QJsonObject, hints);
    QFETCH(QJsonObject, params);
    QFETCH(QString, problem);

    MessageLog log; // a warning would fail the test
    QCOMPARE(IntentUri::check(name, hints, params), Error(Error::InvalidArgs, problem));
}

void TestPublicIntentUri::isAGadget()
{
    const QVariant value = QVariant::fromValue(IntentUri(QUrl("intent://?h=d.1#Intent;name=X;a=d.2;end")));
    const QMetaObject *const meta = QMetaType::metaObjectForType(value.userType());
    QVERIFY(meta);
    const auto read = [meta, &value](const char *name) {
        return meta->property(meta->indexOfProperty(name)).readOnGadget(value.constData());
    };
    QCOMPARE(read("intentName"), QVariant("X"));
    QCOMPARE(read("hints").toJsonObject(), QJsonObject({{"h", 1}}));
    QCOMPARE(read("params").toJsonObject(), QJsonObject({{"a", 2}}));
    QCOMPARE(read("error").value<Error>(), Error());
}

void TestPublicIntentUri::intentsArePrinted()
{
    QString text;
    QDebug(&text) << IntentUri(QUrl("intent://?h=d.1#Intent;name=X;a=d.2;end")) << IntentUri()
                  << IntentUri::KeepFileHints;
    QCOMPARE(text,
             R"(Corvane::IntentUri("X", QJsonObject({"h":1}), QJsonObject({"a":2})) )"
             R"(Corvane::IntentUri(Corvane::Error(InvalidArgs, "The URI is empty")) )"
             R"(Corvane::IntentUri::KeepFileHints )");
}

QTEST_GUILESS_MAIN(TestPublicIntentUri)
#include "tst_public_intent_uri.moc"
