// SPDX-License-Identifier: BSD-3-Clause
// onFinished(), which connects each pending call to its callback.
#include <DBus/pending_call.h>

#include <patience.h>
#include <service_peer.h>

#include <QtDBus/QDBusConnection>
#include <QtDBus/QDBusMessage>
#include <QtTest/QtTest>

using namespace Corvane;

namespace {

QDBusMessage roundTrip()
{
    QString path = "/" CORVANE_SERVICE_ROOT "/Test";
    return QDBusMessage::createMethodCall(CORVANE_SERVICE_ROOT, path.replace('.', '/'), CORVANE_SERVICE_ROOT ".Test",
                                          "RoundTrip");
}

} // namespace

class TestPendingCall : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void init();
    void handlersAreCalledLater();
    void handlersAreCalledOnce();
    void handlersAreCalledInOrder_data();
    void handlersAreCalledInOrder();
    void handlerOfADeletedOwnerIsNotCalled();

private:
    void watch(const char *name, const QDBusPendingCall &call);
    void receiveReplies();

    ServicePeer peer;
    QObject owner;
    QStringList finished;
};

void TestPendingCall::init()
{
    finished.clear();
}

void TestPendingCall::watch(const char *name, const QDBusPendingCall &call)
{
    onFinished(call, &owner, [this, name](const QDBusPendingCall &) { finished << name; });
}

/// Waits for the replies to all calls, without running the event loop: no handler is called.
void TestPendingCall::receiveReplies()
{
    const int before = finished.size();
    QCOMPARE(QDBusConnection::sessionBus().call(roundTrip(), QDBus::Block).type(), QDBusMessage::ReplyMessage);
    QCOMPARE(finished.size(), before);
}

void TestPendingCall::handlersAreCalledLater()
{
    watch("null", QDBusConnection("none").asyncCall(roundTrip()));
    watch("refused", refusedCall("the reason"));
    const QDBusPendingCall replied = QDBusConnection::sessionBus().asyncCall(roundTrip());
    receiveReplies();
    QVERIFY(replied.isFinished());
    watch("replied", replied);
    watch("in flight", QDBusConnection::sessionBus().asyncCall(roundTrip()));
    QCOMPARE(finished, QStringList());
    QTRY_COMPARE(finished, QStringList({"null", "refused", "replied", "in flight"}));
}

void TestPendingCall::handlersAreCalledOnce()
{
    watch("refused", refusedCall("the reason"));
    watch("in flight", QDBusConnection::sessionBus().asyncCall(roundTrip()));
    QTRY_COMPARE(finished.size(), 2);
    QVERIFY(peer.roundTrip());
    QCoreApplication::sendPostedEvents();
    QCOMPARE(finished.size(), 2);
}

void TestPendingCall::handlersAreCalledInOrder_data()
{
    QTest::addColumn<QString>("order"); // of the calls; r: refused, a: answered

    for (const char *order : {"ra", "ar", "rra", "rar", "ara", "aarr", "rarara"})
        QTest::newRow(order) << QString::fromLatin1(order);
}

/// All calls have finished when the event loop runs.
void TestPendingCall::handlersAreCalledInOrder()
{
    QFETCH(QString, order);

    QStringList expected;
    for (const QChar kind : qAsConst(order)) {
        const QString name = QString::number(expected.size()) + kind;
        expected << name;
        const auto note = [this, name](const QDBusPendingCall &) { finished << name; };
        if (kind == 'r') {
            onFinished(refusedCall("the reason"), &owner, note);
        } else {
            onFinished(QDBusConnection::sessionBus().asyncCall(roundTrip()), &owner, note);
            receiveReplies();
        }
    }
    QTRY_COMPARE(finished.size(), expected.size());
    QCOMPARE(finished, expected);
}

void TestPendingCall::handlerOfADeletedOwnerIsNotCalled()
{
    auto *gone = new QObject;
    int calls = 0;
    const auto count = [&calls](const QDBusPendingCall &) { ++calls; };
    onFinished(refusedCall("the reason"), gone, count);
    onFinished(QDBusConnection::sessionBus().asyncCall(roundTrip()), gone, count);
    receiveReplies();
    delete gone;
    watch("last", refusedCall("the reason"));
    QTRY_COMPARE(finished.size(), 1);
    QCOMPARE(calls, 0);
}

QTEST_GUILESS_MAIN(TestPendingCall)
#include "tst_pending_call.moc"
