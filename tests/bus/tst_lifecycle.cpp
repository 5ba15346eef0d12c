// SPDX-License-Identifier: BSD-3-Clause
#include <Corvane/lifecycle.h>
#include <DBus/names.h>
#include <DBus/types.h>

#include <message_log.h>
#include <patience.h>
#include <service_peer.h>

#include <QtCore/QThread>
#include <QtDBus/QDBusConnection>
#include <QtTest/QtTest>

#include <optional>
#include <type_traits>

using namespace Corvane;

namespace {

const QString InstanceId = QStringLiteral("demo.instance1");
const QString Object = QStringLiteral("Lifecycle1");
const QString Interface = QStringLiteral(CORVANE_SERVICE_ROOT ".Lifecycle1");
const QString StateChanged = QStringLiteral("StateChanged");

} // namespace

class TestLifecycle : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void initTestCase();
    void init();
    void cleanup();
    void thereIsOneInstance();
    void statesAreNumbersOf32Bits();
    void queuedConnectionNeedsTheRegistration();
    void announcementsAreEmitted_data();
    void announcementsAreEmitted();
    void everyAnnouncementIsEmittedOnceAndInOrder();
    void signalsOfAnotherSignatureAreIgnored_data();
    void signalsOfAnotherSignatureAreIgnored();
    void otherSignalsAreIgnored_data();
    void otherSignalsAreIgnored();
    void signalsOfOtherSendersAreIgnored_data();
    void signalsOfOtherSendersAreIgnored();
    void signalsOfARestartedServiceArrive();
    void startingClaimsTheName();
    void stoppingReleasesTheName();
    void nameIsReadAtEachCall();
    void ownedNameIsAnError();
    void unsetNameIsAnError();

private:
    void announce(const QString &body) { peer.emitSignal(Object, Interface, StateChanged, body); }
    QStringList takeStates()
    {
        QStringList taken;
        taken.swap(states);
        return taken;
    }

    ServicePeer peer;
    QStringList states; // "demo.instance1 2"
    std::optional<MessageLog> log;
};

void TestLifecycle::initTestCase()
{
    connect(Lifecycle::instance(), &Lifecycle::stateChanged, this,
            [this](const QString &appInstanceId, const ApplicationState &state) {
                states << QString("%1 %2").arg(appInstanceId).arg(quint32(state));
            });
}

void TestLifecycle::init()
{
    qputenv("HALVIR_APP_INSTANCE_ID", InstanceId.toUtf8());
    log.emplace();
}

void TestLifecycle::cleanup()
{
    QVERIFY(!Lifecycle::instance()->stopService());
    states.clear();
    log.reset();
}

void TestLifecycle::thereIsOneInstance()
{
    QCOMPARE(Lifecycle::instance(), Lifecycle::instance());
    QVERIFY(!Lifecycle::instance()->parent());
    QCOMPARE(Lifecycle::staticMetaObject.methodCount() - Lifecycle::staticMetaObject.methodOffset(), 1);
    QCOMPARE(Lifecycle::staticMetaObject.method(Lifecycle::staticMetaObject.methodOffset()).methodSignature(),
             QByteArray("stateChanged(QString,ApplicationState)"));
}

void TestLifecycle::statesAreNumbersOf32Bits()
{
    static_assert(std::is_same_v<std::underlying_type_t<ApplicationState>, quint32>);
    QCOMPARE(int(UnknownState), 0);
    QCOMPARE(int(LaunchingState), 1);
    QCOMPARE(int(ForegroundState), 2);
    QCOMPARE(int(BackgroundState), 3);
    QCOMPARE(int(SuspendedState), 4);
    QCOMPARE(int(StoppedState), 5);
}

void TestLifecycle::queuedConnectionNeedsTheRegistration()
{
    // The receiver lives in another thread, where each announcement arrives as an event.
    QThread thread;
    thread.start();
    QObject receiver;
    receiver.moveToThread(&thread);
    QAtomicInt lastState(-1);
    const auto connection = [&receiver, &lastState] {
        return connect(Lifecycle::instance(), &Lifecycle::stateChanged, &receiver,
                       [&lastState](const QString &, const ApplicationState &state) { lastState = int(state); });
    };

    const auto early = connection();
    announce("('a', uint32 2)");
    QCOMPARE(log->takeWarnings(),
             QStringList("QObject::connect: Cannot queue arguments of type 'ApplicationState'\n"
                         "(Make sure 'ApplicationState' is registered using qRegisterMetaType().)"));
    QCOMPARE(lastState.loadAcquire(), -1);

    registerRecordTypes(); // as the constructors of other classes do
    connection();
    announce("('a', uint32 3)");
    QTRY_COMPARE(lastState.loadAcquire(), 3);
    thread.quit();
    thread.wait();
}

void TestLifecycle::announcementsAreEmitted_data()
{
    QTest::addColumn<QString>("body");
    QTest::addColumn<QString>("state");

    QTest::newRow("own instance") << "('demo.instance1', uint32 2)"
                                  << "demo.instance1 2";
    QTest::newRow("another instance") << "('other.instance7', uint32 5)"
                                      << "other.instance7 5";
    QTest::newRow("empty instance") << "('', uint32 1)"
                                    << " 1";
    QTest::newRow("instance of any text") << "('a b/ü', uint32 1)" << QString::fromUtf8("a b/ü 1");
    QTest::newRow("code without a name") << "('a', uint32 300)"
                                         << "a 300";
    QTest::newRow("greatest code") << "('a', uint32 4294967295)"
                                   << "a 4294967295";
}

void TestLifecycle::announcementsAreEmitted()
{
    QFETCH(QString, body);
    QFETCH(QString, state);

    announce(body);
    QCOMPARE(takeStates(), QStringList(state));
}

void TestLifecycle::everyAnnouncementIsEmittedOnceAndInOrder()
{
    QStringList expected;
    for (int i = 0; i < 20; ++i) {
        announce(QString("('a', uint32 %1)").arg(i % 3));
        expected << QString("a %1").arg(i % 3);
    }
    QCOMPARE(takeStates(), expected);
}

void TestLifecycle::signalsOfAnotherSignatureAreIgnored_data()
{
    QTest::addColumn<QString>("body");

    QTest::newRow("none") << "()";
    QTest::newRow("instance only") << "('a',)";
    QTest::newRow("code first") << "(uint32 2, 'a')";
    QTest::newRow("signed code") << "('a', 2)";
    QTest::newRow("code of text") << "('a', '2')";
    QTest::newRow("code in a variant") << "('a', <uint32 2>)";
    QTest::newRow("structure") << "(('a', uint32 2),)";
    QTest::newRow("array") << "([('a', uint32 2)],)";
    QTest::newRow("one more") << "('a', uint32 2, 3)";
}

void TestLifecycle::signalsOfAnotherSignatureAreIgnored()
{
    QFETCH(QString, body);

    announce(body);
    QCOMPARE(takeStates(), QStringList());
    announce("('a', uint32 2)");
    QCOMPARE(takeStates(), QStringList("a 2"));
}

void TestLifecycle::otherSignalsAreIgnored_data()
{
    QTest::addColumn<QString>("object");
    QTest::addColumn<QString>("interface");
    QTest::addColumn<QString>("member");

    QTest::newRow("object") << "Tasks1" << Interface << StateChanged;
    QTest::newRow("interface") << Object << CORVANE_SERVICE_ROOT ".Tasks1" << StateChanged;
    QTest::newRow("member") << Object << Interface << "LevelChanged";
    QTest::newRow("case") << Object << Interface << "stateChanged";
}

void TestLifecycle::otherSignalsAreIgnored()
{
    QFETCH(QString, object);
    QFETCH(QString, interface);
    QFETCH(QString, member);

    peer.emitSignal(object, interface, member, "('a', uint32 2)");
    QCOMPARE(takeStates(), QStringList());
}

void TestLifecycle::signalsOfOtherSendersAreIgnored_data()
{
    QTest::addColumn<bool>("unicast");

    QTest::newRow("broadcast") << false;
    QTest::newRow("unicast") << true;
}

void TestLifecycle::signalsOfOtherSendersAreIgnored()
{
    QFETCH(bool, unicast);

    QJsonObject more{{"stranger", true}};
    if (unicast)
        more.insert("destination", QDBusConnection::sessionBus().baseService());
    const auto forge = [this, &more] { peer.emitSignal(Object, Interface, StateChanged, "('a', uint32 2)", more); };
    forge();
    QCOMPARE(takeStates(), QStringList());
    peer.ownServiceName(false);
    forge();
    QCOMPARE(takeStates(), QStringList());
    announce("('a', uint32 2)"); // sent by the previous owner of the service's name
    QCOMPARE(takeStates(), QStringList());
    peer.ownServiceName(true);
    forge();
    QCOMPARE(takeStates(), QStringList());

    more.remove("stranger");
    forge(); // the same signal from the service counts
    QCOMPARE(takeStates(), QStringList("a 2"));
}

void TestLifecycle::signalsOfARestartedServiceArrive()
{
    peer.kill();
    peer.start();
    announce("('a', uint32 2)");
    QCOMPARE(takeStates(), QStringList("a 2"));
}

void TestLifecycle::startingClaimsTheName()
{
    QVERIFY(!peer.hasOwner(InstanceId));
    QVERIFY(!Lifecycle::instance()->startService());
    QVERIFY(peer.hasOwner(InstanceId));
    QVERIFY(!Lifecycle::instance()->startService()); // a second call succeeds
    QVERIFY(peer.hasOwner(InstanceId));
}

void TestLifecycle::stoppingReleasesTheName()
{
    QVERIFY(!Lifecycle::instance()->startService());
    QVERIFY(!Lifecycle::instance()->stopService());
    QVERIFY(!peer.hasOwner(InstanceId));
    QVERIFY(!Lifecycle::instance()->stopService()); // a second call succeeds
}

void TestLifecycle::nameIsReadAtEachCall()
{
    qputenv("HALVIR_APP_INSTANCE_ID", "demo.instance2");
    QVERIFY(!Lifecycle::instance()->startService());
    QVERIFY(peer.hasOwner("demo.instance2"));
    qputenv("HALVIR_APP_INSTANCE_ID", "demo.instance3");
    QVERIFY(!Lifecycle::instance()->stopService()); // succeeds although the process does not own the name
    QVERIFY(peer.hasOwner("demo.instance2"));
    qputenv("HALVIR_APP_INSTANCE_ID", "demo.instance2");
    QVERIFY(!Lifecycle::instance()->stopService());
    QVERIFY(!peer.hasOwner("demo.instance2"));
}

void TestLifecycle::ownedNameIsAnError()
{
    qputenv("HALVIR_APP_INSTANCE_ID", "demo.taken");
    peer.claimName("demo.taken");
    const Error error = Lifecycle::instance()->startService();
    QCOMPARE(error.code(), Error::Failed);
    QCOMPARE(error.message(), QString("The bus name demo.taken is taken"));
}

void TestLifecycle::unsetNameIsAnError()
{
    qunsetenv("HALVIR_APP_INSTANCE_ID");
    QVERIFY(Lifecycle::instance()->startService().isError());
    QVERIFY(Lifecycle::instance()->stopService().isError());
    qputenv("HALVIR_APP_INSTANCE_ID", "no bus name");
    QVERIFY(Lifecycle::instance()->startService().isError());
    QVERIFY(Lifecycle::instance()->stopService().isError());

    qputenv("HALVIR_APP_INSTANCE_ID", InstanceId.toUtf8());
    QVERIFY(!Lifecycle::instance()->startService());
}

QTEST_GUILESS_MAIN(TestLifecycle)
#include "tst_lifecycle.moc"
