// SPDX-License-Identifier: BSD-3-Clause
// Direct connections of all signals, in a process that has not registered their argument types.
#include "signals.h"

#include <patience.h>
#include <service_peer.h>

#include <QtTest/QtTest>

class TestSignals : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void initTestCase();
    void cleanupTestCase();
    void classesRegisterNoStates();
    void signalsConnectByText();
    void signalsConnectByPointer();
    void unregisteredStatesCannotBeQueued();

private:
    ServicePeer peer;
};

void TestSignals::initTestCase()
{
    peer.answer("(@a{sv} {},)", "GetAll");
}

/// Waits for the replies to the calls of the singletons.
void TestSignals::cleanupTestCase()
{
    QVERIFY(peer.roundTrip());
}

void TestSignals::classesRegisterNoStates()
{
    Corvane::Lifecycle::instance();
    QCOMPARE(QMetaType::type("ApplicationState"), int(QMetaType::UnknownType));
    const Senders senders;
    for (const char *name : {"Task::State", "Corvane::Task::State", "State", "TaskMessaging::State",
                             "Corvane::TaskMessaging::State", "Corvane::ApplicationState"})
        QVERIFY2(QMetaType::type(name) == QMetaType::UnknownType, name);
}

void TestSignals::signalsConnectByText()
{
    Senders senders;
    SignalReceiver receiver;
    QCOMPARE(senders.connectByText(&receiver, Qt::DirectConnection), 6);
    senders.emitAll();
    QCOMPARE(receiver.received, Senders::emitted());
}

void TestSignals::signalsConnectByPointer()
{
    Senders senders;
    SignalReceiver receiver;
    QCOMPARE(senders.connectByPointer(&receiver, Qt::DirectConnection), 6);
    senders.emitAll();
    QCOMPARE(receiver.received, Senders::emitted());
}

void TestSignals::unregisteredStatesCannotBeQueued()
{
    Senders senders;
    const QObject receiver;
    for (const char *name : {"Task::State", "State"}) {
        const bool isTask = *name == 'T';
        QVERIFY(!connect(isTask ? static_cast<const QObject *>(&senders.task) : &senders.channel,
                         isTask ? SIGNAL(stateChanged(Task::State)) : SIGNAL(stateChanged(State)), &receiver,
                         SLOT(deleteLater()), Qt::QueuedConnection));
        QCOMPARE(senders.log.takeWarnings(),
                 QStringList(QString("QObject::connect: Cannot queue arguments of type '%1'\n"
                                     "(Make sure '%1' is registered using qRegisterMetaType().)")
                                 .arg(name)));
    }
}

QTEST_GUILESS_MAIN(TestSignals)
#include "tst_signals.moc"
