// SPDX-License-Identifier: BSD-3-Clause
// Queued connections and QSignalSpy, in a process that has called registerMetaTypes().
#include <Corvane/meta_types.h>

#include "signals.h"

#include <patience.h>
#include <service_peer.h>

#include <QtCore/QMetaMethod>
#include <QtCore/QThread>
#include <QtTest/QSignalSpy>
#include <QtTest/QtTest>

class TestMetaTypes : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void initTestCase();
    void cleanupTestCase();
    void argumentsOfAllSignalsAreRegistered();
    void registeringAgainChangesNothing();
    void queuedSignalsArriveByText();
    void queuedSignalsArriveByPointer();
    void signalsCrossThreads();
    void spiesKeepTheArguments();

private:
    ServicePeer peer;
};

void TestMetaTypes::initTestCase()
{
    Corvane::registerMetaTypes();
    peer.answer("(@a{sv} {},)", "GetAll");
}

/// Waits for the replies to the calls of the singletons.
void TestMetaTypes::cleanupTestCase()
{
    QVERIFY(peer.roundTrip());
}

void TestMetaTypes::argumentsOfAllSignalsAreRegistered()
{
    int count = 0;
    for (const QMetaObject *meta :
         {&Corvane::IntentsInvoker::staticMetaObject, &Corvane::Lifecycle::staticMetaObject,
          &Corvane::MemoryPressure::staticMetaObject, &Corvane::RuntimeDispatcher::staticMetaObject,
          &Corvane::Task::staticMetaObject, &Corvane::TaskMessaging::staticMetaObject}) {
        for (int i = meta->methodOffset(); i < meta->methodCount(); ++i) {
            if (meta->method(i).methodType() != QMetaMethod::Signal)
                continue;
            ++count;
            const QList<QByteArray> types = meta->method(i).parameterTypes();
            for (const QByteArray &type : types)
                QVERIFY2(QMetaType::type(type) != QMetaType::UnknownType, type);
        }
    }
    QCOMPARE(count, 6);
    for (const char *name : {"Task::State", "State", "ApplicationState", "MemoryLevel"}) {
        const QMetaType type(QMetaType::type(name));
        QVERIFY2(type.flags().testFlag(QMetaType::IsEnumeration), name);
        QCOMPARE(type.sizeOf(), 4);
    }
    QVERIFY(QMetaType::type("Task::State") != QMetaType::type("State"));
}

void TestMetaTypes::registeringAgainChangesNothing()
{
    const int state = QMetaType::type("State");
    const int applicationState = QMetaType::type("ApplicationState");
    const Senders senders; // their constructors register the record types
    Corvane::registerMetaTypes();
    QCOMPARE(QMetaType::type("State"), state);
    QCOMPARE(QMetaType::type("ApplicationState"), applicationState);
}

void TestMetaTypes::queuedSignalsArriveByText()
{
    Senders senders;
    SignalReceiver receiver;
    QCOMPARE(senders.connectByText(&receiver, Qt::QueuedConnection), 6);
    senders.emitAll();
    QCOMPARE(receiver.received, QStringList());
    QCoreApplication::sendPostedEvents(&receiver, QEvent::MetaCall);
    QCOMPARE(receiver.received, Senders::emitted());
}

void TestMetaTypes::queuedSignalsArriveByPointer()
{
    Senders senders;
    SignalReceiver receiver;
    QCOMPARE(senders.connectByPointer(&receiver, Qt::QueuedConnection), 6);
    senders.emitAll();
    QCOMPARE(receiver.received, QStringList());
    QCoreApplication::sendPostedEvents(&receiver, QEvent::MetaCall);
    QCOMPARE(receiver.received, Senders::emitted());
}

void TestMetaTypes::signalsCrossThreads()
{
    Senders senders;
    SignalReceiver receiver;
    QThread thread;
    receiver.moveToThread(&thread);
    QCOMPARE(senders.connectByText(&receiver, Qt::AutoConnection), 6);
    QCOMPARE(senders.connectByPointer(&receiver, Qt::AutoConnection), 6);
    senders.emitAll();
    thread.start();
    QMetaObject::invokeMethod(
        &receiver, [] {}, Qt::BlockingQueuedConnection); // handled after all signals
    thread.quit();
    QVERIFY(thread.wait());
    QStringList twice;
    const QStringList emitted = Senders::emitted();
    for (const QString &text : emitted)
        twice << text << text;
    QCOMPARE(receiver.received, twice);
}

void TestMetaTypes::spiesKeepTheArguments()
{
    Senders senders;
    QSignalSpy replies(&senders.invoker, SIGNAL(replyReceived(QJsonObject, Corvane::Error)));
    QSignalSpy applicationStates(senders.lifecycle, SIGNAL(stateChanged(QString, ApplicationState)));
    QSignalSpy levels(senders.memoryPressure, SIGNAL(levelChanged(MemoryLevel)));
    QSignalSpy taskStates(&senders.task, &Corvane::Task::stateChanged);
    QSignalSpy channelStates(&senders.channel, &Corvane::TaskMessaging::stateChanged);
    QSignalSpy messages(&senders.channel, &Corvane::TaskMessaging::messageReceived);
    senders.emitAll();

    QCOMPARE(replies.size(), 1);
    QCOMPARE(replies[0][0].toJsonObject(), QJsonObject({{"a", 1}}));
    QCOMPARE(replies[0][1].value<Corvane::Error>().code(), Corvane::Error::Failed);
    QCOMPARE(replies[0][1].value<Corvane::Error>().message(), QString("text"));
    QCOMPARE(applicationStates.size(), 1);
    QCOMPARE(applicationStates[0][0].toString(), QString("demo.instance1"));
    QCOMPARE(applicationStates[0][1].userType(), QMetaType::type("ApplicationState"));
    QCOMPARE(applicationStates[0][1].toUInt(), 4294967295);
    QCOMPARE(levels.size(), 1);
    QCOMPARE(levels[0][0].toInt(), int(Corvane::MemoryPressure::CriticalLevel));
    QCOMPARE(taskStates.size(), 1);
    QCOMPARE(taskStates[0][0].userType(), QMetaType::type("Task::State"));
    QCOMPARE(taskStates[0][0].toInt(), int(Corvane::Task::Waiting));
    QCOMPARE(channelStates.size(), 1);
    QCOMPARE(channelStates[0][0].userType(), QMetaType::type("State"));
    QCOMPARE(channelStates[0][0].toInt(), int(Corvane::TaskMessaging::Closing));
    QCOMPARE(messages.size(), 1);
    QCOMPARE(messages[0][0].toJsonObject(), QJsonObject({{"a", 1}}));
}

QTEST_GUILESS_MAIN(TestMetaTypes)
#include "tst_meta_types.moc"
