// SPDX-License-Identifier: BSD-3-Clause
// The service starts, stops, restarts and is replaced, and the bus hangs and dies.
#include <Corvane/memory_pressure.h>
#include <Corvane/service_monitor.h>
#include <Corvane/service_monitor_p.h>
#include <Corvane/task.h>
#include <Corvane/tasks_interface_p.h>

#include <bus_daemon.h>
#include <message_log.h>
#include <patience.h>
#include <service_peer.h>
#include <under_valgrind.h>

#include <QtDBus/QDBusConnection>
#include <QtDBus/QDBusConnectionInterface>
#include <QtDBus/QDBusMessage>
#include <QtDBus/QDBusPendingCall>
#include <QtTest/QtTest>

#include <memory>
#include <optional>
#include <utility>

using namespace Corvane;

namespace {

const QString Root = QStringLiteral(CORVANE_SERVICE_ROOT);
const QString Subscribe = QStringLiteral("Subscribe");
const QString GetAll = QStringLiteral("GetAll");

QStringList memoryCalls()
{
    return {"Subscribe () ()", QString("GetAll (s) ('%1.MemoryPressure1',)").arg(Root)};
}

QStringList taskCalls()
{
    return {"GetAll () ()"};
}

QString levelAndState(int level, quint32 state)
{
    return QString("({'Level': <%1>, 'State': <[('sync', uint32 %2, @a{sv} {})]>},)").arg(level).arg(state);
}

/// Another process that waits for the service's name.
class Successor
{
public:
    Successor()
    {
        if (connection.interface()->registerService(Root, QDBusConnectionInterface::QueueService).value()
            != QDBusConnectionInterface::ServiceQueued)
            qFatal("The service's name has no owner");
    }
    ~Successor()
    {
        connection.interface()->unregisterService(Root); // waits for the bus
        QDBusConnection::disconnectFromBus("successor");
    }
    Q_DISABLE_COPY(Successor)

private:
    QDBusConnection connection = QDBusConnection::connectToBus(QDBusConnection::SessionBus, "successor");
};

} // namespace

class TestServiceMonitor : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void init();
    void cleanup();

    // No MemoryPressure object, no task
    void refreshWithoutObjectsSendsNothing();

    void runningServiceIsReportedFromTheEventLoop();
    void absentServiceIsNotReported();
    void startAndEndAreReported();
    void restartIsReported();
    void replacementIsReportedAsEndAndStart();
    void replacementIsReportedOnceInANestedEventLoop_data();
    void replacementIsReportedOnceInANestedEventLoop();
    void changeDuringTheFirstCallIsNotLost_data();
    void changeDuringTheFirstCallIsNotLost();
    void answerAfterAChangeIsIgnored();
    void constructorDoesNotWaitForTheBus();
    void deletedMonitorReportsNothing();
    void slotMayDeleteTheMonitor_data();
    void slotMayDeleteTheMonitor();
    void slotMayDeleteAnotherMonitor();

    // From here on, there is a MemoryPressure object
    void memoryPressureAloneIsRefreshed();

    // From here on, there are tasks
    void restartedServiceIsReadAgainOnlyByRefresh();
    void refreshMayBeConnectedToTheSignal();
    void refreshMakesTheStatesKnown();
    void refreshWithoutTheServiceSendsNothing();
    void failedRefreshIsLogged();
    void failedRefreshKeepsTheValues();
    void eachOfManyRefreshesFailsOnce();
    void repliesArriveAfterTheMonitorIsDeleted();

    // From here on, the MemoryPressure object is deleted
    void deletedMemoryPressureIsNotRefreshed();

    // From here on, there is no bus
    void lostBusIsReported();
    void monitorWithoutABusReportsNothing();

private:
    /// Records the signals of a monitor as "available" and "gone".
    void watch(const ServiceMonitor &monitor)
    {
        connect(&monitor, &ServiceMonitor::availableChanged, this, [this, &monitor](bool available) {
            QCOMPARE(monitor.isAvailable(), available);
            QCOMPARE(monitor.availableSince().isValid(), available);
            changes << (available ? "available" : "gone");
        });
    }
    QStringList takeChanges() { return std::exchange(changes, {}); }
    void restart()
    {
        peer.kill();
        peer.start();
    }

    BusDaemon bus;
    ServicePeer peer;
    QStringList changes;
    std::optional<MessageLog> log;
};

void TestServiceMonitor::init()
{
    log.emplace();
    changes.clear();
}

void TestServiceMonitor::cleanup()
{
    if (bus.state() == QProcess::Running) {
        restart(); // with the default replies
        peer.takeCalls();
    }
    log.reset();
}

void TestServiceMonitor::refreshWithoutObjectsSendsNothing()
{
    ServiceMonitor monitor;
    QTRY_VERIFY(monitor.isAvailable());
    monitor.refresh();
    QVERIFY(peer.roundTrip());
    QCOMPARE(peer.calls(), QStringList());
}

void TestServiceMonitor::runningServiceIsReportedFromTheEventLoop()
{
    const QDateTime before = QDateTime::currentDateTimeUtc();
    const ServiceMonitor monitor;
    watch(monitor);
    QVERIFY(!monitor.isAvailable());
    QVERIFY(!monitor.availableSince().isValid());
    QVERIFY(peer.roundTrip());
    QCOMPARE(takeChanges(), QStringList("available"));
    QVERIFY(monitor.isAvailable());
    QCOMPARE(monitor.availableSince().timeSpec(), Qt::UTC);
    QVERIFY(monitor.availableSince() >= before);
    QVERIFY(monitor.availableSince() <= QDateTime::currentDateTimeUtc());
    QCOMPARE(monitor.property("available"), QVariant(true));
    QCOMPARE(monitor.property("availableSince"), QVariant(monitor.availableSince()));
    QCOMPARE(peer.calls(), QStringList()); // the bus replies, not the service
}

void TestServiceMonitor::absentServiceIsNotReported()
{
    peer.ownServiceName(false);
    const ServiceMonitor monitor;
    watch(monitor);
    QVERIFY(peer.busRoundTrip());
    QCOMPARE(takeChanges(), QStringList());
    QVERIFY(!monitor.isAvailable());
    QVERIFY(!monitor.availableSince().isValid());
}

void TestServiceMonitor::startAndEndAreReported()
{
    peer.ownServiceName(false);
    const ServiceMonitor monitor;
    watch(monitor);
    for (int i = 0; i < 2; ++i) {
        peer.ownServiceName(true);
        QVERIFY(peer.busRoundTrip());
        QCOMPARE(takeChanges(), QStringList("available"));
        peer.ownServiceName(false);
        QVERIFY(peer.busRoundTrip());
        QCOMPARE(takeChanges(), QStringList("gone"));
    }
    peer.claimName("com.example.Other");
    QVERIFY(peer.busRoundTrip());
    QCOMPARE(takeChanges(), QStringList());
}

void TestServiceMonitor::restartIsReported()
{
    const ServiceMonitor monitor;
    QTRY_VERIFY(monitor.isAvailable());
    const QDateTime first = monitor.availableSince();
    watch(monitor);
    peer.kill();
    QTRY_COMPARE(changes, QStringList("gone"));
    const QDateTime gone = QDateTime::currentDateTimeUtc();
    peer.start();
    QTRY_COMPARE(changes, QStringList({"gone", "available"}));
    QVERIFY(monitor.availableSince() >= gone);
    QVERIFY(monitor.availableSince() >= first);
}

void TestServiceMonitor::replacementIsReportedAsEndAndStart()
{
    const ServiceMonitor monitor;
    QTRY_VERIFY(monitor.isAvailable());
    watch(monitor);
    const Successor successor;
    QVERIFY(peer.busRoundTrip());
    QCOMPARE(takeChanges(), QStringList()); // the name has the same owner
    peer.ownServiceName(false);
    QVERIFY(peer.busRoundTrip());
    QCOMPARE(takeChanges(), QStringList({"gone", "available"}));
}

void TestServiceMonitor::replacementIsReportedOnceInANestedEventLoop_data()
{
    QTest::addColumn<bool>("comesBack");
    QTest::addColumn<QStringList>("expected");

    QTest::newRow("the successor ends") << false << QStringList("gone");
    QTest::newRow("the service comes back") << true << QStringList({"gone", "available"});
}

void TestServiceMonitor::replacementIsReportedOnceInANestedEventLoop()
{
    QFETCH(bool, comesBack);
    QFETCH(QStringList, expected);

    const ServiceMonitor monitor;
    QTRY_VERIFY(monitor.isAvailable());
    watch(monitor);
    auto successor = std::make_unique<Successor>();
    bool isNested = false;
    connect(&monitor, &ServiceMonitor::availableChanged, this, [&] {
        if (std::exchange(isNested, true))
            return;
        successor.reset();
        if (comesBack)
            peer.ownServiceName(true); // runs an event loop
        QVERIFY(peer.busRoundTrip());
    });
    peer.ownServiceName(false);
    QVERIFY(peer.busRoundTrip());
    QCOMPARE(takeChanges(), expected); // the successor is not reported after its end
    QCOMPARE(monitor.isAvailable(), comesBack);
}

void TestServiceMonitor::changeDuringTheFirstCallIsNotLost_data()
{
    QTest::addColumn<bool>("isRunning"); // when the monitor is created
    QTest::addColumn<QVector<bool>>("later");

    QTest::newRow("the service starts") << false << QVector<bool>{true};
    QTest::newRow("the service ends") << true << QVector<bool>{false};
    QTest::newRow("the service restarts") << true << QVector<bool>{false, true};
    QTest::newRow("the service starts and ends") << false << QVector<bool>{true, false};
}

void TestServiceMonitor::changeDuringTheFirstCallIsNotLost()
{
    QFETCH(bool, isRunning);
    QFETCH(QVector<bool>, later);

    peer.ownServiceName(isRunning);
    peer.setEventLoopBlocked(true);
    const ServiceMonitor monitor;
    watch(monitor);
    for (const bool on : qAsConst(later))
        peer.ownServiceName(on);
    peer.waitUntilRead(); // the answer and the changes are queued
    peer.setEventLoopBlocked(false);
    QCOMPARE(changes, QStringList());
    QVERIFY(peer.busRoundTrip());
    QCOMPARE(monitor.isAvailable(), later.last());
    peer.ownServiceName(!later.last());
    QVERIFY(peer.busRoundTrip());
    QCOMPARE(monitor.isAvailable(), !later.last());
}

void TestServiceMonitor::answerAfterAChangeIsIgnored()
{
    ServiceMonitor monitor;
    ServiceMonitorPrivate started(&monitor);
    started.onOwnerChanged(Root, {}, ":1.999");
    ServiceMonitorPrivate ended(&monitor);
    ended.onOwnerChanged(Root, ":1.999", {});
    QVERIFY(peer.busRoundTrip());
    QCOMPARE(started.owner, QString(":1.999"));
    QCOMPARE(ended.owner, QString());
}

void TestServiceMonitor::constructorDoesNotWaitForTheBus()
{
    bus.hang();
    const QDBusPendingCall earlier = QDBusConnection::sessionBus().asyncCall(QDBusMessage::createMethodCall(
        "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus", "GetId"));
    ServiceMonitor monitor;
    watch(monitor);
    monitor.refresh();
    QCoreApplication::processEvents();
    QVERIFY2(!earlier.isFinished(), "the library has waited for the bus");
    QVERIFY(!monitor.isAvailable());
    bus.goOn();
    QTRY_COMPARE(changes, QStringList("available"));
}

void TestServiceMonitor::deletedMonitorReportsNothing()
{
    {
        const ServiceMonitor monitor;
        watch(monitor);
    }
    QVERIFY(peer.busRoundTrip());
    restart();
    QVERIFY(peer.busRoundTrip());
    QCOMPARE(takeChanges(), QStringList());
}

void TestServiceMonitor::slotMayDeleteTheMonitor_data()
{
    QTest::addColumn<bool>("isRunning"); // when the monitor is created
    QTest::addColumn<bool>("hasSuccessor");
    QTest::addColumn<bool>("signal"); // that deletes the monitor

    QTest::newRow("the bus answers") << true << false << true;
    QTest::newRow("the service starts") << false << false << true;
    QTest::newRow("the service ends") << true << false << false;
    QTest::newRow("the service is replaced") << true << true << false;
}

void TestServiceMonitor::slotMayDeleteTheMonitor()
{
    QFETCH(bool, isRunning);
    QFETCH(bool, hasSuccessor);
    QFETCH(bool, signal);

    std::optional<Successor> successor;
    if (hasSuccessor)
        successor.emplace();
    peer.ownServiceName(isRunning);
    auto *monitor = new ServiceMonitor;
    watch(*monitor);
    connect(monitor, &ServiceMonitor::availableChanged, this, [monitor, signal](bool available) {
        if (available == signal)
            delete monitor;
    });
    QVERIFY(peer.busRoundTrip());
    peer.ownServiceName(!isRunning);
    QVERIFY(peer.busRoundTrip());
    QCOMPARE(changes, signal ? QStringList("available") : QStringList({"available", "gone"}));
}

void TestServiceMonitor::slotMayDeleteAnotherMonitor()
{
    std::unique_ptr<ServiceMonitor> monitors[] = {std::make_unique<ServiceMonitor>(),
                                                  std::make_unique<ServiceMonitor>()};
    for (const auto &monitor : monitors)
        QTRY_VERIFY(monitor->isAvailable());
    for (const int i : {0, 1}) {
        watch(*monitors[i]);
        connect(monitors[i].get(), &ServiceMonitor::availableChanged, this,
                [&other = monitors[1 - i]] { other.reset(); });
    }
    peer.ownServiceName(false);
    QVERIFY(peer.busRoundTrip());
    QCOMPARE(takeChanges(), QStringList("gone")); // of one of them
    QCOMPARE(bool(monitors[0]) + bool(monitors[1]), 1);
}

void TestServiceMonitor::memoryPressureAloneIsRefreshed()
{
    MemoryPressure::instance();
    QVERIFY(peer.roundTrip());
    QCOMPARE(peer.takeCalls(), memoryCalls());
    ServiceMonitor monitor;
    QTRY_VERIFY(monitor.isAvailable());
    monitor.refresh();
    QVERIFY(peer.roundTrip());
    QCOMPARE(peer.calls(), memoryCalls());
}

void TestServiceMonitor::restartedServiceIsReadAgainOnlyByRefresh()
{
    const Task task("sync");
    ServiceMonitor monitor;
    QVERIFY(peer.roundTrip());
    peer.takeCalls();
    peer.kill();
    QTRY_VERIFY(!monitor.isAvailable());
    peer.start();
    QTRY_VERIFY(monitor.isAvailable());
    QVERIFY(peer.roundTrip());
    QCOMPARE(peer.calls(), QStringList());

    peer.answer(levelAndState(100, 1), GetAll);
    monitor.refresh();
    QVERIFY(peer.roundTrip());
    QCOMPARE(peer.calls(), memoryCalls() + taskCalls());
    QCOMPARE(MemoryPressure::instance()->level(), MemoryPressure::LowLevel);
    QCOMPARE(task.state(), Task::Running);
}

void TestServiceMonitor::refreshMayBeConnectedToTheSignal()
{
    const Task task("sync");
    const ServiceMonitor monitor;
    connect(&monitor, &ServiceMonitor::availableChanged, &monitor, &ServiceMonitor::refresh);
    QTRY_VERIFY(monitor.isAvailable()); // the first refresh
    QVERIFY(peer.roundTrip());
    peer.takeCalls();
    for (const int level : {200, 100}) {
        peer.ownServiceName(false);
        peer.answer(levelAndState(level, quint32(level / 100)), GetAll);
        peer.ownServiceName(true);
        QTRY_COMPARE(task.state(), level == 200 ? Task::Waiting : Task::Running); // the last reply
        QCOMPARE(int(MemoryPressure::instance()->level()), level);
        QVERIFY(peer.roundTrip());
        QCOMPARE(peer.takeCalls(), memoryCalls() + taskCalls()); // once
    }
}

void TestServiceMonitor::refreshMakesTheStatesKnown()
{
    TasksInterface *const interface = TasksInterface::instance();
    interface->statesKnown = false; // as after a failed first reading
    ServiceMonitor monitor;
    peer.answer(levelAndState(0, 2), GetAll);
    QTRY_VERIFY(monitor.isAvailable());
    QCOMPARE(Task("sync").state(), Task::Unknown);
    monitor.refresh();
    QVERIFY(!interface->statesKnown);
    QVERIFY(peer.roundTrip());
    QVERIFY(interface->statesKnown);
    QCOMPARE(Task("sync").state(), Task::Waiting);
}

void TestServiceMonitor::refreshWithoutTheServiceSendsNothing()
{
    ServiceMonitor monitor;
    monitor.refresh(); // the bus has not replied yet
    QVERIFY(peer.roundTrip());
    QCOMPARE(peer.calls(), QStringList());
    QVERIFY(monitor.isAvailable());
    peer.ownServiceName(false);
    QVERIFY(peer.busRoundTrip());
    monitor.refresh();
    QVERIFY(peer.busRoundTrip()); // a call would fail with a warning
}

void TestServiceMonitor::failedRefreshIsLogged()
{
    ServiceMonitor monitor;
    QTRY_VERIFY(monitor.isAvailable());
    peer.answerError("com.example.Error.Broken");
    peer.answerError("com.example.Error.Broken", "('the reason',)", Subscribe);
    monitor.refresh();
    QVERIFY(peer.roundTrip());
    const QString error = "QDBusError(\"com.example.Error.Broken\", \"the reason\")";
    QCOMPARE(log->takeWarnings(),
             QStringList({"MemoryPressure subscription failed: " + error, "Failed to get memory level: " + error,
                          "Failed to get the Tasks interface properties " + error}));
}

void TestServiceMonitor::failedRefreshKeepsTheValues()
{
    const Task task("sync");
    ServiceMonitor monitor;
    peer.answer(levelAndState(100, 1), GetAll);
    QTRY_VERIFY(monitor.isAvailable());
    monitor.refresh();
    QVERIFY(peer.roundTrip());
    QCOMPARE(task.state(), Task::Running);

    peer.answerError("com.example.Error.Broken", "('the reason',)", GetAll);
    monitor.refresh();
    QVERIFY(peer.roundTrip());
    QCOMPARE(log->takeWarnings().size(), 2);
    QCOMPARE(MemoryPressure::instance()->level(), MemoryPressure::LowLevel);
    QCOMPARE(task.state(), Task::Running);
    QVERIFY(TasksInterface::instance()->statesKnown);
}

void TestServiceMonitor::eachOfManyRefreshesFailsOnce()
{
    const int count = underValgrind() ? 100 : 10000;
    const Task task("sync");
    ServiceMonitor monitor;
    QTRY_VERIFY(monitor.isAvailable());
    peer.hold();
    for (int i = 0; i < count; ++i)
        monitor.refresh();
    peer.kill();
    QStringList warnings;
    QTRY_COMPARE((warnings += log->takeWarnings(), warnings.size()), 3 * count);
    for (const char *text : {"MemoryPressure subscription failed: ", "Failed to get memory level: ",
                             "Failed to get the Tasks interface properties "})
        QCOMPARE(warnings.filter(text).size(), count);

    peer.start();
    peer.answer(levelAndState(200, 1), GetAll);
    QTRY_VERIFY(monitor.isAvailable());
    monitor.refresh();
    QVERIFY(peer.roundTrip());
    QCOMPARE(MemoryPressure::instance()->level(), MemoryPressure::CriticalLevel);
    QCOMPARE(task.state(), Task::Running);
}

void TestServiceMonitor::repliesArriveAfterTheMonitorIsDeleted()
{
    const Task task("sync");
    peer.answer(levelAndState(100, 2), GetAll);
    auto *monitor = new ServiceMonitor;
    connect(monitor, &ServiceMonitor::availableChanged, this, [monitor] {
        monitor->refresh();
        delete monitor;
    });
    QTRY_COMPARE(task.state(), Task::Waiting); // the last reply
    QCOMPARE(MemoryPressure::instance()->level(), MemoryPressure::LowLevel);
}

void TestServiceMonitor::deletedMemoryPressureIsNotRefreshed()
{
    ServiceMonitor monitor;
    QTRY_VERIFY(monitor.isAvailable());
    peer.hold();
    monitor.refresh();
    QTRY_COMPARE(peer.calls().size(), 3);
    delete MemoryPressure::instance(); // its replies are dropped
    peer.release(0, {});
    peer.release(1, levelAndState(100, 1));
    peer.release(2, levelAndState(100, 1));
    QVERIFY(peer.roundTrip());
    peer.takeCalls();
    peer.hold(false);
    peer.answer(levelAndState(100, 1), GetAll);
    monitor.refresh();
    QVERIFY(peer.roundTrip());
    QCOMPARE(peer.calls(), taskCalls());
}

void TestServiceMonitor::lostBusIsReported()
{
    ServiceMonitor monitor;
    watch(monitor);
    QTRY_COMPARE(changes, QStringList("available"));
    auto *fragile = new ServiceMonitor;
    connect(fragile, &ServiceMonitor::availableChanged, this, [fragile](bool available) {
        if (!available)
            delete fragile;
    });
    QTRY_VERIFY(fragile->isAvailable());
    QVERIFY(peer.roundTrip());
    bus.crash();
    QTRY_COMPARE(changes, QStringList({"available", "gone"}));
    monitor.refresh(); // a call would fail with a warning
    QCoreApplication::processEvents();
}

void TestServiceMonitor::monitorWithoutABusReportsNothing()
{
    QTRY_VERIFY(!QDBusConnection::sessionBus().isConnected());
    ServiceMonitor monitor;
    watch(monitor);
    for (int i = 0; i < 3; ++i) {
        monitor.refresh();
        QCoreApplication::processEvents();
    }
    QCOMPARE(takeChanges(), QStringList());
    QVERIFY(!monitor.isAvailable());
    QVERIFY(!monitor.availableSince().isValid());
}

QTEST_GUILESS_MAIN(TestServiceMonitor)
#include "tst_service_monitor.moc"
