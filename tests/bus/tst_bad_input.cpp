// SPDX-License-Identifier: BSD-3-Clause
// Invalid values, and values that D-Bus or JSON cannot represent. After each value, the next call works.
#include <Corvane/intents_invoker.h>
#include <Corvane/runtime_dispatcher.h>

#include <json.h>
#include <message_log.h>
#include <patience.h>
#include <replies.h>
#include <run_until.h>
#include <service_peer.h>

#include <QtCore/QJsonArray>
#include <QtTest/QtTest>

#include <limits>
#include <optional>

using namespace Corvane;

namespace {

const QString HandleIntent = QStringLiteral("HandleIntent");
const QString NoFiles = QStringLiteral("{'readFiles': <@as []>, 'writeFiles': <@as []>}");
const QString Unknown = QStringLiteral("Unknown JSON value type");
const QString OfArrays = QStringLiteral("JSON array of arrays are not supported");
const QString HasNul = QStringLiteral("A message cannot hold a text with U+0000");

enum Place : int { Params, Hints, Result };

/// A D-Bus type with a value, and the JSON that the library reads from it.
struct BusType
{
    const char *signature;
    const char *value;
    const char *json;
    const char *arrayJson; ///< The JSON of an array that contains the value.
    const char *keyJson; ///< The JSON of a dictionary from the value to 's'.
};

// Descriptors, object paths and signatures are read as null. A key that is not a text is read in place of the value.
constexpr BusType BusTypes[] = {
    {"y", "byte 0x41", "65", R"("A")", R"({"":65})"},
    {"b", "true", "true", "[true]", R"({"":true})"},
    {"n", "int16 -32768", "-32768", "[-32768]", R"({"":-32768})"},
    {"q", "uint16 65535", "65535", "[65535]", R"({"":65535})"},
    {"i", "-2147483648", "-2147483648", "[-2147483648]", R"({"":-2147483648})"},
    {"u", "uint32 4294967295", "4294967295", "[4294967295]", R"({"":4294967295})"},
    {"x", "int64 -9007199254740992", "-9007199254740992", "[-9007199254740992]", R"({"":-9007199254740992})"},
    {"t", "uint64 9007199254740992", "9007199254740992", "[9007199254740992]", R"({"":9007199254740992})"},
    {"d", "2.5", "2.5", "[2.5]", R"({"":2.5})"},
    {"s", "'x'", R"("x")", R"(["x"])", R"({"x":"s"})"},
    {"o", "objectpath '/a'", "null", "[null]", R"({"/a":"s"})"},
    {"g", "signature 'as'", "null", "[null]", R"({"as":"s"})"},
    {"h", "handle 0", "null", "[null]", R"({"":null})"},
};

QString unsupported(const QString &signature)
{
    return QString("Unsupported type:  \"%1\"").arg(signature);
}

} // namespace

class TestBadInput : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void initTestCase();
    void init();
    void cleanup();

    void valuesThatDBusCannotRepresentAreOmitted_data();
    void valuesThatDBusCannotRepresentAreOmitted();
    void paramsOfEveryTypeAreRead_data();
    void paramsOfEveryTypeAreRead();
    void repliesOfEveryTypeAreRead_data();
    void repliesOfEveryTypeAreRead();
    void argumentsOfAnotherTypeAreRefused_data();
    void argumentsOfAnotherTypeAreRefused();
    void repliesOfAnotherTypeAreErrors_data();
    void repliesOfAnotherTypeAreErrors();

private:
    ServicePeer::Reply take(const QString &params, int files = 0);
    QString give(Place place, const QJsonObject &object);

    ServicePeer peer;
    QJsonObject handled; ///< The params that the handler of "Take" received.
    QJsonObject given; ///< The reply of the handler of "Give".
    std::optional<MessageLog> log;
};

void TestBadInput::initTestCase()
{
    auto *dispatcher = RuntimeDispatcher::instance();
    dispatcher->registerIntent("Take", [this](const QJsonObject &params, const auto &reply) {
        handled = params;
        reply({});
    });
    dispatcher->registerIntent("Give", [this](const QJsonObject &, const auto &reply) { reply(given); });
    QVERIFY(!dispatcher->startService());
}

void TestBadInput::init()
{
    log.emplace();
}

void TestBadInput::cleanup()
{
    log.reset();
    peer.answer("({'next': <true>},)");
    IntentsInvoker invoker; // the connection still works
    Replies replies(invoker);
    invoker.invoke("Next", {}, {});
    QVERIFY(runUntil([&replies] { return !replies.all.isEmpty(); }));
    QCOMPARE(replies.all, QStringList(R"({"next":true} 0 )"));
    take("{'next': <true>}");
    QCOMPARE(toJson(handled), QString(R"({"next":true})"));
    peer.takeCalls();
}

ServicePeer::Reply TestBadInput::take(const QString &params, int files)
{
    QJsonArray names;
    for (int i = 0; i < files; ++i)
        names.append("/dev/null");
    return peer.call(HandleIntent, QString("('Take', %1)").arg(params), {{"files", names}});
}

/// Returns the text of the received object, or the error.
QString TestBadInput::give(Place place, const QJsonObject &object)
{
    if (place == Result) {
        given = object;
        QString text = peer.call(HandleIntent, "('Give', @a{sv} {})").text;
        text.replace(QString("org.freedesktop.DBus.Error.Failed (s) ('%1',)").arg(HasNul), HasNul);
        return text.remove("(a{sv}a{sv}) (").remove(QString(", %1)").arg(NoFiles));
    }
    IntentsInvoker invoker;
    Replies replies(invoker);
    invoker.invoke("X", place == Hints ? object : QJsonObject(), place == Params ? object : QJsonObject());
    if (!runUntil([&replies] { return !replies.all.isEmpty(); }) || !peer.roundTrip())
        return "nothing";
    if (!replies.all.first().endsWith(" 0 "))
        return replies.all.join(';').remove("{} 1 ");
    const QString call = "InvokeIntent (sa{sv}a{sv}) ('X', ";
    const QString none = "@a{sv} {}";
    QString text = peer.takeCalls().join(';').remove(call);
    text.chop(1);
    return place == Hints ? text.chopped(none.size() + 2) : text.mid(none.size() + 2);
}

void TestBadInput::valuesThatDBusCannotRepresentAreOmitted_data()
{
    QTest::addColumn<int>("place");
    QTest::addColumn<QJsonObject>("object");
    QTest::addColumn<QString>("arrives");
    QTest::addColumn<QStringList>("warnings");

    const auto addRow = [](Place place, const char *tag, const QJsonObject &object, const QString &arrives,
                           const QStringList &warnings) {
        const char *const names[] = {"params", "hints", "result"};
        QTest::addRow("%s: %s", names[place], tag) << int(place) << object << arrives << warnings;
    };
    const auto rowFor = [addRow](std::initializer_list<Place> places, const char *json, const char *arrives,
                                 const QStringList &warnings) {
        for (const Place place : places)
            addRow(place, json, fromJson(json).toObject(), QString::fromUtf8(arrives), warnings);
    };
    const auto row = [rowFor](const char *json, const char *arrives, const QStringList &warnings = {}) {
        rowFor({Params, Hints, Result}, json, arrives, warnings);
    };
    const auto refused = [addRow](const char *json) {
        for (const Place place : {Params, Hints, Result})
            addRow(place, json, fromJson(json).toObject(), HasNul,
                   place == Result ? QStringList(QString("Failed to reply to an intent: \"%1\"").arg(HasNul))
                                   : QStringList());
    };
    // In hints, arrays within an array of objects are mixed arrays, which may contain arrays.
    const auto rows = [rowFor](const char *json, const char *inParams, const QStringList &warnings, const char *inHints,
                               const QStringList &hintWarnings) {
        rowFor({Params, Result}, json, inParams, warnings);
        rowFor({Hints}, json, inHints, hintWarnings);
    };

    // null
    row(R"({"k": null, "z": 1})", "{'z': <1.0>}", {Unknown});
    row(R"({"": null})", "@a{sv} {}", {Unknown});
    row(R"({"o": {"o": {"k": null}}})", "{'o': <{'o': <@a{sv} {}>}>}", {Unknown});
    row(R"({"a": [null]})", "@a{sv} {}", {Unknown});
    row(R"({"a": [true, null]})", "{'a': <[<true>]>}", {Unknown});
    row(R"({"a": ["", null, ""]})", "{'a': <[<''>, <''>]>}", {Unknown});
    row(R"({"a": [{}, null]})", "{'a': <[<@a{sv} {}>]>}", {Unknown});
    row(R"({"a": [[], null]})", "{'a': <[<@av []>]>}", {Unknown});
    row(R"({"a": [{"k": null}]})", "{'a': <[@a{sv} {}]>}", {Unknown});
    row(R"({"a": [{"k": null}, {"k": null}]})", "{'a': <[@a{sv} {}, {}]>}", {Unknown, Unknown});
    row(R"({"a": [1, {"k": null}]})", "{'a': <[<1.0>, <@a{sv} {}>]>}", {Unknown});
    row(R"({"a": [1, [null]]})", "{'a': <[<1.0>, <@av []>]>}", {Unknown});
    row(R"({"a": [1, [[null, null]]]})", "{'a': <[<1.0>, <[<@av []>]>]>}", {Unknown, Unknown});
    row(R"({"a": null, "b": null, "c": null})", "@a{sv} {}", {Unknown, Unknown, Unknown});

    // an array of nulls
    row(R"({"o": {"k": [null]}})", "{'o': <@a{sv} {}>}", {Unknown});
    row(R"({"o": {"k": [null, null]}, "z": 1})", "{'o': <@a{sv} {}>, 'z': <1.0>}", {Unknown});
    rows(R"({"a": [{"k": [null]}]})", "{'a': <[@a{sv} {}]>}", {Unknown}, "{'a': <[{'k': <@av []>}]>}", {Unknown});
    row(R"({"a": [1, {"k": [null]}]})", "{'a': <[<1.0>, <{'k': <@av []>}>]>}", {Unknown});
    row(R"({"a": [null, [null]]})", "{'a': <[<@av []>]>}", {Unknown, Unknown});

    // an array of arrays
    row(R"({"a": [[]]})", "@a{sv} {}", {OfArrays});
    row(R"({"a": [[], []], "z": 1})", "{'z': <1.0>}", {OfArrays});
    row(R"({"a": [[null]]})", "@a{sv} {}", {OfArrays});
    row(R"({"a": [[[1]]]})", "@a{sv} {}", {OfArrays});
    row(R"({"a": [[{"k": 1}]]})", "@a{sv} {}", {OfArrays});
    row(R"({"o": {"k": [[1]], "z": 1}})", "{'o': <{'z': <1.0>}>}", {OfArrays});
    row(R"({"a": [1, [[1]]]})", "{'a': <[<1.0>, <[<[<1.0>]>]>]>}");
    row(R"({"a": [1, [[]]]})", "{'a': <[<1.0>, <[<@av []>]>]>}");
    row(R"({"a": [1, {"k": [[1]]}]})", "{'a': <[<1.0>, <{'k': <[<[<1.0>]>]>}>]>}");
    row(R"({"a": [1, [[[1]]]]})", "{'a': <[<1.0>, <[<[<[<1.0>]>]>]>]>}");
    rows(R"({"a": [{"k": [[1]]}]})", "{'a': <[@a{sv} {}]>}", {OfArrays}, "{'a': <[{'k': <[<[<1.0>]>]>}]>}", {});
    rows(R"({"a": [{"k": [[null]]}]})", "{'a': <[@a{sv} {}]>}", {OfArrays}, "{'a': <[{'k': <[<@av []>]>}]>}",
         {Unknown});
    rows(R"({"a": [{"k": [[]]}, {"z": 1}]})", "{'a': <[@a{sv} {}, {'z': <1.0>}]>}", {OfArrays},
         "{'a': <[{'k': <[<@av []>]>}, {'z': <1.0>}]>}", {});

    // U+0000
    refused(R"({"k": "\u0000"})");
    refused(R"({"k": "a\u0000"})");
    refused(R"({"\u0000": 1})");
    refused(R"({"o": {"k": "\u0000"}})");
    refused(R"({"o": {"\u0000": {}}})");
    refused(R"({"a": ["x", "\u0000"]})");
    refused(R"({"a": [1, "\u0000"]})");
    refused(R"({"a": [1, ["\u0000"]]})");
    refused(R"({"a": [{"k": "\u0000"}]})");
    refused(R"({"a": [{"\u0000": []}]})");
    refused(R"({"a": [1, {"k": "\u0000"}]})");
    refused(R"({"a": [1, {"\u0000": 1}]})");

    // texts that are not valid Unicode
    row(R"({"k": "\ud800"})", "{'k': <'?'>}");
    row(R"({"k": "a\udc00b"})", "{'k': <'a?b'>}");
    row(R"({"k": "\udc00\ud800"})", "{'k': <'?\?'>}");
    row(R"({"\ud800": 1})", "{'?': <1.0>}");
    row(R"({"a": ["\ud800", "x"]})", "{'a': <['?', 'x']>}");
    row(R"({"a": [1, "\ud800"]})", "{'a': <[<1.0>, <'?'>]>}");
    row(R"({"k": "\ud83d\udc0e"})", "{'k': <'🐎'>}");

    // numbers at the limits of their types
    row(R"({"k": 1.7976931348623157e308})", "{'k': <1.7976931348623157e+308>}");
    row(R"({"k": 5e-324})", "{'k': <4.9406564584124654e-324>}");
    row(R"({"k": 18446744073709551615})", "{'k': <1.8446744073709552e+19>}");
    const auto number = [addRow](const char *tag, double value, const char *arrives) {
        for (const Place place : {Params, Hints, Result})
            addRow(place, tag, {{"k", value}}, QString::fromLatin1(arrives), {});
    };
    number("NaN", std::numeric_limits<double>::quiet_NaN(), "{'k': <nan>}");
    number("infinity", std::numeric_limits<double>::infinity(), "{'k': <inf>}");
    number("minus infinity", -std::numeric_limits<double>::infinity(), "{'k': <-inf>}");
}

void TestBadInput::valuesThatDBusCannotRepresentAreOmitted()
{
    QFETCH(int, place);
    QFETCH(QJsonObject, object);
    QFETCH(QString, arrives);
    QFETCH(QStringList, warnings);

    QCOMPARE(give(Place(place), object), arrives);
    QCOMPARE(log->takeWarnings(), warnings);
}

void TestBadInput::paramsOfEveryTypeAreRead_data()
{
    QTest::addColumn<QString>("value");
    QTest::addColumn<QString>("json");
    QTest::addColumn<QStringList>("warnings");

    const auto row = [](const QString &value, const QString &json, const QStringList &warnings = {}) {
        QTest::newRow(qUtf8Printable(value)) << value << json << warnings;
    };
    for (const BusType &type : BusTypes) {
        const auto text = [&type](const char *pattern) { return QString::fromLatin1(pattern).arg(type.value); };
        const auto signature = [&type](const char *pattern) {
            return QString::fromLatin1(pattern).arg(type.signature);
        };
        const QString json = QString::fromLatin1(type.json);
        const QString arrayJson = QString::fromLatin1(type.arrayJson);
        row(text("%1"), json);
        row(text("<%1>"), json);
        row(text("[%1]"), arrayJson);
        row(signature("@a%1 []"), arrayJson.startsWith('[') ? "[]" : "null");
        row(text("[[%1]]"), '[' + arrayJson + ']');
        row(text("[<%1>]"), '[' + json + ']');
        row(text("{'k': %1}"), QString("{\"k\":%1}").arg(json));
        row(text("{'k': [%1]}"), QString("{\"k\":%1}").arg(arrayJson));
        row(text("{%1: 's'}"), QString::fromLatin1(type.keyJson));
        row(text("(%1,)"), "null", {unsupported(signature("(%1)"))});
        row(text("[(%1, 1)]"), "[]", {unsupported(signature("(%1i)"))});
        row(text("{'k': (%1,)}"), "{\"k\":null}", {unsupported(signature("(%1)"))});
    }

    // containers of these types
    row("<(1, <2>)>", "null", {unsupported("(iv)")});
    row("((1, 2), ['x'])", "null", {unsupported("((ii)as)")});
    row("[<(1,)>, <2>, <(3,)>]", "[null,2,null]", {unsupported("(i)"), unsupported("(i)")});
    row("[[[(1, 2)]], [[(3, 4)]]]", "[[[]],[[]]]", {unsupported("(ii)"), unsupported("(ii)")});
    row("{'a': [(1, 2)], 'b': []}", R"({"a":[],"b":[]})", {unsupported("(ii)")});
    row("[{'k': (1, 2)}, {'k': (3, 4)}]", R"([{"k":null},{"k":null}])", {unsupported("(ii)"), unsupported("(ii)")});
    row("[{1: 2}, {3: 4}]", R"([{"":1},{"":3}])");
    row("{1: {2: 3}}", R"({"":1})");
    row("{'a': {'b': {'c': 1}}}", R"({"a":{"b":{"c":1}}})");
    row("{'a': <<<<1>>>>}", R"({"a":1})");
    row("[[b'x'], [b'y', b'z']]", R"([["x"],["y","z"]])");
    row("[byte 0x41, 0x00, 0x42]", R"("A")"); // Qt converts the bytes as a C string
    row("[byte 0xff]", "\"\uFFFD\"");
    row("handle 7", "null"); // the message has no such descriptor
    row("[handle 0, 0, 5, 0]", "[null,null,null,null]");
    row("-0.0", "0");
    row("nan", "null");
    row("[inf, -inf]", "[null,null]");
    row("uint64 18446744073709551615", "18446744073709552000");
    row("int64 -9223372036854775808", "-9223372036854776000");
}

void TestBadInput::paramsOfEveryTypeAreRead()
{
    QFETCH(QString, value);
    QFETCH(QString, json);
    QFETCH(QStringList, warnings);

    QCOMPARE(take(QString("{'v': <%1>, 'z': <true>}").arg(value), value.contains("handle")).text,
             QString("(a{sv}a{sv}) (@a{sv} {}, %1)").arg(NoFiles));
    QCOMPARE(toJson(handled), QString("{\"v\":%1,\"z\":true}").arg(json));
    QCOMPARE(log->takeWarnings(), warnings);
}

void TestBadInput::repliesOfEveryTypeAreRead_data()
{
    paramsOfEveryTypeAreRead_data();
}

void TestBadInput::repliesOfEveryTypeAreRead()
{
    QFETCH(QString, value);
    QFETCH(QString, json);
    QFETCH(QStringList, warnings);

    peer.answer(QString("({'v': <%1>, 'z': <true>},)").arg(value));
    IntentsInvoker invoker;
    Replies replies(invoker);
    invoker.invoke("X", {}, {});
    QVERIFY(runUntil([&replies] { return !replies.all.isEmpty(); }));
    QCOMPARE(replies.all, QStringList(QString("{\"v\":%1,\"z\":true} 0 ").arg(json)));
    QCOMPARE(log->takeWarnings(), warnings);
}

void TestBadInput::argumentsOfAnotherTypeAreRefused_data()
{
    QTest::addColumn<QString>("body");
    QTest::addColumn<QString>("signature");

    const auto row = [](const QString &body, const QString &signature) {
        QTest::newRow(qUtf8Printable(body)) << body << signature;
    };
    for (const BusType &type : BusTypes) {
        const QLatin1String value(type.value);
        const QLatin1String signature(type.signature);
        row(QString("('Take', %1)").arg(value), QString("s%1").arg(signature));
        row(QString("('Take', {'k': %1})").arg(value), QString("sa{s%1}").arg(signature));
        if (signature != "s")
            row(QString("(%1, @a{sv} {})").arg(value), QString("%1a{sv}").arg(signature));
    }
    row("()", QString());
    row("(@a{sv} {},)", "a{sv}");
    row("(@a{sv} {}, 'Take')", "a{sv}s");
    row("(('Take', @a{sv} {}),)", "(sa{sv})");
    row("('Take', <@a{sv} {}>)", "sv");
    row("('Take', [@a{sv} {}])", "saa{sv}");
    row("('Take', @a{sv} {}, @a{sv} {})", "sa{sv}a{sv}");
    row("('Take', {objectpath '/a': <1>})", "sa{ov}");
    row("(<'Take'>, @a{sv} {})", "va{sv}");
    row("(['Take'], @a{sv} {})", "asa{sv}");
}

void TestBadInput::argumentsOfAnotherTypeAreRefused()
{
    QFETCH(QString, body);
    QFETCH(QString, signature);

    handled = {};
    const QJsonArray files = body.contains("handle") ? QJsonArray{"/dev/null"} : QJsonArray();
    const QString text = peer.call(HandleIntent, body, {{"files", files}}).text;
    const QString path = '/' + QString(CORVANE_SERVICE_ROOT).replace('.', '/');
    QCOMPARE(text,
             QString("org.freedesktop.DBus.Error.UnknownMethod (s) (\"No such method 'HandleIntent' in interface "
                     "'" CORVANE_SERVICE_ROOT
                     ".IntentHandler1' at object path '%1/IntentHandler1' (signature '%2')\",)")
                 .arg(path, signature));
    QCOMPARE(handled, QJsonObject());
}

void TestBadInput::repliesOfAnotherTypeAreErrors_data()
{
    QTest::addColumn<QString>("body");
    QTest::addColumn<QString>("signature");

    const auto row = [](const QString &body, const QString &signature) {
        QTest::newRow(qUtf8Printable(body)) << body << signature;
    };
    for (const BusType &type : BusTypes) {
        const QLatin1String value(type.value);
        const QLatin1String signature(type.signature);
        row(QString("(%1,)").arg(value), signature);
        row(QString("([%1], @a{sv} {})").arg(value), QString("a%1a{sv}").arg(signature));
        row(QString("({'k': %1},)").arg(value), QString("a{s%1}").arg(signature));
    }
    row("()", QString());
    row("(<@a{sv} {}>,)", "v");
    row("((@a{sv} {},),)", "(a{sv})");
    row("([@a{sv} {}],)", "aa{sv}");
    row("({1: <1>},)", "a{iv}");
    row("([(1, 2)],)", "a(ii)");
    row("(1, @a{sv} {})", "ia{sv}");
}

void TestBadInput::repliesOfAnotherTypeAreErrors()
{
    QFETCH(QString, body);
    QFETCH(QString, signature);

    peer.answer(body);
    IntentsInvoker invoker;
    Replies replies(invoker);
    invoker.invoke("X", {}, {});
    QTRY_COMPARE(
        replies.all,
        QStringList(QString("{} 1 Unexpected reply signature: got \"%1\", expected \"a{sv}\"").arg(signature)));
}

QTEST_GUILESS_MAIN(TestBadInput)
#include "tst_bad_input.moc"
