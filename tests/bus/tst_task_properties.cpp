// SPDX-License-Identifier: BSD-3-Clause
// The properties of tasks, as announced by the service.
#include <Corvane/task.h>

#include <message_log.h>
#include <patience.h>
#include <service_peer.h>

#include <QtTest/QtTest>

#include <limits>
#include <optional>
#include <utility>

using namespace Corvane;

namespace {

const QString Object = QStringLiteral("Tasks1");
const QString Interface = QStringLiteral(CORVANE_SERVICE_ROOT ".Tasks1");
const QString GetAll = QStringLiteral("GetAll");
const QString Key = QStringLiteral("x");

QString one(const QString &properties, quint32 state = 1)
{
    return QString("[('sync', uint32 %1, @a{sv} %2)]").arg(state).arg(properties);
}

} // namespace

class TestTaskProperties : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void initTestCase();
    void init();
    void cleanup();

    void firstReadingHasTheProperties();
    void unknownTaskHasNone();
    void newTaskHasTheLastProperties();
    void valuesAreOfQtCore_data();
    void valuesAreOfQtCore();
    void fileDescriptorBecomesNull();
    void propertiesAreReadAgain();
    void laterAnnouncementReplacesTheProperties();
    void propertiesStayIfALaterAnnouncementLacksTheTask();
    void changeOfPropertiesAloneEmitsNothing();
    void propertiesAreUpToDateInTheSlot();
    void laterEntryOfOneAnnouncementCounts();
    void nestedAnnouncementSupersedesTheOlderOne();
    void slotMayDeleteTheTask();
    void descriptionIsNotAmongThem();

private:
    void announce(const QString &list)
    {
        peer.emitSignal(Object, Interface, "StateChanged", QString("(%1,)").arg(list));
    }

    ServicePeer peer;
    QVariantMap last; ///< the properties of a deleted task
    std::optional<MessageLog> log;
};

void TestTaskProperties::initTestCase()
{
    peer.answer(QString("({'State': <%1>},)").arg(one("{'Runs': <uint32 3>, 'x': <{'a': <'first'>}>}")), GetAll);
}

void TestTaskProperties::init()
{
    log.emplace();
}

void TestTaskProperties::cleanup()
{
    log.reset();
}

void TestTaskProperties::firstReadingHasTheProperties()
{
    const Task task("sync");
    QCOMPARE(task.properties(), QVariantMap()); // the constructor does not wait for the reply
    QVERIFY(peer.roundTrip());
    QCOMPARE(task.properties(), QVariantMap({{"Runs", 3U}, {"x", QVariantMap{{"a", "first"}}}}));
}

void TestTaskProperties::unknownTaskHasNone()
{
    const Task task("unheard of");
    QVERIFY(peer.roundTrip());
    announce(one("{'x': <1>}"));
    QCOMPARE(task.properties(), QVariantMap());
}

void TestTaskProperties::newTaskHasTheLastProperties()
{
    announce(one("{'x': <7>}"));
    QCOMPARE(Task("sync").properties(), QVariantMap({{"x", 7}}));
}

void TestTaskProperties::valuesAreOfQtCore_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<QVariant>("expected");
    QTest::addColumn<QString>("warning");

    const auto row = [](const char *text, const QVariant &expected, const char *warning = "") {
        QTest::newRow(text) << text << expected << warning;
    };
    row("byte 0xff", QVariant::fromValue(uchar(255)));
    row("true", true);
    row("int16 -32768", QVariant::fromValue(std::numeric_limits<short>::min()));
    row("uint16 65535", QVariant::fromValue(std::numeric_limits<ushort>::max()));
    row("-2147483648", std::numeric_limits<int>::min());
    row("uint32 4294967295", std::numeric_limits<uint>::max());
    row("int64 -9223372036854775808", std::numeric_limits<qlonglong>::min());
    row("uint64 18446744073709551615", std::numeric_limits<qulonglong>::max());
    row("0.5", 0.5);
    row("'text'", "text");
    row("''", "");
    row("['a', 'b']", QStringList({"a", "b"}));
    row("[byte 0x61, 0x00, 0x62]", QByteArray("a\0b", 3));

    row("<<1>>", 1);
    row("<<{'a': <1>}>>", QVariantMap{{"a", 1LL}});
    row("@a{sv} {}", QVariantMap());
    row("{'a': <1>, 'b': <'text'>, 'c': <true>, 'd': <0.5>}",
        QVariantMap{{"a", 1LL}, {"b", "text"}, {"c", true}, {"d", 0.5}});
    row("{'a': 'text'}", QVariantMap{{"a", "text"}});
    row("{'a': <{'b': <{'c': <[1, 2]>}>}>}",
        QVariantMap{{"a", QVariantMap{{"b", QVariantMap{{"c", QVariantList{1LL, 2LL}}}}}}});
    row("@ai []", QVariantList());
    row("[1, 2]", QVariantList({1LL, 2LL}));
    row("[<1>, <'text'>, <[<true>]>]", QVariantList({1LL, "text", QVariantList{true}}));
    row("[{'a': <1>}, {}]", QVariantList({QVariantMap{{"a", 1LL}}, QVariantMap()}));
    row("[['a'], []]", QVariantList({QVariantList{"a"}, QVariantList()}));

    const QVariant null = QVariant::fromValue(nullptr);
    row("objectpath '/a'", null);
    row("signature 'ai'", null);
    row("(1, 'text')", null, "Unsupported type:  \"(is)\"");
    row("[(1, 'text')]", QVariantList(), "Unsupported type:  \"(is)\"");
    row("{'a': <(1, 2)>, 'b': <objectpath '/a'>}", QVariantMap{{"a", null}, {"b", null}},
        "Unsupported type:  \"(ii)\"");
}

void TestTaskProperties::valuesAreOfQtCore()
{
    QFETCH(QString, text);
    QFETCH(QVariant, expected);
    QFETCH(QString, warning);

    const Task task("sync");
    announce(one(QString("{'x': <%1>, 'y': <'next'>}").arg(text)));
    QCOMPARE(log->takeWarnings(), QStringList()); // the values are converted when they are used
    const QVariantMap properties = task.properties();
    QCOMPARE(log->takeWarnings(), warning.isEmpty() ? QStringList() : QStringList(warning));
    QCOMPARE(properties.keys(), QStringList({"x", "y"}));
    QCOMPARE(properties.value("y"), QVariant("next"));
    QCOMPARE(properties.value(Key).userType(), expected.userType());
    QCOMPARE(properties.value(Key), expected);
}

void TestTaskProperties::fileDescriptorBecomesNull()
{
    const Task task("sync");
    peer.emitSignal(Object, Interface, "StateChanged", QString("(%1,)").arg(one("{'x': <handle 0>}")),
                    {{"descriptors", 1}});
    QCOMPARE(task.properties(), QVariantMap({{"x", QVariant::fromValue(nullptr)}}));
}

void TestTaskProperties::propertiesAreReadAgain()
{
    const Task task("sync");
    const Task other("sync");
    announce(one("{'x': <{'a': <[1, 2]>}>}"));
    const QVariantMap expected{{"x", QVariantMap{{"a", QVariantList{1LL, 2LL}}}}};
    for (int i = 0; i < 3; ++i) { // reading does not consume the values
        QCOMPARE(task.properties(), expected);
        QCOMPARE(other.properties(), expected);
    }
    QCOMPARE(Task("sync").properties(), expected);
}

void TestTaskProperties::laterAnnouncementReplacesTheProperties()
{
    const Task task("sync");
    announce(one("{'x': <1>, 'y': <2>}"));
    announce(one("{'y': <3>}"));
    QCOMPARE(task.properties(), QVariantMap({{"y", 3}}));
    announce(one("{}"));
    QCOMPARE(task.properties(), QVariantMap());
}

void TestTaskProperties::propertiesStayIfALaterAnnouncementLacksTheTask()
{
    const Task task("sync");
    announce(one("{'x': <1>}"));
    announce("[('other', uint32 0, {'x': <2>})]");
    QCOMPARE(task.properties(), QVariantMap({{"x", 1}}));
    announce("@a(sua{sv}) []");
    QCOMPARE(task.properties(), QVariantMap({{"x", 1}}));
}

void TestTaskProperties::changeOfPropertiesAloneEmitsNothing()
{
    const Task task("sync");
    announce(one("{'x': <1>}"));
    int changes = 0;
    connect(&task, &Task::stateChanged, this, [&changes] { ++changes; });
    announce(one("{'x': <2>}"));
    QCOMPARE(changes, 0);
    QCOMPARE(task.properties(), QVariantMap({{"x", 2}}));
}

void TestTaskProperties::propertiesAreUpToDateInTheSlot()
{
    announce(one("{'x': <1>}", 0));
    const Task task("sync");
    QVariantList values;
    connect(&task, &Task::stateChanged, this, [&] { values << task.properties().value(Key); });
    announce("[('sync', uint32 1, {'x': <2>}), ('other', 1, {'x': <9>}), ('sync', 1, {'x': <3>}), "
             "('sync', 2, {'x': <4>})]");
    QCOMPARE(values, QVariantList({2, 4}));
}

void TestTaskProperties::laterEntryOfOneAnnouncementCounts()
{
    announce(one("{'x': <1>}"));
    const Task task("sync");
    announce("[('sync', uint32 1, {'x': <2>}), ('sync', 1, {'x': <3>})]");
    QCOMPARE(task.properties(), QVariantMap({{"x", 3}}));
}

void TestTaskProperties::nestedAnnouncementSupersedesTheOlderOne()
{
    announce(one("{'x': <1>}", 0));
    const Task task("sync");
    bool isNested = false;
    connect(&task, &Task::stateChanged, this, [&] {
        if (std::exchange(isNested, true))
            return;
        announce(one("{'x': <2>}", 1)); // the peer runs an event loop
    });
    announce("[('sync', uint32 1, {'x': <3>}), ('sync', 1, {'x': <4>})]");
    QVERIFY(isNested);
    QCOMPARE(task.properties(), QVariantMap({{"x", 2}}));
}

void TestTaskProperties::slotMayDeleteTheTask()
{
    announce(one("{'x': <1>}", 0));
    auto *task = new Task("sync");
    const Task neighbour("sync");
    connect(task, &Task::stateChanged, this, [this, task] {
        last = task->properties();
        delete task;
    });
    announce("[('sync', uint32 1, {'x': <{'a': <1>}>}), ('sync', 2, {'x': <2>})]");
    QCOMPARE(last, QVariantMap({{"x", QVariantMap{{"a", 1LL}}}}));
    QCOMPARE(neighbour.properties(), QVariantMap({{"x", 2}}));
}

void TestTaskProperties::descriptionIsNotAmongThem()
{
    announce(one("{'Interval': <60>}"));
    Task task("sync");
    task.withInterval(3600).withPriority(1);
    QCOMPARE(task.properties(), QVariantMap({{"Interval", 60}}));
    QCOMPARE(task.interval(), 3600);
    task.start();
    QVERIFY(peer.roundTrip());
    const QStringList calls = peer.calls();
    QVERIFY2(calls.last().endsWith("{'Interval': <3600>, 'Priority': <1>})"), qUtf8Printable(calls.last()));
    QCOMPARE(task.properties(), QVariantMap({{"Interval", 60}}));
}

QTEST_GUILESS_MAIN(TestTaskProperties)
#include "tst_task_properties.moc"
