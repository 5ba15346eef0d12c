// SPDX-License-Identifier: BSD-3-Clause
// The peer of the tests. Its results are complete although the bus and the pipe have no order between them.
#include <patience.h>
#include <service_peer.h>

#include <QtDBus/QDBusConnection>
#include <QtDBus/QDBusMessage>
#include <QtDBus/QDBusPendingCall>
#include <QtDBus/QDBusUnixFileDescriptor>
#include <QtTest/QtTest>

namespace {

const QString Root = QStringLiteral(CORVANE_SERVICE_ROOT);
const QString Stop = QStringLiteral("Stop (sb) ('demo.task_sync', true)");

QString pathOf(const QString &interface)
{
    return '/' + QString(interface).replace('.', '/');
}

QDBusMessage stopCall()
{
    const QString interface = Root + ".Tasks1";
    QDBusMessage call = QDBusMessage::createMethodCall(Root, pathOf(interface), interface, "Stop");
    call << "demo.task_sync" << true;
    return call;
}

} // namespace

class TestServicePeer : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void repliedCallsAreReported();
    void callsMadeBeforeABusRoundTripAreReported();
    void killedPeerHasReportedItsCalls();
    void signalsSentBeforeABusRoundTripAreReported();
    void releaseWaitsForTheCall();

private:
    ServicePeer peer;
    QDBusConnection bus = QDBusConnection::sessionBus();
};

void TestServicePeer::repliedCallsAreReported()
{
    // A blocking call: the pipe is not read until the reply has arrived.
    for (int i = 0; i < 3; ++i) {
        QCOMPARE(bus.call(stopCall()).type(), QDBusMessage::ReplyMessage);
        QCOMPARE(peer.calls(), QStringList(Stop));
        QCOMPARE(bus.call(stopCall()).type(), QDBusMessage::ReplyMessage);
        QCOMPARE(peer.takeCalls(), QStringList({Stop, Stop}));
    }

    QFile file("/dev/null");
    QVERIFY(file.open(QIODevice::ReadOnly));
    const QString interface = Root + ".Intents1";
    QDBusMessage call = QDBusMessage::createMethodCall(Root, pathOf(interface), interface, "InvokeIntent");
    call << "X" << QVariantMap{{"fd", QVariant::fromValue(QDBusUnixFileDescriptor(file.handle()))}} << QVariantMap();
    QCOMPARE(bus.call(call).type(), QDBusMessage::ReplyMessage);
    QCOMPARE(peer.descriptors(), QStringList("read: "));
    peer.takeCalls();
}

void TestServicePeer::callsMadeBeforeABusRoundTripAreReported()
{
    for (int i = 0; i < 20; ++i) {
        bus.send(stopCall());
        QVERIFY(peer.busRoundTrip());
        QCOMPARE(peer.takeCalls(), QStringList(Stop));
    }
}

void TestServicePeer::killedPeerHasReportedItsCalls()
{
    QCOMPARE(bus.call(stopCall()).type(), QDBusMessage::ReplyMessage);
    peer.kill();
    QCOMPARE(peer.takeCalls(), QStringList(Stop));
    peer.start();
}

void TestServicePeer::signalsSentBeforeABusRoundTripAreReported()
{
    peer.ownServiceName(false);
    QVERIFY(bus.registerService(Root));
    peer.watchSignals();
    for (int i = 0; i < 20; ++i) {
        bus.send(QDBusMessage::createSignal("/", "com.example.Some", "Changed") << i);
        QVERIFY(peer.busRoundTrip());
        QCOMPARE(peer.takeSignals(), QStringList(QString("Changed (i) (%1,)").arg(i)));
    }
    QVERIFY(bus.unregisterService(Root));
    peer.ownServiceName(true);
}

void TestServicePeer::releaseWaitsForTheCall()
{
    peer.hold();
    QDBusPendingCall call = QDBusPendingCall::fromError({});
    QTimer::singleShot(0, this, [this, &call] { call = bus.asyncCall(stopCall()); });
    peer.release(0, {}); // arrives at the peer before the call
    QTRY_VERIFY(call.isFinished());
    QVERIFY(!call.isError());
    peer.kill(); // the restarted peer holds no calls
    peer.start();
}

QTEST_GUILESS_MAIN(TestServicePeer)
#include "tst_service_peer.moc"
