// SPDX-License-Identifier: BSD-3-Clause
// A process without a session bus.
#include <Corvane/intent_request.h>
#include <Corvane/intents_invoker.h>
#include <Corvane/lifecycle.h>
#include <Corvane/memory_pressure.h>
#include <Corvane/runtime_dispatcher.h>
#include <Corvane/service_monitor.h>
#include <Corvane/task.h>

#include <message_log.h>
#include <patience.h>
#include <replies.h>

#include <QtTest/QtTest>

using namespace Corvane;

class TestNoBus : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void invokeFailsOnceFromTheEventLoop();
    void requestFailsOnceFromTheEventLoop();
    void invokerMayBeDeletedInItsSlot();
    void deletedInvokerNeverEmits();
    void taskFailsOnceFromTheEventLoop();
    void servicesCannotStart();
    void memoryPressureLogsItsFailures();
    void serviceIsNotAvailable();

private:
    int deliveries = 0; ///< signals; the first one deletes the invoker
};

void TestNoBus::invokeFailsOnceFromTheEventLoop()
{
    IntentsInvoker invoker;
    Replies replies(invoker);
    invoker.invoke("X", {}, {});
    invoker.invoke(QString(QChar(0)), {}, {});
    QCOMPARE(replies.all, QStringList());
    QTRY_COMPARE(replies.all,
                 QStringList({"{} 1 Not connected to D-Bus server", "{} 1 A message cannot hold a text with U+0000"}));
    QCoreApplication::processEvents();
    QCOMPARE(replies.all.size(), 2);
}

void TestNoBus::requestFailsOnceFromTheEventLoop()
{
    IntentsInvoker invoker;
    const IntentRequest *request = invoker.request("X");
    QSignalSpy finished(request, &IntentRequest::finished);
    QVERIFY(!request->isFinished());
    QTRY_COMPARE(finished.size(), 1);
    QCOMPARE(request->state(), IntentRequest::Failed);
    QCOMPARE(request->error().message(), QString("Not connected to D-Bus server"));
    QCoreApplication::processEvents();
    QCOMPARE(finished.size(), 1);
}

void TestNoBus::invokerMayBeDeletedInItsSlot()
{
    auto *invoker = new IntentsInvoker;
    deliveries = 0;
    connect(invoker, &IntentsInvoker::replyReceived, this, [this, invoker] {
        ++deliveries;
        delete invoker;
    });
    invoker->invoke("X", {}, {});
    invoker->invoke("X", {}, {});
    QTRY_COMPARE(deliveries, 1);
    QCoreApplication::processEvents();
    QCOMPARE(deliveries, 1);
}

void TestNoBus::deletedInvokerNeverEmits()
{
    int received = 0;
    {
        IntentsInvoker invoker;
        connect(&invoker, &IntentsInvoker::replyReceived, this, [&received] { ++received; });
        invoker.invoke("X", {}, {});
    }
    IntentsInvoker other;
    Replies replies(other);
    other.invoke("X", {}, {});
    QTRY_COMPARE(replies.all.size(), 1);
    QCOMPARE(received, 0);
}

void TestNoBus::servicesCannotStart()
{
    auto *dispatcher = RuntimeDispatcher::instance();
    const Error error = dispatcher->startService();
    QCOMPARE(error.code(), Error::Failed);
    QCOMPARE(error.message(), QString("Registration failed"));
    delete dispatcher;
    QCOMPARE(Lifecycle::instance()->startService().code(), Error::Failed);
    QCOMPARE(Lifecycle::instance()->stopService().code(), Error::Failed);
}

void TestNoBus::taskFailsOnceFromTheEventLoop()
{
    MessageLog log;
    Task task("sync");
    QStringList outcomes;
    const auto note = [&outcomes](const Error &error) {
        outcomes << QString("%1 %2").arg(int(error.code())).arg(error.message());
    };
    task.start(note);
    task.stop(Task::Force, note);
    QCOMPARE(outcomes, QStringList());
    const QString error = "1 Not connected to D-Bus server";
    QTRY_COMPARE(outcomes, QStringList({error, error}));
    QCoreApplication::processEvents();
    QCOMPARE(outcomes.size(), 2);
    QCOMPARE(task.state(), Task::Unknown);
    QCOMPARE(log.takeWarnings(),
             QStringList("Failed to get the Tasks interface properties "
                         "QDBusError(\"org.freedesktop.DBus.Error.Disconnected\", \"Not connected to D-Bus server\")"));
}

void TestNoBus::memoryPressureLogsItsFailures()
{
    MessageLog log;
    QCOMPARE(MemoryPressure::instance()->level(), MemoryPressure::NormalLevel);
    const QString error = "QDBusError(\"org.freedesktop.DBus.Error.Disconnected\", \"Not connected to D-Bus server\")";
    QStringList warnings;
    QTRY_COMPARE((warnings += log.takeWarnings(), warnings),
                 QStringList({"MemoryPressure subscription failed: " + error, "Failed to get memory level: " + error}));
}

void TestNoBus::serviceIsNotAvailable()
{
    MessageLog log;
    ServiceMonitor monitor;
    int changes = 0;
    connect(&monitor, &ServiceMonitor::availableChanged, this, [&changes] { ++changes; });
    for (int i = 0; i < 3; ++i) {
        QVERIFY(!monitor.isAvailable());
        QVERIFY(!monitor.availableSince().isValid());
        monitor.refresh(); // a call of an existing object would fail with a warning
        QCoreApplication::processEvents();
    }
    QCOMPARE(changes, 0);
}

QTEST_GUILESS_MAIN(TestNoBus)
#include "tst_no_bus.moc"
