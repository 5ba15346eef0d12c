// SPDX-License-Identifier: BSD-3-Clause
// The functions behind the states of tasks, called directly.
#include <Corvane/task.h>
#include <Corvane/task_p.h>
#include <Corvane/tasks_interface_p.h>

#include <message_log.h>
#include <patience.h>
#include <service_peer.h>

#include <QtTest/QtTest>

#include <memory>
#include <optional>

using namespace Corvane;

using States = QVector<TaskState>;

namespace {

const QString Sync = QStringLiteral("sync");
const QString Other = QStringLiteral("other");

TaskState entry(const QString &id, quint32 code)
{
    return {id, code, {}};
}

} // namespace

class TestTasksInterface : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void initTestCase();
    void init();
    void cleanup();

    void metaObjectHasOneSignalAndOneSlot();
    void proxyIsBoundToTheTasksObject();
    void interfaceStartsWithoutStates();
    void statesAreKnownAfterTheyAreApplied();
    void everyListIsStoredAndEmitted();
    void propertiesAreApplied_data();
    void propertiesAreApplied();

    void updateSkipsOtherTasks();
    void updateAppliesEveryEntryOfTheTask();
    void updateMayDeleteTheTask();
    void newerUpdateSupersedesTheList();
    void tasksFollowTheEmittedList();
    void listEmittedInAReceiverSupersedesTheOuterList();
    void newTaskReadsTheStoredList();

private:
    static void call(TasksInterface *interface, const States &list)
    {
        QVERIFY(QMetaObject::invokeMethod(interface, "onStateChanged", Qt::DirectConnection,
                                          Q_ARG(QVector<TaskState>, list)));
    }
    static QStringList texts(const States &list)
    {
        QStringList texts;
        for (const TaskState &state : list)
            texts << QString("%1 %2").arg(state.taskId).arg(state.state);
        return texts;
    }
    void watch(const Task &task)
    {
        connect(&task, &Task::stateChanged, this, [this](Task::State state) { states << int(state); });
    }

    ServicePeer peer;
    QVector<int> states;
    std::optional<MessageLog> log;
};

void TestTasksInterface::initTestCase()
{
    peer.answer("({'State': <@a(sua{sv}) []>},)", "GetAll");
    TasksInterface::instance();
    QTRY_VERIFY(TasksInterface::instance()->statesKnown);
}

void TestTasksInterface::init()
{
    log.emplace();
    call(TasksInterface::instance(), {});
    states.clear();
}

void TestTasksInterface::cleanup()
{
    log.reset();
}

void TestTasksInterface::metaObjectHasOneSignalAndOneSlot()
{
    const QMetaObject &meta = TasksInterface::staticMetaObject;
    QCOMPARE(meta.superClass(), &QDBusAbstractInterface::staticMetaObject);
    QCOMPARE(meta.methodCount() - meta.methodOffset(), 2);
    const QMetaMethod signal = meta.method(meta.methodOffset());
    QCOMPARE(signal.methodType(), QMetaMethod::Signal);
    QCOMPARE(signal.methodSignature(), QByteArray("stateChanged(QVector<TaskState>)"));
    QCOMPARE(signal.parameterNames(), QList<QByteArray>{"tasksState"});
    const QMetaMethod slot = meta.method(meta.methodOffset() + 1);
    QCOMPARE(slot.methodType(), QMetaMethod::Slot);
    QCOMPARE(slot.access(), QMetaMethod::Private);
    QCOMPARE(slot.methodSignature(), QByteArray("onStateChanged(QVector<TaskState>)"));
    QCOMPARE(slot.parameterNames(), QList<QByteArray>{"tasksState"});
    QCOMPARE(meta.propertyCount(), meta.propertyOffset());
}

void TestTasksInterface::proxyIsBoundToTheTasksObject()
{
    const TasksInterface *interface = TasksInterface::instance();
    QCOMPARE(interface, TasksInterface::instance());
    QVERIFY(!interface->parent());
    QCOMPARE(interface->service(), QString(CORVANE_SERVICE_ROOT));
    QCOMPARE(interface->path(), QString("/%1/Tasks1").arg(QString(CORVANE_SERVICE_ROOT).replace('.', '/')));
    QCOMPARE(interface->interface(), QString(CORVANE_SERVICE_ROOT ".Tasks1"));
    QCOMPARE(interface->connection().name(), QDBusConnection::sessionBus().name());
}

void TestTasksInterface::interfaceStartsWithoutStates()
{
    const TasksInterface another;
    QVERIFY(another.tasksState.isEmpty());
    QVERIFY(!another.statesKnown);
}

void TestTasksInterface::statesAreKnownAfterTheyAreApplied()
{
    const TasksInterface another;
    QVector<bool> known;
    connect(&another, &TasksInterface::stateChanged, this, [&] { known << another.statesKnown; });
    QVERIFY(peer.roundTrip());
    QCOMPARE(known, QVector<bool>{false});
    QVERIFY(another.statesKnown);
}

void TestTasksInterface::everyListIsStoredAndEmitted()
{
    TasksInterface another;
    QVector<QStringList> emitted;
    connect(&another, &TasksInterface::stateChanged, this, [&](const States &list) {
        QCOMPARE(texts(another.tasksState), texts(list)); // the value is stored before the signal
        emitted << texts(list);
    });
    const States list{entry(Sync, 1), entry(Other, 7)};
    call(&another, list);
    call(&another, list);
    call(&another, another.tasksState);
    call(&another, {});
    const QStringList both{"sync 1", "other 7"};
    QCOMPARE(emitted, QVector<QStringList>({both, both, both, QStringList()}));
}

void TestTasksInterface::propertiesAreApplied_data()
{
    QTest::addColumn<QVariantMap>("properties");
    QTest::addColumn<QVector<QStringList>>("emitted");

    const QString state = "State";
    const QVariant list = QVariant::fromValue(States{entry(Sync, 1)});
    const QStringList text{"sync 1"};
    QTest::newRow("nothing") << QVariantMap() << QVector<QStringList>();
    QTest::newRow("list") << QVariantMap{{state, list}} << QVector<QStringList>{text};
    QTest::newRow("among others") << QVariantMap{{"A", list}, {state, list}, {"Z", 1}} << QVector<QStringList>{text};
    QTest::newRow("other case") << QVariantMap{{"state", list}, {"STATE", list}} << QVector<QStringList>();
    QTest::newRow("invalid") << QVariantMap{{state, QVariant()}} << QVector<QStringList>{{}};
    QTest::newRow("text") << QVariantMap{{state, Sync}} << QVector<QStringList>{{}};
    QMultiMap<QString, QVariant> twice;
    twice.insert(state, QVariant::fromValue(States{entry(Sync, 2)}));
    twice.insert(state, list); // iterators return the last inserted value first
    QTest::newRow("twice") << QVariantMap(twice) << QVector<QStringList>{text, {"sync 2"}};
}

void TestTasksInterface::propertiesAreApplied()
{
    QFETCH(QVariantMap, properties);
    QFETCH(QVector<QStringList>, emitted);

    TasksInterface another;
    QVector<QStringList> lists;
    connect(&another, &TasksInterface::stateChanged, this, [&](const States &list) { lists << texts(list); });
    another.applyProperties(properties);
    QCOMPARE(lists, emitted);
    QVERIFY(!another.statesKnown);
}

void TestTasksInterface::updateSkipsOtherTasks()
{
    Task task(Sync);
    TaskPrivate direct(Sync, &task);
    watch(task);
    direct.updateState({entry(Other, 1), entry("Sync", 1), entry(direct.qualifiedName, 1)});
    QCOMPARE(states, QVector<int>());
    QCOMPARE(direct.state, Task::Unknown);
    direct.updateState({entry(Other, 1), entry(Sync, 2), entry(QString(), 0)});
    QCOMPARE(states, QVector<int>{Task::Waiting});
    QCOMPARE(direct.state, Task::Waiting);
    direct.updateState({});
    QCOMPARE(direct.state, Task::Waiting);
    QCOMPARE(task.state(), Task::Unknown); // the private object of the task was not updated
}

void TestTasksInterface::updateAppliesEveryEntryOfTheTask()
{
    Task task(Sync);
    TaskPrivate direct(Sync, &task);
    watch(task);
    const States list{entry(Sync, 0), entry(Other, 2), entry(Sync, 1), entry(Sync, 1), entry(Sync, 7)};
    direct.updateState(list);
    QCOMPARE(states, QVector<int>({Task::Stopped, Task::Running, Task::Unknown}));
    direct.updateState({entry(Sync, 3)});
    QCOMPARE(states.size(), 3);
}

void TestTasksInterface::updateMayDeleteTheTask()
{
    auto *task = new Task(Sync);
    auto *direct = new TaskPrivate(Sync, task);
    connect(task, &Task::stateChanged, this, [this, task, direct](Task::State state) {
        states << int(state);
        delete direct;
        delete task;
    });
    direct->updateState({entry(Sync, 1), entry(Sync, 0), entry(Sync, 2)});
    QCOMPARE(states, QVector<int>{Task::Running});
}

void TestTasksInterface::newerUpdateSupersedesTheList()
{
    Task task(Sync);
    TaskPrivate direct(Sync, &task);
    connect(&task, &Task::stateChanged, this, [this, &direct](Task::State state) {
        states << int(state);
        if (states.size() == 1)
            direct.updateState({entry(Sync, 0)});
    });
    direct.updateState({entry(Sync, 1), entry(Sync, 2)});
    QCOMPARE(states, QVector<int>({Task::Running, Task::Stopped}));
    QCOMPARE(direct.state, Task::Stopped);
}

void TestTasksInterface::tasksFollowTheEmittedList()
{
    const Task first(Sync);
    const Task second(Other);
    watch(first);
    Q_EMIT TasksInterface::instance()->stateChanged({entry(Sync, 1), entry(Other, 2)});
    QCOMPARE(states, QVector<int>{Task::Running});
    QCOMPARE(second.state(), Task::Waiting);
    QVERIFY(TasksInterface::instance()->tasksState.isEmpty()); // an emission stores nothing
    Q_EMIT TasksInterface::instance()->stateChanged({entry(Other, 0)});
    QCOMPARE(states, QVector<int>{Task::Running});
    QCOMPARE(second.state(), Task::Stopped);
}

void TestTasksInterface::listEmittedInAReceiverSupersedesTheOuterList()
{
    const Task first(Sync);
    const Task second(Other);
    watch(second);
    connect(&first, &Task::stateChanged, this, [](Task::State state) {
        if (state == Task::Running)
            Q_EMIT TasksInterface::instance()->stateChanged({entry(Other, 2)});
    });
    Q_EMIT TasksInterface::instance()->stateChanged({entry(Sync, 1), entry(Sync, 0), entry(Other, 1)});
    QCOMPARE(first.state(), Task::Running); // the newer list does not contain this task
    QCOMPARE(states, QVector<int>{Task::Waiting});
}

void TestTasksInterface::newTaskReadsTheStoredList()
{
    call(TasksInterface::instance(), {entry(Sync, 2)});
    Q_EMIT TasksInterface::instance()->stateChanged({entry(Sync, 1)});
    QCOMPARE(Task(Sync).state(), Task::Waiting);
    TasksInterface::instance()->tasksState = {entry(Sync, 0)};
    QCOMPARE(Task(Sync).state(), Task::Stopped);
}

QTEST_GUILESS_MAIN(TestTasksInterface)
#include "tst_tasks_interface.moc"
