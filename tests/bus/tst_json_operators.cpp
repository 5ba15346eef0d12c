// SPDX-License-Identifier: BSD-3-Clause
// The operators between JSON and QDBusArgument, called directly.
#include "json_rows.h"

#include <DBus/types.h>

#include <json.h>
#include <message_log.h>
#include <patience.h>
#include <received.h>
#include <service_peer.h>

#include <QtDBus/QDBusConnection>
#include <QtDBus/QDBusMessage>
#include <QtDBus/QDBusMetaType>
#include <QtTest/QtTest>

#include <optional>
#ifdef __SANITIZE_ADDRESS__
#include <sanitizer/lsan_interface.h>
#endif

namespace {

const QString Interface = QStringLiteral("com.example.Operators");
const QString ValueWriter = QStringLiteral("QDBusArgument& operator<<(QDBusArgument&, const QJsonValue&)");
const QString ArrayWriter = QStringLiteral("QDBusArgument& operator<<(QDBusArgument&, const QJsonArray&)");
const QString ValueReader = QStringLiteral("const QDBusArgument& operator>>(const QDBusArgument&, QJsonValue&)");

QVariant variantOf(const QJsonValue &value)
{
    if (value.isArray())
        return QVariant::fromValue(value.toArray());
    return value.isObject() ? QVariant::fromValue(value.toObject()) : QVariant::fromValue(value);
}

} // namespace

class TestJsonOperators : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void initTestCase();
    void init();
    void cleanup();

    void signaturesOfEmptyValues();
    void writesIntoAFreshArgument_data();
    void writesIntoAFreshArgument();
    void valuesThatDBusCannotRepresentWriteNothing_data();
    void valuesThatDBusCannotRepresentWriteNothing();
    void nullIsAnEmptyVariant();
    void writesSeveralValues();
    void writesIntoAStructure_data();
    void writesIntoAStructure();
    void writesIntoAnArrayOfObjects();
    void writesIntoAMapOfObjects();
    void writesIntoAnArrayOfArrays();
    void warningsNameTheOperator_data();
    void warningsNameTheOperator();
    void valuesOverTheNestingLimitAreOmitted();
    void writesAVariant_data();
    void writesAVariant();
    void variantOfAJsonValueIsNotSent();
    void readersKeepExistingMembers();
    void registeredReadersRead();
    void readableValuesReplaceTheOldValue_data();
    void readableValuesReplaceTheOldValue();

private:
    QString sent(const QVariantList &arguments);

    ServicePeer peer;
    std::optional<MessageLog> log;
};

void TestJsonOperators::initTestCase()
{
    Corvane::registerRecordTypes();
    peer.watchSignals(Interface);
}

void TestJsonOperators::init()
{
    log.emplace();
}

/// Checks that the connection is still open and delivers the next message.
void TestJsonOperators::cleanup()
{
    QCOMPARE(sent({true}), QString("(b) (true,)"));
    log.reset();
}

/// Sends a signal with the arguments, and returns its text at the peer; empty if it was not sent.
QString TestJsonOperators::sent(const QVariantList &arguments)
{
    QDBusMessage signal = QDBusMessage::createSignal("/", Interface, "Sent");
    signal.setArguments(arguments);
    const bool isSent = QDBusConnection::sessionBus().send(signal);
    if (!peer.roundTrip())
        return "no connection";
    const QString text = peer.takeSignals().join(';').remove("Sent ");
    return isSent == text.isEmpty() ? QString("send() returned %1, but: %2").arg(isSent).arg(text) : text;
}

void TestJsonOperators::signaturesOfEmptyValues()
{
    QCOMPARE(QByteArray(QDBusMetaType::typeToSignature(QMetaType::QJsonObject)), QByteArray("a{sv}"));
    QCOMPARE(QByteArray(QDBusMetaType::typeToSignature(QMetaType::QJsonArray)), QByteArray("av"));
    // A QJsonValue can have any signature. Qt needs one signature per type; "av" is a placeholder.
    QCOMPARE(QByteArray(QDBusMetaType::typeToSignature(QMetaType::QJsonValue)), QByteArray("av"));
}

void TestJsonOperators::writesIntoAFreshArgument_data()
{
    addJsonRows();
}

void TestJsonOperators::writesIntoAFreshArgument()
{
    QFETCH(QByteArray, json);
    QFETCH(QString, signature);
    QFETCH(QString, arrives);
    QFETCH(QStringList, warnings);

    const QJsonValue value = fromJson(json);
    QVector<QDBusArgument> arguments(2);
    QCOMPARE(&(arguments[0] << value), &arguments[0]);
    QCOMPARE(log->takeWarnings(), warnings);
    if (value.isArray())
        QCOMPARE(&(arguments[1] << value.toArray()), &arguments[1]);
    else if (value.isObject())
        QCOMPARE(&(arguments[1] << value.toObject()), &arguments[1]);
    else
        arguments.removeLast();
    QCOMPARE(log->takeWarnings(), arguments.size() == 2 ? warnings : QStringList());

    for (const QDBusArgument &argument : qAsConst(arguments)) {
        const QVariant variant = QVariant::fromValue(argument);
        QCOMPARE(argument.currentSignature(), signature);
        QCOMPARE(sent({variant}), QString("(%1) (%2,)").arg(signature, arrives));
        QCOMPARE(sent({QVariantMap{{"k", variant}}}), QString("(a{sv}) ({'k': <%1>},)").arg(arrives));
        QCOMPARE(sent({QVariant(QVariantList{variant, 7})}), QString("(av) ([<%1>, <7>],)").arg(arrives));
        QCOMPARE(sent({QVariant::fromValue(QDBusVariant(variant))}), QString("(v) (<%1>,)").arg(arrives));
    }
}

void TestJsonOperators::valuesThatDBusCannotRepresentWriteNothing_data()
{
    QTest::addColumn<QJsonValue>("value");
    QTest::addColumn<QString>("warning");
    QTest::addColumn<QString>("function");

    QTest::newRow("undefined") << QJsonValue(QJsonValue::Undefined) << UnknownType << ValueWriter;
    QTest::newRow("nulls") << fromJson("[null, null]") << UnknownType << ArrayWriter;
    QTest::newRow("arrays") << fromJson("[[1], [2]]") << ArrayOfArrays << ArrayWriter;
}

void TestJsonOperators::valuesThatDBusCannotRepresentWriteNothing()
{
    QFETCH(QJsonValue, value);
    QFETCH(QString, warning);
    QFETCH(QString, function);

    QDBusArgument argument;
    argument << value;
    QCOMPARE(argument.currentSignature(), QString());
    QCOMPARE(log->takeWarnings(), QStringList(warning));
    QCOMPARE(log->lastFunction(), function);

    argument << value.toArray() << true; // the following values are written
    QCOMPARE(argument.currentSignature(), QString(value.isArray() ? "b" : "avb"));
    QCOMPARE(log->takeWarnings(), value.isArray() ? QStringList(warning) : QStringList());
}

void TestJsonOperators::nullIsAnEmptyVariant()
{
    QDBusArgument argument;
    QCOMPARE(&(argument << QJsonValue()), &argument);
    QCOMPARE(log->takeWarnings(), QStringList("QDBusMarshaller: cannot add a null QDBusVariant"));
}

void TestJsonOperators::writesSeveralValues()
{
    QDBusArgument argument;
    argument << fromJson(R"({"a": 1})") << fromJson("[1]").toArray() << fromJson(R"({"b": []})").toObject()
             << fromJson("true");
    QCOMPARE(argument.currentSignature(), QString("a{sv}ada{sv}b"));
}

void TestJsonOperators::writesIntoAStructure_data()
{
    addJsonRows();
}

void TestJsonOperators::writesIntoAStructure()
{
    QFETCH(QByteArray, json);
    QFETCH(QString, signature);
    QFETCH(QString, arrives);
    QFETCH(QStringList, warnings);

    const QJsonValue value = fromJson(json);
    QDBusArgument argument;
    argument.beginStructure();
    QCOMPARE(&(argument << value), &argument);
    argument.beginStructure();
    if (value.isArray())
        argument << value.toArray();
    else if (value.isObject())
        argument << value.toObject();
    else
        argument << value;
    argument.endStructure();
    argument << QString("z");
    argument.endStructure();
    QCOMPARE(log->takeWarnings(), warnings + warnings);
    QCOMPARE(argument.currentSignature(), QString("(%1(%1)s)").arg(signature));
    QCOMPARE(sent({QVariant::fromValue(argument)}), QString("((%1(%1)s)) ((%2, (%2,), 'z'),)").arg(signature, arrives));
}

void TestJsonOperators::writesIntoAnArrayOfObjects()
{
    QDBusArgument argument;
    argument.beginArray(QMetaType::QJsonObject);
    argument << fromJson(R"({"a": [1]})").toObject() << fromJson(R"({"b": {}})") << QJsonObject();
    argument.endArray();
    QCOMPARE(argument.currentSignature(), QString("aa{sv}"));
    QCOMPARE(sent({QVariant::fromValue(argument)}), QString("(aa{sv}) ([{'a': <[1.0]>}, {'b': <@a{sv} {}>}, {}],)"));
}

void TestJsonOperators::writesIntoAMapOfObjects()
{
    QDBusArgument argument;
    argument.beginMap(QMetaType::QString, QMetaType::QVariantMap);
    argument.beginMapEntry();
    argument << QString("k") << fromJson(R"({"a": ["x"]})").toObject();
    argument.endMapEntry();
    argument.endMap();
    QCOMPARE(argument.currentSignature(), QString("a{sa{sv}}"));
    QCOMPARE(sent({QVariant::fromValue(argument)}), QString("(a{sa{sv}}) ({'k': {'a': <['x']>}},)"));
}

void TestJsonOperators::writesIntoAnArrayOfArrays()
{
    QDBusArgument argument;
    argument.beginArray(qMetaTypeId<QList<double>>());
    argument << fromJson("[1, 2]").toArray() << fromJson("[3]").toArray();
    argument.endArray();
    QCOMPARE(argument.currentSignature(), QString("aad"));
    QCOMPARE(sent({QVariant::fromValue(argument)}), QString("(aad) ([[1.0, 2.0], [3.0]],)"));
}

void TestJsonOperators::warningsNameTheOperator_data()
{
    QTest::addColumn<QByteArray>("json");
    QTest::addColumn<QString>("function");

    QTest::newRow("null in an object") << QByteArray(R"({"a": null})") << ValueWriter;
    QTest::newRow("null in a mixed array") << QByteArray(R"([1, null, "x"])") << ValueWriter;
    QTest::newRow("null in an array of objects") << QByteArray(R"([{"a": null}])") << ValueWriter;
    QTest::newRow("array of nulls") << QByteArray(R"({"a": [null]})") << ArrayWriter;
    QTest::newRow("array of arrays") << QByteArray(R"({"a": [[1]]})") << ArrayWriter;
}

void TestJsonOperators::warningsNameTheOperator()
{
    QFETCH(QByteArray, json);
    QFETCH(QString, function);

    QDBusArgument argument;
    argument << fromJson(json);
    QCOMPARE(log->takeWarnings().size(), 1);
    QCOMPARE(log->lastFunction(), function);
}

/// libdbus aborts the process at 256 levels.
void TestJsonOperators::valuesOverTheNestingLimitAreOmitted()
{
    const QString tooDeep = "A message cannot nest more than 63 containers";
    QJsonObject object{{"a", 1}};
    QJsonArray array{"x", 1};
    for (int i = 1; i < 300; ++i) {
        object = {{"a", object}};
        array = {"x", array};
    }
    QDBusArgument argument;
    argument << object;
    QCOMPARE(log->takeWarnings(), QStringList(tooDeep));
    QCOMPARE(log->lastFunction(), ValueWriter);
    QCOMPARE(argument.currentSignature(), QString("a{sv}"));

    argument = {};
    argument << QJsonObject{{"k", array}, {"z", 1}};
    QCOMPARE(log->takeWarnings(), QStringList(tooDeep));
    QString left("[<'x'>]");
    for (int i = 1; i < 30; ++i) // two levels each, beside the three of the object
        left = QString("[<'x'>, <%1>]").arg(left);
    QCOMPARE(sent({QVariant::fromValue(argument)}), QString("(a{sv}) ({'k': <%1>, 'z': <1.0>},)").arg(left));
}

void TestJsonOperators::writesAVariant_data()
{
    QTest::addColumn<QByteArray>("json");
    QTest::addColumn<QString>("arrives");
    QTest::addColumn<QStringList>("warnings");

    const auto row = [](const char *json, const char *arrives, const QStringList &warnings = {}) {
        QTest::newRow(json) << QByteArray(json) << QString::fromUtf8(arrives) << warnings;
    };
    row("{}", "@a{sv} {}");
    row(R"({"a": [1, 2], "b": {"c": ["x"]}})", "{'a': <[1.0, 2.0]>, 'b': <{'c': <['x']>}>}");
    // As a variant, each array has the signature av, because Qt determines the signature from an empty array.
    row("[]", "@av []");
    row("[true, false]", "[<true>, <false>]");
    row("[1, 2]", "[<1.0>, <2.0>]");
    row(R"(["x"])", "[<'x'>]");
    row(R"([{"a": [1]}, {}])", "[<{'a': <[1.0]>}>, <@a{sv} {}>]");
    row(R"([1, "x", [2], {"a": [3]}])", "[<1.0>, <'x'>, <[<2.0>]>, <{'a': <[<3.0>]>}>]");
    row("[[1], [2]]", "@av []", {ArrayOfArrays});
    row("[null]", "@av []", {UnknownType});
    row(R"({"a": null})", "@a{sv} {}", {UnknownType});
}

void TestJsonOperators::writesAVariant()
{
    QFETCH(QByteArray, json);
    QFETCH(QString, arrives);
    QFETCH(QStringList, warnings);

    const QVariant variant = variantOf(fromJson(json));
    const QString signature = QString::fromLatin1(QDBusMetaType::typeToSignature(variant.userType()));
    QCOMPARE(sent({variant}), QString("(%1) (%2,)").arg(signature, arrives));
    QCOMPARE(log->takeWarnings(), warnings);
    QCOMPARE(sent({QVariantMap{{"k", variant}}}), QString("(a{sv}) ({'k': <%1>},)").arg(arrives));
    QCOMPARE(log->takeWarnings(), warnings);
    QCOMPARE(sent({QVariant(QVariantList{variant, 7})}), QString("(av) ([<%1>, <7>],)").arg(arrives));
    QCOMPARE(log->takeWarnings(), warnings);
    QCOMPARE(sent({QVariant::fromValue(QDBusVariant(variant))}), QString("(v) (<%1>,)").arg(arrives));
    QCOMPARE(log->takeWarnings(), warnings);
}

void TestJsonOperators::variantOfAJsonValueIsNotSent()
{
#ifdef __SANITIZE_ADDRESS__
    const __lsan::ScopedDisabler disabler; // Qt leaks the containers around a variant that it does not marshal
#endif
    for (const char *json : {"null", "true", "1", "\"x\"", "[1]", "[]", "{\"a\": 1}"}) {
        const QVariant value = QVariant::fromValue(fromJson(json));
        for (const QVariant &argument : {value, QVariant(QVariantMap{{"k", value}}), QVariant(QVariantList{1, value}),
                                         QVariant::fromValue(QDBusVariant(value))})
            QCOMPARE(sent({argument, true}), QString());
    }
    const QStringList warnings = log->takeWarnings();
    for (const QString &warning : warnings)
        QVERIFY2(warning == "QDBusMarshaller: cannot add a null QDBusVariant"
                     || warning.startsWith("QDBusConnection: error: could not send signal"),
                 qPrintable(warning));
}

void TestJsonOperators::readersKeepExistingMembers()
{
    QJsonObject object{{"a", 1}, {"k", "old"}};
    const auto members = received(peer, "({'k': <'new'>, 'b': <2>},)").value<QDBusArgument>();
    QCOMPARE(&(members >> object), &members);
    QCOMPARE(toJson(object), QString(R"({"a":1,"b":2,"k":"new"})"));

    QJsonObject large;
    for (int i = 0; i < 100; ++i)
        large.insert(QString("m%1").arg(i, 3), i);
    received(peer, "({'z': <1>, 'm 50': <'new'>, 'a': <2>},)").value<QDBusArgument>() >> large;
    QCOMPARE(large.size(), 102);
    QCOMPARE(toJson(large.value("m 50")), QString(R"("new")"));
    QCOMPARE(toJson(large.value("m 51")), QString("51"));
    QCOMPARE(toJson(large.value("a")), QString("2"));

    QJsonArray array{"x"};
    const auto elements = received(peer, "([1, 2],)").value<QDBusArgument>();
    QCOMPARE(&(elements >> array), &elements);
    QCOMPARE(toJson(array), QString(R"(["x",1,2])"));
}

void TestJsonOperators::registeredReadersRead()
{
    QJsonArray array;
    QVERIFY(
        QDBusMetaType::demarshall(received(peer, "([1, 2],)").value<QDBusArgument>(), QMetaType::QJsonArray, &array));
    QCOMPARE(toJson(array), QString("[1,2]"));
    QJsonObject object;
    QVERIFY(QDBusMetaType::demarshall(received(peer, "({'a': <1>},)").value<QDBusArgument>(), QMetaType::QJsonObject,
                                      &object));
    QCOMPARE(toJson(object), QString(R"({"a":1})"));
    QJsonValue value;
    QVERIFY(QDBusMetaType::demarshall(received(peer, "([2],)").value<QDBusArgument>(), QMetaType::QJsonValue, &value));
    QCOMPARE(toJson(value), QString("[2]"));
}

void TestJsonOperators::readableValuesReplaceTheOldValue_data()
{
    QTest::addColumn<QString>("body");
    QTest::addColumn<QString>("result"); // the value after reading into "old"
    QTest::addColumn<QString>("unsupported");

    const auto row = [](const char *body, const char *result, const char *unsupported = "") {
        QTest::newRow(body) << QString::fromUtf8(body) << QString::fromUtf8(result) << QString::fromUtf8(unsupported);
    };
    row("[1, 2]", "[1,2]");
    row("{'a': <1>}", R"({"a":1})");
    row("<[<1>, <'x'>]>", R"([1,"x"])");
    row("(1, 2)", R"("old")", "(ii)");
    row("<(1, 2)>", R"("old")", "(ii)");
    row("<<(1, 's')>>", R"("old")", "(is)");
    row("{'a': <(1, 2)>}", R"({"a":null})", "(ii)");
    row("[<(1, 2)>]", "[null]", "(ii)");
    row("<7>", "7");
    row("<<byte 0x07>>", "7");
}

void TestJsonOperators::readableValuesReplaceTheOldValue()
{
    QFETCH(QString, body);
    QFETCH(QString, result);
    QFETCH(QString, unsupported);

    const auto argument = received(peer, QString("((%1,),)").arg(body)).value<QDBusArgument>();
    argument.beginStructure();
    QJsonValue value = "old";
    QCOMPARE(&(argument >> value), &argument);
    argument.endStructure();
    QCOMPARE(toJson(value), result);
    if (unsupported.isEmpty())
        return;
    QCOMPARE(log->takeWarnings(), QStringList(QString("Unsupported type:  \"%1\"").arg(unsupported)));
    QCOMPARE(log->lastFunction(), ValueReader);
}

QTEST_GUILESS_MAIN(TestJsonOperators)
#include "tst_json_operators.moc"
