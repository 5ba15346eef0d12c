// SPDX-License-Identifier: BSD-3-Clause
// Members of the meta-objects, and slots and fields of the private classes, without a message from the service.
#include <Corvane/lifecycle.h>
#include <Corvane/lifecycle_p.h>
#include <Corvane/memory_pressure.h>
#include <Corvane/memory_pressure_p.h>
#include <Corvane/task.h>
#include <Corvane/task_messaging.h>
#include <Corvane/task_p.h>

#include <patience.h>
#include <service_peer.h>

#include <QtCore/QMetaEnum>
#include <QtTest/QtTest>

#include <type_traits>

using namespace Corvane;

Q_DECLARE_METATYPE(const QMetaObject *)

class TestInterfaces : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void initTestCase();

    void objectsAreNotCopied();
    void metaObjectsHaveTheseMembers_data();
    void metaObjectsHaveTheseMembers();
    void levelIsAnEnumerationProperty();
    void taskStartsWithoutADescription();
    void lifecycleSlotEmitsAnyCode();
    void memoryPressureSlotReadsOnlyTheMap();
    void deletedLifecycleIsReturnedAgain();

private:
    ServicePeer peer;
};

void TestInterfaces::initTestCase()
{
    peer.answer("(@a{sv} {},)", "GetAll");
}

void TestInterfaces::objectsAreNotCopied()
{
    static_assert(!std::is_copy_constructible_v<Task> && !std::is_copy_assignable_v<Task>);
    static_assert(!std::is_copy_constructible_v<TaskMessaging> && !std::is_copy_assignable_v<TaskMessaging>);
    static_assert(!std::is_default_constructible_v<Lifecycle> && !std::is_copy_constructible_v<Lifecycle>);
    static_assert(!std::is_default_constructible_v<MemoryPressure> && !std::is_copy_constructible_v<MemoryPressure>);
    static_assert(std::is_copy_constructible_v<Schedule> && !std::has_virtual_destructor_v<Schedule>);
    static_assert(sizeof(Schedule) == sizeof(QVariantMap));
    static_assert(std::has_virtual_destructor_v<MemoryPressure>);
    static_assert(std::is_same_v<decltype(std::declval<const TaskMessaging>().state()), TaskMessaging::State>);
}

void TestInterfaces::metaObjectsHaveTheseMembers_data()
{
    QTest::addColumn<const QMetaObject *>("meta");
    QTest::addColumn<QStringList>("methods"); // kind, access, signature, names of the parameters
    QTest::addColumn<QStringList>("properties");

    const auto row = [](const QMetaObject &meta, const QStringList &methods, const QStringList &properties = {}) {
        QTest::newRow(meta.className()) << &meta << methods << properties;
    };
    row(Lifecycle::staticMetaObject, {"signal stateChanged(QString,ApplicationState) appInstanceId state"});
    row(LifecyclePrivate::staticMetaObject, {"slot onStateChanged(QString,uint) appInstanceId state"});
    row(MemoryPressure::staticMetaObject, {"signal levelChanged(MemoryLevel) level"}, {"level"});
    row(MemoryPressurePrivate::staticMetaObject,
        {"slot onPropertiesChanged(QString,QVariantMap,QStringList) interface changed invalidated"});
    row(Task::staticMetaObject, {"signal stateChanged(Task::State) state"});
    row(TaskMessaging::staticMetaObject,
        {"signal stateChanged(State) state", "signal messageReceived(QJsonObject) message"});
}

void TestInterfaces::metaObjectsHaveTheseMembers()
{
    QFETCH(const QMetaObject *, meta);
    QFETCH(QStringList, methods);
    QFETCH(QStringList, properties);

    QStringList found;
    for (int i = meta->methodOffset(); i < meta->methodCount(); ++i) {
        const QMetaMethod method = meta->method(i);
        QCOMPARE(method.access(), QMetaMethod::Public);
        QByteArray text = method.methodType() == QMetaMethod::Signal ? "signal " : "slot ";
        text += method.methodSignature();
        const QList<QByteArray> names = method.parameterNames();
        for (const QByteArray &name : names)
            text += ' ' + name;
        found << QString::fromLatin1(text);
    }
    QCOMPARE(found, methods);
    QStringList foundProperties;
    for (int i = meta->propertyOffset(); i < meta->propertyCount(); ++i)
        foundProperties << QString::fromLatin1(meta->property(i).name());
    QCOMPARE(foundProperties, properties);
    QCOMPARE(meta->constructorCount(), 0);
}

void TestInterfaces::levelIsAnEnumerationProperty()
{
    const QMetaObject &meta = MemoryPressure::staticMetaObject;
    const QMetaProperty level = meta.property(meta.propertyOffset());
    QVERIFY(level.isEnumType());
    QVERIFY(level.isReadable() && !level.isWritable() && !level.isResettable());
    QCOMPARE(level.enumerator().name(), "MemoryLevel");
    QCOMPARE(level.notifySignalIndex(), meta.indexOfSignal("levelChanged(MemoryLevel)"));
    QCOMPARE(QMetaEnum::fromType<MemoryPressure::MemoryLevel>().valueToKey(100), "LowLevel");
    QCOMPARE(level.read(MemoryPressure::instance()).toInt(), 0);
}

void TestInterfaces::taskStartsWithoutADescription()
{
    qputenv("HALVIR_APP_ID", "myapp");
    Task task("sync");
    const TaskPrivate direct("sync", &task);
    QCOMPARE(int(direct.state), int(Task::Unknown));
    QCOMPARE(direct.taskId, QString("sync"));
    QCOMPARE(direct.qualifiedName, QString("myapp.task_sync"));
    QVERIFY(direct.arguments.isEmpty());
    QVERIFY(direct.properties.isEmpty());
    QCOMPARE(direct.q, &task);
}

void TestInterfaces::lifecycleSlotEmitsAnyCode()
{
    LifecyclePrivate direct(Lifecycle::instance());
    QVERIFY(!direct.parent());
    QCOMPARE(direct.q, Lifecycle::instance());
    QStringList received;
    QObject context;
    connect(Lifecycle::instance(), &Lifecycle::stateChanged, &context,
            [&received](const QString &appInstanceId, const ApplicationState &state) {
                received << QString("%1 %2").arg(appInstanceId).arg(quint32(state));
            });
    direct.onStateChanged("other.instance7", 4294967295U);
    QVERIFY(QMetaObject::invokeMethod(&direct, "onStateChanged", Q_ARG(QString, QString()), Q_ARG(quint32, 3)));
    QCOMPARE(received, QStringList({"other.instance7 4294967295", " 3"}));
}

void TestInterfaces::memoryPressureSlotReadsOnlyTheMap()
{
    MemoryPressurePrivate direct(MemoryPressure::instance());
    QCOMPARE(direct.q, MemoryPressure::instance());
    QCOMPARE(direct.level, 0);
    QVector<int> received;
    QObject context;
    connect(MemoryPressure::instance(), &MemoryPressure::levelChanged, &context,
            [&](MemoryPressure::MemoryLevel level) {
                QCOMPARE(direct.level, int(level)); // the value is stored before the signal
                received << int(level);
            });
    const QString level = "Level";
    direct.onPropertiesChanged({}, {{level, 150}}, {level});
    direct.onPropertiesChanged("com.example.Other", {{level, 150}}, {});
    direct.onPropertiesChanged({}, {}, {level});
    direct.onPropertiesChanged({}, {{"level", 7}}, {});
    direct.onPropertiesChanged({}, {{level, "high"}}, {});
    QCOMPARE(received, QVector<int>({150, 0}));
    QVERIFY(peer.roundTrip());
}

void TestInterfaces::deletedLifecycleIsReturnedAgain()
{
    // The last test, because the pointer is not reset.
    const Lifecycle *lifecycle = Lifecycle::instance();
    delete lifecycle;
    QCOMPARE(static_cast<const void *>(Lifecycle::instance()), static_cast<const void *>(lifecycle));
    peer.emitSignal("Lifecycle1", CORVANE_SERVICE_ROOT ".Lifecycle1", "StateChanged",
                    "('a', uint32 2)"); // has no receiver
}

QTEST_GUILESS_MAIN(TestInterfaces)
#include "tst_interfaces.moc"
