// SPDX-License-Identifier: BSD-3-Clause
// The received form of a schedule that was created from a map.
#include <Corvane/task.h>
#include <DBus/types.h>

#include <message_log.h>
#include <patience.h>
#include <service_peer.h>

#include <QtCore/QCborArray>
#include <QtCore/QCborMap>
#include <QtCore/QJsonArray>
#include <QtCore/QJsonObject>
#include <QtCore/QRect>
#include <QtCore/QUrl>
#include <QtDBus/QDBusArgument>
#include <QtDBus/QDBusConnection>
#include <QtDBus/QDBusMessage>
#include <QtDBus/QDBusMetaType>
#include <QtDBus/QDBusUnixFileDescriptor>
#include <QtDBus/QDBusVariant>
#include <QtTest/QtTest>

#include <optional>

using namespace Corvane;

namespace {

const QString UnknownType = QStringLiteral("Unknown JSON value type");
const QString ArrayOfArrays = QStringLiteral("JSON array of arrays are not supported");
const QString TooDeep = QStringLiteral("A message cannot nest more than 63 containers");
const QString ValueWriter = QStringLiteral("QDBusArgument& operator<<(QDBusArgument&, const QJsonValue&)");

} // namespace

/// Stores the received map.
class Receiver : public QObject
{
    Q_OBJECT
public:
    QVariantMap map;

public Q_SLOTS:
    void Take(const QVariantMap &received) { map = received; }
};

class TestScheduleOnBus : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void initTestCase();
    void init();
    void cleanup();

    void jsonIsSent_data();
    void jsonIsSent();
    void jsonOverTheLimitsIsRefused_data();
    void jsonOverTheLimitsIsRefused();
    void refusedScheduleCausesNoWarning();
    void structuresOverTheLimitsAreRefused_data();
    void structuresOverTheLimitsAreRefused();
    void valuesThatDBusCannotRepresentAreOmitted_data();
    void valuesThatDBusCannotRepresentAreOmitted();
    void receivedMapIsSentUnchanged_data();
    void receivedMapIsSentUnchanged();
    void receivedDescriptorsAreSent();
    void receivedMapOverTheLimitsIsRefused_data();
    void receivedMapOverTheLimitsIsRefused();
    void writtenArgumentsAreSent();
    void argumentsWithoutOneValueAreOmitted_data();
    void argumentsWithoutOneValueAreOmitted();

private:
    QString sent(const QVariantMap &schedule);
    QVariantMap received(const QString &map, int files = 0);

    ServicePeer peer;
    Receiver receiver;
    std::optional<MessageLog> log;
};

void TestScheduleOnBus::initTestCase()
{
    QVERIFY(QDBusConnection::sessionBus().registerObject("/receiver", &receiver, QDBusConnection::ExportAllSlots));
    qDBusRegisterMetaType<QList<QJsonArray>>();
}

void TestScheduleOnBus::init()
{
    log.emplace();
}

/// Checks that the next description arrives.
void TestScheduleOnBus::cleanup()
{
    QCOMPARE(sent({{"next", true}}), QString("{'next': <true>}"));
    log.reset();
}

/// Returns the received form of a schedule with this map, or the error of Task::start().
QString TestScheduleOnBus::sent(const QVariantMap &schedule)
{
    Task task("sync");
    task.withSchedule(schedule);
    std::optional<Error> outcome;
    task.start([&outcome](const Error &error) { outcome = error; });
    if (!QTest::qWaitFor([&outcome] { return outcome.has_value(); }, Patience) || !peer.roundTrip())
        return "no outcome";
    QString text = peer.takeCalls().filter("Start ").join(';');
    if (*outcome)
        return outcome->message() + text;
    text.remove("Start (sasa{sv}) ('.task_sync', @as [], {'Schedule': <");
    return text.chopped(3);
}

/// Sends the map to this process, and returns it as QtDBus reads it.
QVariantMap TestScheduleOnBus::received(const QString &map, int files)
{
    QJsonArray names;
    while (names.size() < files)
        names.append("/dev/null");
    peer.call("Take", QString("(%1,)").arg(map),
              {{"destination", QDBusConnection::sessionBus().baseService()},
               {"path", "/receiver"},
               {"interface", QJsonValue()},
               {"files", names}});
    return receiver.map;
}

void TestScheduleOnBus::jsonIsSent_data()
{
    QTest::addColumn<QVariant>("value");
    QTest::addColumn<QString>("arrives"); // the received form of {"x": value}
    QTest::addColumn<QStringList>("warnings");

    const auto row = [](const char *tag, const auto &value, const char *arrives, const QStringList &warnings = {}) {
        QTest::newRow(tag) << QVariant::fromValue(value) << QString::fromUtf8(arrives) << warnings;
    };
    const QString k = "k";
    const QJsonArray numbers{1, 2};
    const QJsonArray texts{"x"};
    const QJsonObject object{{k, numbers}, {"o", QJsonObject{{k, texts}}}};
    const QJsonValue null;

    row("object", object, "{'x': <{'k': <[1.0, 2.0]>, 'o': <{'k': <['x']>}>}>}");
    row("array of numbers", numbers, "{'x': <[1.0, 2.0]>}");
    row("array of texts", texts, "{'x': <['x']>}");
    row("array of truths", QJsonArray{true}, "{'x': <[true]>}");
    row("array of objects", QJsonArray{object}, "{'x': <[{'k': <[1.0, 2.0]>, 'o': <{'k': <['x']>}>}]>}");
    row("empty array", QJsonArray(), "{'x': <@av []>}");
    row("mixed array", QJsonArray{1, numbers}, "{'x': <[<1.0>, <[<1.0>, <2.0>]>]>}");
    row("number", QJsonValue(7), "{'x': <7.0>}");
    row("truth", QJsonValue(true), "{'x': <true>}");
    row("text", QJsonValue("x"), "{'x': <'x'>}");
    row("array as a value", QJsonValue(numbers), "{'x': <[1.0, 2.0]>}");
    row("object as a value", QJsonValue(object), "{'x': <{'k': <[1.0, 2.0]>, 'o': <{'k': <['x']>}>}>}");

    row("null", null, "@a{sv} {}", {UnknownType});
    row("undefined", QJsonValue(QJsonValue::Undefined), "@a{sv} {}", {UnknownType});
    row("array of nulls", QJsonArray{null}, "@a{sv} {}", {UnknownType});
    row("array of arrays", QJsonArray{numbers}, "@a{sv} {}", {ArrayOfArrays});
    row("object with a null", QJsonObject{{k, null}}, "{'x': <@a{sv} {}>}", {UnknownType});

    row("in a list", QVariantList{numbers, QJsonValue(7), object.value("o"), null, 1},
        "{'x': <[<[1.0, 2.0]>, <7.0>, <{'k': <['x']>}>, <1>]>}", {UnknownType});
    row("in a map", QVariantMap{{k, numbers}, {"n", null}}, "{'x': <{'k': <[1.0, 2.0]>}>}", {UnknownType});
    row("in a hash", QVariantHash{{k, QJsonValue(numbers)}}, "{'x': <{'k': <[1.0, 2.0]>}>}");
    row("in a list of maps", QList<QVariantMap>{{{k, numbers}}, {}}, "{'x': <[{'k': <[1.0, 2.0]>}, {}]>}");
    row("in a variant", QDBusVariant(QVariant(numbers)), "{'x': <<[1.0, 2.0]>>}");
    row("list of values", QList<QJsonValue>{7, null, numbers}, "{'x': <[<7.0>, <[1.0, 2.0]>]>}", {UnknownType});
    row("empty list of arrays, which the application has registered", QList<QJsonArray>(), "{'x': <@aav []>}");
    row("list of arrays, which the application has registered", QList<QJsonArray>{numbers, texts},
        "{'x': <[<[1.0, 2.0]>, <['x']>]>}");
    row("vector of objects", QVector<QJsonObject>{object.value("o").toObject(), {}},
        "{'x': <[<{'k': <['x']>}>, <@a{sv} {}>]>}");
    row("hash of values", QHash<QString, QJsonValue>{{k, 7}}, "{'x': <{'k': <7.0>}>}");
    row("map of arrays", QMap<QString, QJsonArray>{{k, numbers}, {"n", {null}}}, "{'x': <{'k': <[1.0, 2.0]>}>}",
        {UnknownType});
}

void TestScheduleOnBus::jsonIsSent()
{
    QFETCH(QVariant, value);
    QFETCH(QString, arrives);
    QFETCH(QStringList, warnings);

    QCOMPARE(sent({{"x", value}}), arrives);
    QCOMPARE(log->takeWarnings(), warnings);
}

void TestScheduleOnBus::jsonOverTheLimitsIsRefused_data()
{
    QTest::addColumn<QVariant>("value");
    QTest::addColumn<QString>("problem");

    QJsonValue deep("x");
    for (int i = 0; i < 20; ++i)
        deep = QJsonObject{{"k", deep}};
    const QString tooLarge = "A message cannot hold an array or object of more than 64 MiB";
    const QString hasNul = "A message cannot hold a text with U+0000";
    QTest::newRow("nested too deep") << QVariant(deep.toObject()) << TooDeep;
    QTest::newRow("nested too deep, in a list") << QVariant(QVariantList{deep}) << TooDeep;
    QTest::newRow("nested too deep, null inside") << QVariant(QJsonObject{{"a", QJsonValue()}, //
                                                                          {"k", deep}})
                                                  << TooDeep;
    QTest::newRow("U+0000") << QVariant(QJsonArray{QString(QChar(0))}) << hasNul;
    QTest::newRow("64 MiB of text") << QVariant(QJsonArray{QString(64 << 20, 'x')}) << tooLarge;
}

void TestScheduleOnBus::jsonOverTheLimitsIsRefused()
{
    QFETCH(QVariant, value);
    QFETCH(QString, problem);

    QCOMPARE(sent({{"x", value}}), problem);
    QCOMPARE(log->takeWarnings(), QStringList());
}

void TestScheduleOnBus::refusedScheduleCausesNoWarning()
{
    QCOMPARE(sent({{"a", QJsonValue()}, {"b", QVariant::fromValue(QCborArray{1})}, {"x", QString(QChar(0))}}),
             QString("A message cannot hold a text with U+0000"));
    QCOMPARE(log->takeWarnings(), QStringList());
}

void TestScheduleOnBus::structuresOverTheLimitsAreRefused_data()
{
    QTest::addColumn<QVariant>("structure");
    QTest::addColumn<int>("maps"); // around the structure
    QTest::addColumn<bool>("isRefused");

    // Around the maps are six levels, as above. Each map adds three levels, a QRect one, a QDateTime two.
    QTest::newRow("QRect") << QVariant(QRect(1, 2, 3, 4)) << 18 << false;
    QTest::newRow("QRect, too deep") << QVariant(QRect(1, 2, 3, 4)) << 19 << true;
    QTest::newRow("QDateTime") << QVariant(QDateTime::fromSecsSinceEpoch(0)) << 18 << false;
    QTest::newRow("QDateTime, too deep") << QVariant(QDateTime::fromSecsSinceEpoch(0)) << 19 << true;
    QTest::newRow("list of times, too deep") << QVariant::fromValue(QList<QTime>{QTime(1, 2)}) << 19 << true;
    QTest::newRow("list of times") << QVariant::fromValue(QList<QTime>{QTime(1, 2)}) << 18 << false;
}

void TestScheduleOnBus::structuresOverTheLimitsAreRefused()
{
    QFETCH(QVariant, structure);
    QFETCH(int, maps);
    QFETCH(bool, isRefused);

    qDBusRegisterMetaType<QList<QTime>>();
    for (int i = 0; i < maps; ++i)
        structure = QVariantMap{{"k", structure}};
    const QString result = sent({{"x", structure}});
    QVERIFY2(isRefused ? result == TooDeep : result.startsWith("{'x': "), qUtf8Printable(result));
    QCOMPARE(sent({{"x", 1}}), QString("{'x': <1>}")); // the connection is still open
}

void TestScheduleOnBus::valuesThatDBusCannotRepresentAreOmitted_data()
{
    QTest::addColumn<QVariant>("value");

    QTest::newRow("QCborArray") << QVariant::fromValue(QCborArray{1});
    QTest::newRow("QCborMap") << QVariant::fromValue(QCborMap{{1, 2}});
    QTest::newRow("QCborValue") << QVariant::fromValue(QCborValue(1));
    QTest::newRow("QUrl") << QVariant(QUrl("file:///a"));
}

void TestScheduleOnBus::valuesThatDBusCannotRepresentAreOmitted()
{
    QFETCH(QVariant, value);

    QCOMPARE(sent({{"x", value}, {"z", 1}}), QString("{'z': <1>}"));
    const QStringList warnings = log->takeWarnings();
    QCOMPARE(warnings.size(), 1);
    QString expected;
    QDebug(&expected) << "Value without a form on D-Bus:" << value;
    QCOMPARE(warnings.first(), expected.trimmed());
}

void TestScheduleOnBus::receivedMapIsSentUnchanged_data()
{
    QTest::addColumn<QString>("map");

    for (const char *map : {"{'x': <byte 0x07>}",
                            "{'x': <int16 -7>}",
                            "{'x': <uint64 7>}",
                            "{'x': <(1, 's', true)>}",
                            "{'x': <(byte 0x01, int16 -2, uint16 3, -4, uint32 5)>}",
                            "{'x': <(int64 -6, uint64 7, 8.5)>}",
                            "{'x': <(objectpath '/a', signature 'a{sv}', 'žluť')>}",
                            "{'x': <[(1, 'a'), (2, 'b')]>}",
                            "{'x': <@a(is) []>}",
                            "{'x': <(@as [], @a{sv} {}, @a{is} {})>}",
                            "{'x': <{1: 'a', 2: 'b'}>}",
                            "{'x': <{'a': {'b': [1, 2]}}>}",
                            "{'x': <{'k': <[1, 2, 3]>, 'l': <{'m': <'n'>}>}>}",
                            "{'x': <[[1, 2], [3]]>}",
                            "{'x': <[['a'], []]>}",
                            "{'x': <[{'k': <1>}, {}]>}",
                            "{'x': <(<<(1, <'x'>)>>,)>}",
                            "{'x': <([byte 0x01, 0x02], [true, false], [1.5])>}",
                            "{'x': <((((((1,),),),),),)>}",
                            "{'Hours': <[8, 20]>, 'x': <[<(1,)>, <2>]>}"})
        QTest::newRow(map) << QString::fromUtf8(map);
}

void TestScheduleOnBus::receivedMapIsSentUnchanged()
{
    QFETCH(QString, map);

    const QVariantMap schedule = received(map);
    QCOMPARE(sent(schedule), map);
    QCOMPARE(sent(schedule), map); // measuring and sending do not change the map
    QCOMPARE(sent({{"l", QVariant(QVariantList{schedule})}}), QString("{'l': <[<%1>]>}").arg(map));
}

void TestScheduleOnBus::receivedDescriptorsAreSent()
{
    const QVariantMap schedule = received("{'x': <(handle 0, 'a')>}", 1);
    QCOMPARE(sent(schedule), QString("{'x': <(handle 0, 'a')>}"));
    receiver.map.clear();
}

void TestScheduleOnBus::receivedMapOverTheLimitsIsRefused_data()
{
    QTest::addColumn<QString>("value");
    QTest::addColumn<int>("levels"); // variants around the value
    QTest::addColumn<QString>("problem");

    // The task's description and the schedule are five levels of the 63, and the value's variant is the sixth.
    const QString structures = QString(30, '(') + '1' + QString(",)").repeated(30);
    QTest::newRow("structures") << structures << 27 << QString();
    QTest::newRow("structures, too deep") << structures << 28 << TooDeep;
    QTest::newRow("variants") << "(<1>,)" << 55 << QString();
    QTest::newRow("variants, too deep") << "(<1>,)" << 56 << TooDeep;
}

void TestScheduleOnBus::receivedMapOverTheLimitsIsRefused()
{
    QFETCH(QString, value);
    QFETCH(int, levels);
    QFETCH(QString, problem);

    QVariant variant = received(QString("{'x': <%1>}").arg(value)).value("x");
    for (int i = 0; i < levels; ++i)
        variant = QVariant::fromValue(QDBusVariant(variant));
    QString arrives = QString("{'x': <%1>}").arg(QString(levels, '<') + value + QString(levels, '>'));
    QCOMPARE(sent({{"x", variant}}), problem.isEmpty() ? arrives : problem);
}

void TestScheduleOnBus::writtenArgumentsAreSent()
{
    QDBusArgument argument;
    argument.beginStructure();
    argument << 1 << QStringList{"a"};
    argument.endStructure();
    QCOMPARE(sent({{"x", QVariant::fromValue(argument)}}), QString("{'x': <(1, ['a'])>}"));
}

void TestScheduleOnBus::argumentsWithoutOneValueAreOmitted_data()
{
    QTest::addColumn<QVariant>("value");

    QDBusArgument several;
    several << 1 << 2;
    QTest::newRow("none") << QVariant::fromValue(QDBusArgument());
    QTest::newRow("several") << QVariant::fromValue(several);
}

void TestScheduleOnBus::argumentsWithoutOneValueAreOmitted()
{
    QFETCH(QVariant, value);

    QCOMPARE(sent({{"x", value}, {"z", 1}}), QString("{'z': <1>}"));
    const QStringList warnings = log->takeWarnings();
    QCOMPARE(warnings.size(), 1);
    QVERIFY2(warnings.first().startsWith("Value without a form on D-Bus: QVariant(QDBusArgument"),
             qPrintable(warnings.first()));
}

QTEST_GUILESS_MAIN(TestScheduleOnBus)
#include "tst_schedule_on_bus.moc"
