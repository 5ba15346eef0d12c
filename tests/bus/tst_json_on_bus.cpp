// SPDX-License-Identifier: BSD-3-Clause
#include "json_rows.h"

#include <Corvane/intents_invoker.h>
#include <Corvane/runtime_dispatcher.h>

#include <json.h>
#include <message_log.h>
#include <patience.h>
#include <replies.h>
#include <service_peer.h>

#include <QtCore/QJsonArray>
#include <QtTest/QtTest>

#include <cmath>
#include <optional>

using namespace Corvane;

class TestJsonOnBus : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void initTestCase();
    void init();
    void cleanup();
    void paramsAreWritten_data();
    void paramsAreWritten();
    void repliesAreWritten_data();
    void repliesAreWritten();
    void hintsAreWritten_data();
    void hintsAreWritten();
    void paramsAreRead_data();
    void paramsAreRead();
    void repliesAreReadLikeParams_data();
    void repliesAreReadLikeParams();
    void numbersOutsideTheRangeOfJsonAreRead();
    void manyUnsortedMembersAreRead();
    void laterValueOfARepeatedKeyIsRead();
    void valuesReadAsNullAreOmittedFromTheReply();

private:
    static void addOmittedRows();
    static QString payloadText(const QString &arrives);

    ServicePeer peer;
    QJsonObject handled; ///< the params that the handler of "Take" received
    std::optional<MessageLog> log;
};

void TestJsonOnBus::initTestCase()
{
    auto *dispatcher = RuntimeDispatcher::instance();
    dispatcher->registerIntent("Take", [this](const QJsonObject &params, const auto &reply) {
        handled = params;
        reply({});
    });
    dispatcher->registerIntent("Echo", [](const QJsonObject &params, const auto &reply) { reply(params); });
    QVERIFY(!dispatcher->startService());
}

void TestJsonOnBus::init()
{
    log.emplace();
}

void TestJsonOnBus::cleanup()
{
    peer.takeCalls();
    log.reset();
}

/// Adds values that are omitted completely.
void TestJsonOnBus::addOmittedRows()
{
    QTest::newRow("null") << QByteArray("null") << ""
                          << "" << QStringList(UnknownType);
    QTest::newRow("nulls") << QByteArray("[null, null]") << ""
                           << "" << QStringList(UnknownType);
    QTest::newRow("arrays") << QByteArray("[[1], [2]]") << ""
                            << "" << QStringList(ArrayOfArrays);
}

/// Returns the text of a payload with the value as its member "k".
QString TestJsonOnBus::payloadText(const QString &arrives)
{
    return arrives.isEmpty() ? "{'z': <1.0>}" : QString("{'k': <%1>, 'z': <1.0>}").arg(arrives);
}

void TestJsonOnBus::paramsAreWritten_data()
{
    addJsonRows();
    addOmittedRows();
    QTest::newRow("arrays in an array of objects") << QByteArray(R"([{"b": [1, 2]}, {"c": [[1]]}, {}])") << "aa{sv}"
                                                   << "[{'b': <[1.0, 2.0]>}, {}, {}]" << QStringList(ArrayOfArrays);
}

void TestJsonOnBus::paramsAreWritten()
{
    QFETCH(QByteArray, json);
    QFETCH(QString, arrives);
    QFETCH(QStringList, warnings);

    const QJsonObject payload{{"k", fromJson(json)}, {"z", 1}};
    IntentsInvoker invoker;
    Replies replies(invoker);
    invoker.invoke("X", {}, payload);
    QTRY_COMPARE(peer.calls(),
                 QStringList(QString("InvokeIntent (sa{sv}a{sv}) ('X', @a{sv} {}, %1)").arg(payloadText(arrives))));
    QTRY_COMPARE(replies.all, QStringList("{} 0 "));
    QCOMPARE(log->takeWarnings(), warnings);
}

void TestJsonOnBus::repliesAreWritten_data()
{
    paramsAreWritten_data();
}

void TestJsonOnBus::repliesAreWritten()
{
    QFETCH(QByteArray, json);
    QFETCH(QString, arrives);
    QFETCH(QStringList, warnings);

    const QJsonObject payload{{"k", fromJson(json)}, {"z", 1}};
    RuntimeDispatcher::instance()->registerIntent(
        "Give", [&payload](const QJsonObject &, const auto &reply) { reply(payload); });
    QCOMPARE(peer.call("HandleIntent", "('Give', @a{sv} {})").text,
             QString("(a{sv}a{sv}) (%1, {'readFiles': <@as []>, 'writeFiles': <@as []>})").arg(payloadText(arrives)));
    QCOMPARE(log->takeWarnings(), warnings);
}

void TestJsonOnBus::hintsAreWritten_data()
{
    addJsonRows();
    addOmittedRows();
    QTest::newRow("arrays in an array of objects")
        << QByteArray(R"([{"b": [1, 2]}, {"c": [[1]]}, {}])") << "aa{sv}"
        << "[{'b': <[<1.0>, <2.0>]>}, {'c': <[<[<1.0>]>]>}, {}]" << QStringList();
}

void TestJsonOnBus::hintsAreWritten()
{
    QFETCH(QByteArray, json);
    QFETCH(QString, arrives);
    QFETCH(QStringList, warnings);

    const QJsonObject payload{{"k", fromJson(json)}, {"z", 1}};
    IntentsInvoker invoker;
    Replies replies(invoker);
    invoker.invoke("X", payload, {});
    QTRY_COMPARE(peer.calls(),
                 QStringList(QString("InvokeIntent (sa{sv}a{sv}) ('X', %1, @a{sv} {})").arg(payloadText(arrives))));
    QTRY_COMPARE(replies.all, QStringList("{} 0 "));
    QCOMPARE(log->takeWarnings(), warnings);
}

void TestJsonOnBus::paramsAreRead_data()
{
    QTest::addColumn<QString>("body");
    QTest::addColumn<QString>("json");
    QTest::addColumn<QStringList>("warnings");

    const auto row = [](const char *body, const char *json, const QStringList &warnings = {}) {
        QTest::newRow(body) << QString::fromUtf8(body) << QString::fromUtf8(json) << warnings;
    };
    const auto unsupported = [](const char *signature) { return QString("Unsupported type:  \"%1\"").arg(signature); };
    row("@a{sv} {}", "{}");
    row("{'a': <true>, 'b': <false>}", R"({"a":true,"b":false})");
    row("{'y': <byte 0x07>, 'n': <int16 -7>, 'q': <uint16 65535>}", R"({"n":-7,"q":65535,"y":7})");
    row("{'i': <-7>, 'u': <uint32 4294967295>, 'd': <2.5>}", R"({"d":2.5,"i":-7,"u":4294967295})");
    row("{'x': <int64 -7>, 't': <uint64 7>}", R"({"t":7,"x":-7})");
    row("{'s': <'žluťoučký 🐎'>}", R"({"s":"žluťoučký 🐎"})");
    row("{'o': <objectpath '/a'>, 'g': <signature 's'>, 'z': <1>}", R"({"g":null,"o":null,"z":1})");
    row("{'ay': <b'text'>}", R"({"ay":"text"})");
    row("{'as': <['x', 'y']>, 'ab': <[true]>, 'ad': <[1.5]>, 'ai': <[1, 2]>}",
        R"({"ab":[true],"ad":[1.5],"ai":[1,2],"as":["x","y"]})");
    row("{'an': <[int16 1, 2]>, 'aq': <[uint16 1]>, 'ax': <[int64 1]>}", R"({"an":[1,2],"aq":[1],"ax":[1]})");
    row("{'av': <[<1>, <'x'>, <[<2>]>]>, 'empty': <@av []>, 'ao': <[objectpath '/a']>}",
        R"({"ao":[null],"av":[1,"x",[2]],"empty":[]})");
    row("{'aas': <[['x'], ['y', 'z']]>, 'aaai': <[[[1], [2]]]>}", R"({"aaai":[[[1],[2]]],"aas":[["x"],["y","z"]]})");
    row("{'o': <{'a': <{'b': <1>}>}>}", R"({"o":{"a":{"b":1}}})");
    row("{'as': <{'a': 'x'}>, 'ai': <{'a': 1, 'b': 2}>}", R"({"ai":{"a":1,"b":2},"as":{"a":"x"}})");
    row("{'aas': <[{'a': <1>}, {}]>}", R"({"aas":[{"a":1},{}]})");
    row("{'v': <<1>>, 'vv': <<<'x'>>>, 'w': <<{'a': <<1>>}>>}", R"({"v":1,"vv":"x","w":{"a":1}})");

    // Structures cannot be read. The values around them are read.
    row("{'a': <(1, 2)>, 'b': <1>}", R"({"a":null,"b":1})", {unsupported("(ii)")});
    row("{'a': <[(1, 2), (3, 4)]>, 'b': <1>}", R"({"a":[],"b":1})", {unsupported("(ii)")});
    row("{'a': <@a(ii) []>, 'b': <1>}", R"({"a":[],"b":1})");
    row("{'a': <[[(1, 2)], [(3, 4)]]>, 'b': <1>}", R"({"a":[[],[]],"b":1})",
        {unsupported("(ii)"), unsupported("(ii)")});
    row("{'a': <[<(1, 2)>, <3>]>, 'b': <1>}", R"({"a":[null,3],"b":1})", {unsupported("(ii)")});
    row("{'a': <{'x': (1, 's')}>, 'b': <1>}", R"({"a":{"x":null},"b":1})", {unsupported("(is)")});
    row("{'a': <{1: 's'}>, 'b': <1>}", R"({"a":{"":1},"b":1})");
}

void TestJsonOnBus::paramsAreRead()
{
    QFETCH(QString, body);
    QFETCH(QString, json);
    QFETCH(QStringList, warnings);

    QCOMPARE(peer.call("HandleIntent", QString("('Take', %1)").arg(body)).text,
             QString("(a{sv}a{sv}) (@a{sv} {}, {'readFiles': <@as []>, 'writeFiles': <@as []>})"));
    QCOMPARE(toJson(handled), json);
    QCOMPARE(log->takeWarnings(), warnings);
}

void TestJsonOnBus::repliesAreReadLikeParams_data()
{
    paramsAreRead_data();
}

void TestJsonOnBus::repliesAreReadLikeParams()
{
    QFETCH(QString, body);
    QFETCH(QString, json);
    QFETCH(QStringList, warnings);

    peer.answer(QString("(%1,)").arg(body));
    IntentsInvoker invoker;
    Replies replies(invoker);
    invoker.invoke("X", {}, {});
    QTRY_COMPARE(replies.all, QStringList(json + " 0 "));
    QCOMPARE(log->takeWarnings(), warnings);
    peer.answer("(@a{sv} {},)");
}

void TestJsonOnBus::numbersOutsideTheRangeOfJsonAreRead()
{
    peer.call("HandleIntent",
              "('Take', {'nan': <nan>, 'inf': <inf>, 'minf': <-inf>, 'big': <uint64 18446744073709551615>})");
    QVERIFY(handled.value("nan").isNull());
    QVERIFY(handled.value("inf").isNull());
    QVERIFY(handled.value("minf").isNull());
    QCOMPARE(handled.value("big").toDouble(), std::pow(2., 64.));
}

void TestJsonOnBus::manyUnsortedMembersAreRead()
{
    constexpr int count = 100000;
    QStringList members;
    for (int i = 0; i < count; ++i) {
        const int scattered = int(qint64(i) * 7919 % count);
        members << QString("'%1': <%1>").arg(scattered);
    }
    peer.call("HandleIntent", QString("('Take', {%1})").arg(members.join(',')));
    QCOMPARE(handled.size(), count);
    for (const int i : {0, 1, count / 2, count - 1})
        QCOMPARE(handled.value(QString::number(i)).toInt(-1), i);
}

void TestJsonOnBus::laterValueOfARepeatedKeyIsRead()
{
    peer.call("HandleIntent", "('Take', {'b': <1>, 'a': <2>, 'b': <3>})");
    QCOMPARE(toJson(handled), QString(R"({"a":2,"b":3})"));
}

void TestJsonOnBus::valuesReadAsNullAreOmittedFromTheReply()
{
    const QString body = "('Echo', {'s': <(1, 2)>, 'o': <objectpath '/a'>, 'a': <[(1, 2)]>, 'i': <1>})";
    QCOMPARE(peer.call("HandleIntent", body).text,
             QString("(a{sv}a{sv}) ({'a': <@av []>, 'i': <1.0>}, {'readFiles': <@as []>, 'writeFiles': <@as []>})"));
    QCOMPARE(log->takeWarnings(),
             QStringList({"Unsupported type:  \"(ii)\"", "Unsupported type:  \"(ii)\"", UnknownType, UnknownType}));
}

QTEST_GUILESS_MAIN(TestJsonOnBus)
#include "tst_json_on_bus.moc"
