// SPDX-License-Identifier: BSD-3-Clause
// The states of tasks: the first ones, and the signal StateChanged.
#include <Corvane/task.h>
#include <Corvane/tasks_interface_p.h>

#include <message_log.h>
#include <patience.h>
#include <service_peer.h>

#include <QtDBus/QDBusConnection>
#include <QtTest/QtTest>

#include <optional>
#include <utility>

using namespace Corvane;

namespace {

const QString Object = QStringLiteral("Tasks1");
const QString Interface = QStringLiteral(CORVANE_SERVICE_ROOT ".Tasks1");
const QString StateChanged = QStringLiteral("StateChanged");
const QString GetAll = QStringLiteral("GetAll");
const QString Sync = QStringLiteral("sync");

} // namespace

class TestTaskStates : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void initTestCase();
    void init();
    void cleanup();

    void stateCodesBecomeStates_data();
    void stateCodesBecomeStates();
    void repeatedStateIsEmittedOnce();
    void statesOfOtherTasksAreIgnored();
    void eachMatchingEntryIsEmitted();
    void newTaskHasTheLastState();
    void nestedSignalSupersedesTheOlderOne();
    void slotMayDeleteTheTask();
    void stateChangedOfAnotherSignatureIsIgnored_data();
    void stateChangedOfAnotherSignatureIsIgnored();
    void otherSignalsAreIgnored_data();
    void otherSignalsAreIgnored();
    void signalsOfOtherSendersAreIgnored_data();
    void signalsOfOtherSendersAreIgnored();
    void signalsOfARestartedServiceArrive();
    void constructorFetchesTheStates_data();
    void constructorFetchesTheStates();
    void failedFetchIsLogged_data();
    void failedFetchIsLogged();

private:
    void announce(const QString &list) { peer.emitSignal(Object, Interface, StateChanged, QString("(%1,)").arg(list)); }
    static QString one(const QString &id, quint32 code)
    {
        return QString("[('%1', uint32 %2, @a{sv} {})]").arg(id).arg(code);
    }
    QVector<int> watch(Task &task)
    {
        connect(&task, &Task::stateChanged, this, [this](Task::State state) { states << int(state); });
        return {};
    }

    ServicePeer peer;
    QVector<int> states;
    std::optional<MessageLog> log;
};

void TestTaskStates::initTestCase()
{
    peer.answer("({'Other': <1>, 'State': <[('early', uint32 1, {'x': <1>})]>},)", GetAll);
    Task early("early");
    watch(early);
    QCOMPARE(early.state(), Task::Unknown); // the constructor does not wait for the reply
    QTRY_COMPARE(states, QVector<int>{Task::Running});
    QCOMPARE(early.state(), Task::Running);
    QCOMPARE(peer.takeCalls(), QStringList("GetAll () ()"));
}

void TestTaskStates::init()
{
    log.emplace();
    states.clear();
    peer.takeCalls();
}

void TestTaskStates::cleanup()
{
    log.reset();
}

void TestTaskStates::stateCodesBecomeStates_data()
{
    QTest::addColumn<quint32>("code");
    QTest::addColumn<int>("state");

    QTest::newRow("stopped") << 0U << int(Task::Stopped);
    QTest::newRow("running") << 1U << int(Task::Running);
    QTest::newRow("waiting") << 2U << int(Task::Waiting);
    QTest::newRow("next") << 3U << int(Task::Unknown);
    QTest::newRow("some") << 7U << int(Task::Unknown);
    QTest::newRow("greatest") << 4294967295U << int(Task::Unknown);
}

void TestTaskStates::stateCodesBecomeStates()
{
    QFETCH(quint32, code);
    QFETCH(int, state);

    Task task(Sync);
    announce(one(Sync, state == Task::Running ? 0 : 1)); // start from another state
    watch(task);
    announce(one(Sync, code));
    QCOMPARE(states, QVector<int>{state});
    QCOMPARE(int(task.state()), state);
}

void TestTaskStates::repeatedStateIsEmittedOnce()
{
    announce("@a(sua{sv}) []");
    Task task("fresh");
    watch(task);
    announce(one("fresh", 1));
    announce(one("fresh", 1));
    QCOMPARE(states, QVector<int>{Task::Running});
    announce("[('fresh', uint32 1, {'x': <(1, 2)>})]");
    QCOMPARE(states, QVector<int>{Task::Running});
}

void TestTaskStates::statesOfOtherTasksAreIgnored()
{
    announce(one(Sync, 1));
    Task task(Sync);
    watch(task);
    announce(one("other", 0));
    announce(one("demo.task_sync", 0)); // entries have the task id, not the qualified name
    announce(one("Sync", 0));
    announce(one(QString(), 0));
    announce("@a(sua{sv}) []");
    QCOMPARE(states, QVector<int>());
    QCOMPARE(task.state(), Task::Running); // the state is unchanged
}

void TestTaskStates::eachMatchingEntryIsEmitted()
{
    announce(one(Sync, 1));
    Task task(Sync);
    watch(task);
    announce("[('sync', uint32 0, @a{sv} {}), ('other', 1, {}), ('sync', 1, {}), ('sync', 1, {}), ('sync', 2, {})]");
    QCOMPARE(states, QVector<int>({Task::Stopped, Task::Running, Task::Waiting}));
}

void TestTaskStates::newTaskHasTheLastState()
{
    announce("[('sync', uint32 0, @a{sv} {}), ('sync', 2, {})]");
    QCOMPARE(Task(Sync).state(), Task::Waiting);
    QCOMPARE(Task("unheard of").state(), Task::Unknown);
}

void TestTaskStates::nestedSignalSupersedesTheOlderOne()
{
    announce("@a(sua{sv}) []");
    Task first("one");
    Task second("two");
    bool isNested = false;
    connect(&first, &Task::stateChanged, &first, [this, &isNested] {
        if (!std::exchange(isNested, true)) // the peer runs an event loop
            announce("[('one', uint32 2, @a{sv} {}), ('two', 2, {})]");
    });
    announce("[('one', uint32 1, @a{sv} {}), ('two', 1, {}), ('one', 0, {})]");
    QVERIFY(isNested);
    QCOMPARE(first.state(), Task::Waiting); // the rest of the older list is dropped
    QCOMPARE(second.state(), Task::Waiting);
}

void TestTaskStates::slotMayDeleteTheTask()
{
    announce("@a(sua{sv}) []");
    auto *task = new Task("fresh");
    connect(task, &Task::stateChanged, this, [this, task](Task::State state) {
        states << int(state);
        delete task;
    });
    Task neighbour("fresh"); // receives the signal later
    announce("[('fresh', uint32 1, @a{sv} {}), ('fresh', 0, {}), ('fresh', 1, {}), ('fresh', 2, {})]");
    QCOMPARE(states, QVector<int>{Task::Running});
    QCOMPARE(neighbour.state(), Task::Waiting);
}

void TestTaskStates::stateChangedOfAnotherSignatureIsIgnored_data()
{
    QTest::addColumn<QString>("body");

    QTest::newRow("none") << "()";
    QTest::newRow("one task") << "(('sync', uint32 1, @a{sv} {}),)";
    QTest::newRow("no properties") << "([('sync', uint32 1)],)";
    QTest::newRow("signed code") << "([('sync', 1, @a{sv} {})],)";
    QTest::newRow("map") << "({'sync': uint32 1},)";
    QTest::newRow("in a variant") << "(<[('sync', uint32 1, @a{sv} {})]>,)";
    QTest::newRow("numbers") << "([1, 2],)";
    QTest::newRow("one more") << "([('sync', uint32 1, @a{sv} {})], 1)";
}

void TestTaskStates::stateChangedOfAnotherSignatureIsIgnored()
{
    QFETCH(QString, body);

    announce(one(Sync, 0));
    Task task(Sync);
    peer.emitSignal(Object, Interface, StateChanged, body);
    QCOMPARE(task.state(), Task::Stopped);
    announce(one(Sync, 1));
    QCOMPARE(task.state(), Task::Running);
}

void TestTaskStates::otherSignalsAreIgnored_data()
{
    QTest::addColumn<QString>("object");
    QTest::addColumn<QString>("interface");
    QTest::addColumn<QString>("member");

    QTest::newRow("object") << "Lifecycle1" << Interface << StateChanged;
    QTest::newRow("interface") << Object << CORVANE_SERVICE_ROOT ".Lifecycle1" << StateChanged;
    QTest::newRow("the proxy's own") << Object << Interface << "stateChanged";
    QTest::newRow("slot") << Object << Interface << "onStateChanged";
}

void TestTaskStates::otherSignalsAreIgnored()
{
    QFETCH(QString, object);
    QFETCH(QString, interface);
    QFETCH(QString, member);

    announce(one(Sync, 0));
    Task task(Sync);
    peer.emitSignal(object, interface, member, QString("(%1,)").arg(one(Sync, 1)));
    QCOMPARE(task.state(), Task::Stopped);
}

void TestTaskStates::signalsOfOtherSendersAreIgnored_data()
{
    QTest::addColumn<bool>("unicast");

    QTest::newRow("broadcast") << false;
    QTest::newRow("unicast") << true;
}

void TestTaskStates::signalsOfOtherSendersAreIgnored()
{
    QFETCH(bool, unicast);

    announce(one(Sync, 0));
    Task task(Sync);
    QJsonObject more{{"stranger", true}};
    if (unicast)
        more.insert("destination", QDBusConnection::sessionBus().baseService());
    const auto forge = [this, &more] {
        peer.emitSignal(Object, Interface, StateChanged, QString("(%1,)").arg(one(Sync, 1)), more);
    };
    forge();
    peer.ownServiceName(false);
    forge();
    announce(one(Sync, 1)); // sent by the previous owner of the service's name
    peer.ownServiceName(true);
    forge();
    QCOMPARE(task.state(), Task::Stopped);

    more.remove("stranger");
    forge(); // the same signal from the service counts
    QCOMPARE(task.state(), Task::Running);
}

void TestTaskStates::signalsOfARestartedServiceArrive()
{
    Task task(Sync);
    peer.kill();
    peer.start();
    announce(one(Sync, 1));
    QCOMPARE(task.state(), Task::Running);
    announce(one(Sync, 2));
    QCOMPARE(task.state(), Task::Waiting);
}

void TestTaskStates::constructorFetchesTheStates_data()
{
    QTest::addColumn<QString>("answer");
    QTest::addColumn<int>("count"); // of read tasks

    const auto row = [](const char *name, const char *state, int count) {
        QTest::newRow(name) << QString("({'State': <%1>},)").arg(state) << count;
    };
    row("one", "[('a', uint32 1, @a{sv} {})]", 1);
    row("two", "[('a', uint32 1, {'x': <1>}), ('b', 7, {})]", 2);
    row("none", "@a(sua{sv}) []", 0);
    row("numbers", "[1, 2]", 0);
    row("no properties", "[('a', uint32 1)]", 0);
    row("map of numbers", "{'a': uint32 1}", 0);
    row("map", "{'a': <1>}", 0);
    row("one task", "('a', uint32 1, @a{sv} {})", 0);
    row("variants", "[<('a', uint32 1, @a{sv} {})>]", 0);
    row("in a variant", "<[('a', uint32 1, @a{sv} {})]>", 0);
    row("texts", "['a']", 0);
    row("text", "'a'", 0);
    row("number", "1", 0);
    QTest::newRow("another key") << "({'state': <[('a', uint32 1, @a{sv} {})]>},)" << 0;
    QTest::newRow("nothing") << "(@a{sv} {},)" << 0;
    QTest::newRow("others too") << "({'A': <[(1, 2)]>, 'State': <[('a', uint32 1, @a{sv} {})]>, 'Z': <1>},)" << 1;
}

void TestTaskStates::constructorFetchesTheStates()
{
    QFETCH(QString, answer);
    QFETCH(int, count);

    peer.answer(answer, GetAll);
    const TasksInterface another;
    int emitted = 0;
    connect(&another, &TasksInterface::stateChanged, this, [&emitted] { ++emitted; });
    QVERIFY(!another.statesKnown);
    QVERIFY(peer.roundTrip());
    QVERIFY(another.statesKnown);
    QCOMPARE(another.tasksState.size(), count);
    QCOMPARE(emitted, answer.contains("'State'") ? 1 : 0); // for an empty list too
    if (count > 0) {
        QCOMPARE(another.tasksState.first().taskId, QString("a"));
        QCOMPARE(another.tasksState.first().state, 1U);
    }
}

void TestTaskStates::failedFetchIsLogged_data()
{
    QTest::addColumn<QString>("answer"); // if empty, an error
    QTest::addColumn<QString>("error");

    QTest::newRow("error") << QString() << R"(QDBusError("com.example.Error.Broken", "the reason"))";
    QTest::newRow("number")
        << "(1,)"
        << R"(QDBusError("org.freedesktop.DBus.Error.InvalidSignature", "Unexpected reply signature: )"
           R"(got \"i\", expected \"a{sv}\""))";
    QTest::newRow("states alone") << "([('a', uint32 1, @a{sv} {})],)"
                                  << R"(QDBusError("org.freedesktop.DBus.Error.InvalidSignature", "Unexpected reply )"
                                     R"(signature: got \"a(sua{sv})\", expected \"a{sv}\""))";
}

void TestTaskStates::failedFetchIsLogged()
{
    QFETCH(QString, answer);
    QFETCH(QString, error);

    if (answer.isEmpty())
        peer.answerError("com.example.Error.Broken", "('the reason',)", GetAll);
    else
        peer.answer(answer, GetAll);
    const TasksInterface another;
    QVERIFY(peer.roundTrip());
    QCOMPARE(log->takeWarnings(), QStringList("Failed to get the Tasks interface properties " + error));
    QVERIFY(!another.statesKnown);
    announce(one(Sync, 1));
    QCOMPARE(another.tasksState.size(), 1); // the signal arrives nevertheless
    QVERIFY(!another.statesKnown);
}

QTEST_GUILESS_MAIN(TestTaskStates)
#include "tst_task_states.moc"
