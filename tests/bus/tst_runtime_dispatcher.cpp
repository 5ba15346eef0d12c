// SPDX-License-Identifier: BSD-3-Clause
#include <Corvane/runtime_dispatcher.h>
#include <Corvane/runtime_dispatcher_p.h>
#include <DBus/names.h>

#include <message_log.h>
#include <patience.h>
#include <service_peer.h>

#include <QtDBus/QDBusConnection>
#include <QtDBus/QDBusMessage>
#include <QtTest/QtTest>

#include <memory>
#include <optional>

using namespace Corvane;

namespace {

const QString InstanceId = QStringLiteral("demo.instance1");

} // namespace

class TestRuntimeDispatcher : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void init();
    void cleanup();
    void identityIsReadFromTheEnvironment();
    void identityIsReadOnce();
    void environmentIsReadAsUtf8();
    void instanceIsCreatedOnceAndAgainAfterDeletion();
    void aNewDispatcherReplacesTheInstance();
    void deletingAnyDispatcherResetsTheInstance_data();
    void deletingAnyDispatcherResetsTheInstance();
    void dispatcherHasNoParent();
    void callbackDependsOnTheKindOfProcess_data();
    void callbackDependsOnTheKindOfProcess();
    void callbackRunsAtOnceAndOnce();
    void callbacksMayDeleteTheDispatcher_data();
    void callbacksMayDeleteTheDispatcher();
    void emptyCallbacksThrow();
    void localServerSocketIsTheNumberInTheEnvironment_data();
    void localServerSocketIsTheNumberInTheEnvironment();
    void startingClaimsTheName();
    void startingTwiceRequestsTheNameAgain();
    void stoppingReleasesTheName();
    void stoppingWithoutTheNameSucceeds();
    void ownedNameIsAnError();
    void usedObjectPathIsAnError();
    void secondDispatcherWaitsForThePath();
    void errorForAnInvalidNameComesFromTheBus();
    void startServiceRegistersTheObject();
    void startServiceCanBeInvokedByName();
    void startServiceCanBeInvokedByIndex();

private:
    ServicePeer peer;
    std::optional<MessageLog> log;
};

void TestRuntimeDispatcher::init()
{
    qputenv("HALVIR_APP_ID", "demo");
    qputenv("HALVIR_APP_INSTANCE_ID", InstanceId.toUtf8());
    qunsetenv("HALVIR_TASK_ID");
    qunsetenv("HALVIR_TASK_FD");
    log.emplace();
}

void TestRuntimeDispatcher::cleanup()
{
    static_cast<void>(RuntimeDispatcher::instance()->stopService()); // the bus may refuse the name
    delete RuntimeDispatcher::instance();
    log.reset();
}

void TestRuntimeDispatcher::identityIsReadFromTheEnvironment()
{
    QCOMPARE(RuntimeDispatcher::instance()->applicationId(), QString("demo"));
    QCOMPARE(RuntimeDispatcher::instance()->applicationInstanceId(), InstanceId);
    QCOMPARE(RuntimeDispatcher::instance()->taskId(), QString());
}

void TestRuntimeDispatcher::identityIsReadOnce()
{
    auto *dispatcher = RuntimeDispatcher::instance();
    qputenv("HALVIR_APP_ID", "other");
    qputenv("HALVIR_APP_INSTANCE_ID", "other.instance1");
    qputenv("HALVIR_TASK_ID", "other");
    QCOMPARE(dispatcher->applicationId(), QString("demo"));
    QCOMPARE(dispatcher->applicationInstanceId(), InstanceId);
    QCOMPARE(dispatcher->taskId(), QString());
}

void TestRuntimeDispatcher::environmentIsReadAsUtf8()
{
    qputenv("HALVIR_APP_ID", "\xc5\xbelu\xc5\xa5");
    qputenv("HALVIR_APP_INSTANCE_ID", "\xc5\xa5");
    qputenv("HALVIR_TASK_ID", "\xf0\x9f\x90\x8e");
    QCOMPARE(RuntimeDispatcher::instance()->applicationId(), QString::fromUtf8("žluť"));
    QCOMPARE(RuntimeDispatcher::instance()->applicationInstanceId(), QString::fromUtf8("ť"));
    QCOMPARE(RuntimeDispatcher::instance()->taskId(), QString::fromUtf8("🐎"));
}

void TestRuntimeDispatcher::instanceIsCreatedOnceAndAgainAfterDeletion()
{
    auto *first = RuntimeDispatcher::instance();
    QCOMPARE(RuntimeDispatcher::instance(), first);
    delete first;
    qputenv("HALVIR_APP_ID", "again");
    QCOMPARE(RuntimeDispatcher::instance()->applicationId(), QString("again"));
}

void TestRuntimeDispatcher::aNewDispatcherReplacesTheInstance()
{
    const std::unique_ptr<RuntimeDispatcher> first(RuntimeDispatcher::instance());
    auto *second = new RuntimeDispatcher;
    QCOMPARE(RuntimeDispatcher::instance(), second);
    delete second;
}

void TestRuntimeDispatcher::deletingAnyDispatcherResetsTheInstance_data()
{
    QTest::addColumn<bool>("deletesOlder");

    QTest::newRow("the older") << true;
    QTest::newRow("the newer") << false;
}

void TestRuntimeDispatcher::deletingAnyDispatcherResetsTheInstance()
{
    QFETCH(bool, deletesOlder);

    std::unique_ptr<RuntimeDispatcher> older(RuntimeDispatcher::instance());
    auto newer = std::make_unique<RuntimeDispatcher>();
    (deletesOlder ? older : newer).reset();

    qputenv("HALVIR_APP_ID", "fresh");
    auto *fresh = RuntimeDispatcher::instance();
    QVERIFY(fresh != (deletesOlder ? newer : older).get());
    QCOMPARE(fresh->applicationId(), QString("fresh"));
    QCOMPARE(RuntimeDispatcher::instance(), fresh);
    delete fresh;
}

void TestRuntimeDispatcher::dispatcherHasNoParent()
{
    QVERIFY(!RuntimeDispatcher::instance()->parent());
    const RuntimeDispatcherPrivate direct(RuntimeDispatcher::instance());
    QVERIFY(!direct.parent());
    QCOMPARE(direct.q, RuntimeDispatcher::instance());
    QVERIFY(!static_cast<const QDBusContext &>(direct).calledFromDBus());
}

void TestRuntimeDispatcher::callbackDependsOnTheKindOfProcess_data()
{
    QTest::addColumn<QByteArray>("taskId");
    QTest::addColumn<QString>("taskName");
    QTest::addColumn<QString>("called");

    QTest::newRow("application") << QByteArray() << "sync"
                                 << "application";
    QTest::newRow("application, any task") << QByteArray() << ""
                                           << "application";
    QTest::newRow("the task") << QByteArray("sync") << "sync"
                              << "task sync";
    QTest::newRow("any task") << QByteArray("sync") << ""
                              << "task sync";
    QTest::newRow("another task") << QByteArray("sync") << "other"
                                  << "";
    QTest::newRow("another case") << QByteArray("sync") << "Sync"
                                  << "";
}

void TestRuntimeDispatcher::callbackDependsOnTheKindOfProcess()
{
    QFETCH(QByteArray, taskId);
    QFETCH(QString, taskName);
    QFETCH(QString, called);

    if (!taskId.isEmpty())
        qputenv("HALVIR_TASK_ID", taskId);
    QString actual;
    RuntimeDispatcher::instance()->onApplicationStarted([&actual] { actual += "application"; });
    RuntimeDispatcher::instance()->onTaskStarted(taskName, [&actual](const QString &id) { actual += "task " + id; });
    QCOMPARE(actual, called);
}

void TestRuntimeDispatcher::callbackRunsAtOnceAndOnce()
{
    int count = 0;
    RuntimeDispatcher::instance()->onApplicationStarted([&count] { ++count; });
    QCOMPARE(count, 1);
    QVERIFY(!RuntimeDispatcher::instance()->startService());
    QVERIFY(peer.roundTrip());
    QCOMPARE(count, 1);
}

void TestRuntimeDispatcher::callbacksMayDeleteTheDispatcher_data()
{
    QTest::addColumn<QByteArray>("taskId");

    QTest::newRow("application") << QByteArray();
    QTest::newRow("task") << QByteArray("sync");
}

void TestRuntimeDispatcher::callbacksMayDeleteTheDispatcher()
{
    QFETCH(QByteArray, taskId);

    if (!taskId.isEmpty())
        qputenv("HALVIR_TASK_ID", taskId);
    auto *dispatcher = RuntimeDispatcher::instance();
    QPointer<RuntimeDispatcher> alive = dispatcher;
    QString received;
    dispatcher->onApplicationStarted([dispatcher] { delete dispatcher; });
    if (alive) {
        dispatcher->onTaskStarted({}, [dispatcher, &received](const QString &id) {
            delete dispatcher;
            received = id + '!'; // reads the id after the deletion
        });
    }
    QVERIFY(!alive);
    QCOMPARE(received, taskId.isEmpty() ? QString() : "sync!");
}

void TestRuntimeDispatcher::emptyCallbacksThrow()
{
    QVERIFY_EXCEPTION_THROWN(RuntimeDispatcher::instance()->onApplicationStarted({}), std::bad_function_call);
    RuntimeDispatcher::instance()->onTaskStarted({}, {}); // the empty callback is not called
    delete RuntimeDispatcher::instance();
    qputenv("HALVIR_TASK_ID", "sync");
    QVERIFY_EXCEPTION_THROWN(RuntimeDispatcher::instance()->onTaskStarted({}, {}), std::bad_function_call);
    RuntimeDispatcher::instance()->onApplicationStarted({});
}

void TestRuntimeDispatcher::localServerSocketIsTheNumberInTheEnvironment_data()
{
    QTest::addColumn<QByteArray>("value");
    QTest::addColumn<int>("expected");

    QTest::newRow("number") << QByteArray("7") << 7;
    QTest::newRow("negative") << QByteArray("-1") << -1;
    QTest::newRow("letters") << QByteArray("seven") << 0;
    QTest::newRow("number and letters") << QByteArray("7x") << 0;
    QTest::newRow("leading zero is decimal") << QByteArray("010") << 10;
    QTest::newRow("hexadecimal") << QByteArray("0x10") << 0;
    QTest::newRow("too large") << QByteArray("99999999999") << 0;
    QTest::newRow("empty") << QByteArray("") << 0;
}

void TestRuntimeDispatcher::localServerSocketIsTheNumberInTheEnvironment()
{
    QFETCH(QByteArray, value);
    QFETCH(int, expected);

    QCOMPARE(RuntimeDispatcher::instance()->localServerSocket(), 0); // not set
    qputenv("HALVIR_TASK_FD", value); // the variable is read at each call
    QCOMPARE(RuntimeDispatcher::instance()->localServerSocket(), expected);
}

void TestRuntimeDispatcher::startingClaimsTheName()
{
    QVERIFY(!peer.hasOwner(InstanceId));
    const Error error = RuntimeDispatcher::instance()->startService();
    QCOMPARE(error.code(), Error::NoError);
    QCOMPARE(error.message(), QString());
    QVERIFY(peer.hasOwner(InstanceId));
}

void TestRuntimeDispatcher::startingTwiceRequestsTheNameAgain()
{
    QVERIFY(!RuntimeDispatcher::instance()->startService());
    QVERIFY(!RuntimeDispatcher::instance()->startService());
    QVERIFY(peer.hasOwner(InstanceId));
}

void TestRuntimeDispatcher::stoppingReleasesTheName()
{
    auto *dispatcher = RuntimeDispatcher::instance();
    QVERIFY(!dispatcher->startService());
    QVERIFY(!dispatcher->stopService());
    QVERIFY(!peer.hasOwner(InstanceId));

    // The object is still registered: a second registration would fail.
    QVERIFY(QDBusConnection::sessionBus().objectRegisteredAt(Names::IntentHandler.path()));
    QVERIFY(!dispatcher->startService());
    QVERIFY(peer.hasOwner(InstanceId));
}

void TestRuntimeDispatcher::stoppingWithoutTheNameSucceeds()
{
    QVERIFY(!RuntimeDispatcher::instance()->stopService());
}

void TestRuntimeDispatcher::ownedNameIsAnError()
{
    qputenv("HALVIR_APP_INSTANCE_ID", "demo.taken");
    peer.claimName("demo.taken");
    const Error error = RuntimeDispatcher::instance()->startService();
    QCOMPARE(error.code(), Error::Failed);
    QCOMPARE(error.message(), QString("The bus name demo.taken is taken"));
}

void TestRuntimeDispatcher::usedObjectPathIsAnError()
{
    QObject other;
    QVERIFY(QDBusConnection::sessionBus().registerObject(Names::IntentHandler.path(), &other));
    const Error error = RuntimeDispatcher::instance()->startService();
    QCOMPARE(error.code(), Error::Failed);
    QCOMPARE(error.message(), QString("Registration failed"));
    QVERIFY(!peer.hasOwner(InstanceId));

    QDBusConnection::sessionBus().unregisterObject(Names::IntentHandler.path());
    QVERIFY(!RuntimeDispatcher::instance()->startService());
}

void TestRuntimeDispatcher::secondDispatcherWaitsForThePath()
{
    auto first = std::make_unique<RuntimeDispatcher>();
    QVERIFY(!first->startService());
    RuntimeDispatcher second;
    second.registerIntent("Ask", [](const QJsonObject &, const auto &reply) { reply({}); });
    QCOMPARE(second.startService().message(), QString("Registration failed"));
    QVERIFY(peer.hasOwner(InstanceId)); // this process owns the name
    QVERIFY(!second.stopService());
    QVERIFY(!peer.hasOwner(InstanceId));

    first.reset();
    QVERIFY(!second.startService());
    const QString answer = peer.call("HandleIntent", "('Ask', @a{sv} {})").text;
    QVERIFY2(answer.startsWith("(a{sv}a{sv})"), qUtf8Printable(answer));
}

void TestRuntimeDispatcher::errorForAnInvalidNameComesFromTheBus()
{
    qunsetenv("HALVIR_APP_INSTANCE_ID");
    const Error error = RuntimeDispatcher::instance()->startService();
    QCOMPARE(error.code(), Error::InvalidArgs);
    QDBusMessage request =
        QDBusMessage::createMethodCall("org.freedesktop.DBus", "/", "org.freedesktop.DBus", "RequestName");
    request << QString() << 0u;
    QCOMPARE(error.message(), QDBusConnection::sessionBus().call(request).errorMessage());
    QCOMPARE(RuntimeDispatcher::instance()->stopService().code(), Error::InvalidArgs);
}

void TestRuntimeDispatcher::startServiceRegistersTheObject()
{
    const auto onTheBus = [] { return QDBusConnection::sessionBus().objectRegisteredAt(Names::IntentHandler.path()); };
    auto *dispatcher = RuntimeDispatcher::instance();
    QVERIFY(!onTheBus());
    dispatcher->registerIntent("Ask", [](const QJsonObject &, const auto &reply) { reply({}); });
    QVERIFY(!onTheBus());
    QVERIFY(!dispatcher->startService().isError());
    QVERIFY(qobject_cast<RuntimeDispatcherPrivate *>(onTheBus()));
    delete dispatcher;
    QVERIFY(!onTheBus());
}

void TestRuntimeDispatcher::startServiceCanBeInvokedByName()
{
    const QMetaObject &type = RuntimeDispatcher::staticMetaObject;
    for (const char *name : {"startService", "stopService"}) {
        const QMetaMethod method = type.method(type.methodOffset() + (qstrcmp(name, "startService") == 0 ? 0 : 1));
        QCOMPARE(method.name(), QByteArray(name));
        QCOMPARE(QByteArray(method.typeName()), QByteArray("Error"));

        Error error(Error::Failed, "untouched");
        QVERIFY(QMetaObject::invokeMethod(RuntimeDispatcher::instance(), name,
                                          QReturnArgument<Corvane::Error>("Error", error)));
        QCOMPARE(error.code(), Error::NoError);
    }
}

void TestRuntimeDispatcher::startServiceCanBeInvokedByIndex()
{
    const QMetaObject &type = RuntimeDispatcher::staticMetaObject;
    QCOMPARE(type.methodCount() - type.methodOffset(), 2); // no other methods
    for (int index = 0; index < 2; ++index) {
        Error error(Error::Failed, "untouched");
        const QMetaMethod method = type.method(type.methodOffset() + index);
        QCOMPARE(method.parameterCount(), 0);
        QVERIFY(method.invoke(RuntimeDispatcher::instance(), QReturnArgument<Corvane::Error>("Error", error)));
        QCOMPARE(error.code(), Error::NoError);
        QCOMPARE(peer.hasOwner(InstanceId), index == 0);
    }
}

QTEST_GUILESS_MAIN(TestRuntimeDispatcher)
#include "tst_runtime_dispatcher.moc"
