// SPDX-License-Identifier: BSD-3-Clause
// Start and Stop, and the outcomes that their callbacks receive.
#include <Corvane/task.h>

#include <message_log.h>
#include <outcomes.h>
#include <patience.h>
#include <service_peer.h>

#include <QtTest/QtTest>

#include <optional>

using namespace Corvane;

namespace {

const QString Root = QStringLiteral(CORVANE_SERVICE_ROOT);
const QString Sync = QStringLiteral("sync");

} // namespace

class TestTaskCalls : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void initTestCase();
    void init();
    void cleanup();

    void stopSendsOnlyTheForceFlag_data();
    void stopSendsOnlyTheForceFlag();
    void callbackReceivesTheOutcome_data();
    void callbackReceivesTheOutcome();
    void eachCallHasItsOwnOutcome();
    void emptyCallbacksAreAllowed();
    void deletedTaskNeverCallsBack();
    void callbackMayDeleteTheTask();
    void callbackMayOwnTheTask_data();
    void callbackMayOwnTheTask();
    void callsFailWhenTheServiceExits();

private:
    ServicePeer peer;
    std::optional<MessageLog> log;
};

void TestTaskCalls::initTestCase()
{
    const Task first("first"); // the first task of a process fetches all states
    QTRY_COMPARE(peer.calls(), QStringList("GetAll () ()"));
}

void TestTaskCalls::init()
{
    log.emplace();
    peer.takeCalls();
}

void TestTaskCalls::cleanup()
{
    log.reset();
    peer.answer({}, "Start");
    peer.answer({}, "Stop");
}

void TestTaskCalls::stopSendsOnlyTheForceFlag_data()
{
    QTest::addColumn<int>("flags");
    QTest::addColumn<QString>("sent");

    QTest::newRow("none") << 0x0 << "Stop (sb) ('demo.task_sync', false)";
    QTest::newRow("force") << 0x1 << "Stop (sb) ('demo.task_sync', true)";
    QTest::newRow("unknown bits") << 0x2 << "Stop (sb) ('demo.task_sync', false)";
    QTest::newRow("force and unknown bits") << 0x3 << "Stop (sb) ('demo.task_sync', true)";
    QTest::newRow("all bits") << -1 << "Stop (sb) ('demo.task_sync', true)";
}

void TestTaskCalls::stopSendsOnlyTheForceFlag()
{
    QFETCH(int, flags);
    QFETCH(QString, sent);

    Task task(Sync);
    task.stop(Task::StopFlags(QFlag(flags)));
    QTRY_COMPARE(peer.calls(), QStringList(sent));
}

void TestTaskCalls::callbackReceivesTheOutcome_data()
{
    QTest::addColumn<QString>("errorName");
    QTest::addColumn<QString>("outcome");

    QTest::newRow("success") << QString() << "0 ";
    QTest::newRow("service error") << Root + ".Error.HandlerFailed"
                                   << QString("%1 the reason").arg(int(Error::HandlerFailed));
    QTest::newRow("standard error") << "org.freedesktop.DBus.Error.AccessDenied"
                                    << QString("%1 the reason").arg(int(Error::AccessDenied));
    QTest::newRow("unknown error") << "com.example.Error" << QString("%1 the reason").arg(int(Error::Failed));
}

void TestTaskCalls::callbackReceivesTheOutcome()
{
    QFETCH(QString, errorName);
    QFETCH(QString, outcome);

    for (const QString &member : {QString("Start"), QString("Stop")}) {
        if (!errorName.isEmpty())
            peer.answerError(errorName, "('the reason',)", member);
    }
    Task task(Sync);
    Outcomes outcomes;
    task.start(outcomes.callback());
    QCOMPARE(outcomes.all, QStringList()); // the callback never runs within the call
    QTRY_COMPARE(outcomes.all, QStringList(outcome));
    task.stop({}, outcomes.callback());
    QTRY_COMPARE(outcomes.all, QStringList({outcome, outcome}));
    QCOMPARE(task.state(), Task::Unknown); // only the service announces states
}

void TestTaskCalls::eachCallHasItsOwnOutcome()
{
    peer.hold();
    Task task(Sync);
    QStringList outcomes;
    for (const char *name : {"first", "second", "third"}) {
        task.start(
            [&outcomes, name](const Error &error) { outcomes << QString("%1 %2").arg(name).arg(int(error.code())); });
    }
    QTRY_COMPARE(peer.calls().size(), 3);
    peer.release(2, {});
    QTRY_COMPARE(outcomes.size(), 1);
    peer.releaseError(0, "com.example.Error");
    QTRY_COMPARE(outcomes.size(), 2);
    peer.release(1, {});
    QTRY_COMPARE(outcomes, QStringList({"third 0", "first 1", "second 0"}));
    QVERIFY(peer.roundTrip());
    QCOMPARE(outcomes.size(), 3);
    peer.kill(); // the restarted peer holds no calls
    peer.start();
}

void TestTaskCalls::emptyCallbacksAreAllowed()
{
    Task task(Sync);
    task.start({});
    task.stop(Task::Force, {});
    task.start();
    task.stop();
    QTRY_COMPARE(peer.calls().size(), 4);
    QVERIFY(peer.roundTrip());
}

void TestTaskCalls::deletedTaskNeverCallsBack()
{
    peer.hold();
    Outcomes outcomes;
    {
        Task task(Sync);
        task.start(outcomes.callback());
        task.stop({}, outcomes.callback());
        QTRY_COMPARE(peer.calls().size(), 2);
    }
    peer.release(0, {});
    peer.releaseError(1, "com.example.Error");
    QVERIFY(peer.roundTrip());
    {
        Task refused(QString(QChar(0)));
        refused.start(outcomes.callback());
    }
    QVERIFY(peer.busRoundTrip());
    QCOMPARE(outcomes.all, QStringList());
    peer.kill();
    peer.start();
}

void TestTaskCalls::callbackMayDeleteTheTask()
{
    for (const QString &id : {Sync, QString(QChar(0))}) { // one is sent, the other is over a limit
        auto *task = new Task(id);
        QStringList outcomes;
        const auto callback = [&outcomes, task, text = "captured"](const Error &) {
            delete task;
            outcomes << text; // the callback outlives the task
        };
        task->start(callback);
        task->stop({}, callback); // dropped, because the task is deleted
        QTRY_COMPARE(outcomes, QStringList("captured"));
        QVERIFY(peer.roundTrip());
        QCOMPARE(outcomes.size(), 1);
    }
}

void TestTaskCalls::callbackMayOwnTheTask_data()
{
    QTest::addColumn<QString>("taskId");
    QTest::newRow("answered") << "sync";
    QTest::newRow("refused") << QString(QChar(0));
}

void TestTaskCalls::callbackMayOwnTheTask()
{
    QFETCH(QString, taskId);

    auto task = std::make_shared<Task>(taskId);
    const QPointer<Task> owned = task.get();
    int calls = 0;
    task->stop({}, [task, &calls](const Error &) { ++calls; });
    task.reset(); // the callback is the last owner
    QTRY_COMPARE(calls, 1);
    QTRY_VERIFY(!owned);
}

void TestTaskCalls::callsFailWhenTheServiceExits()
{
    peer.hold();
    Task task(Sync);
    Outcomes outcomes;
    task.start(outcomes.callback());
    QTRY_COMPARE(peer.calls().size(), 1);
    peer.kill();
    QTRY_COMPARE(outcomes.all.size(), 1);
    QVERIFY2(outcomes.all.last().startsWith("1 "), qUtf8Printable(outcomes.all.last()));
    task.start(outcomes.callback());
    QTRY_COMPARE(outcomes.all.size(), 2);
    QVERIFY2(outcomes.all.last().startsWith("1 "), qUtf8Printable(outcomes.all.last()));
    peer.start();
    task.start(outcomes.callback());
    QTRY_COMPARE(outcomes.all.size(), 3);
    QCOMPARE(outcomes.all.last(), QString("0 "));
}

QTEST_GUILESS_MAIN(TestTaskCalls)
#include "tst_task_calls.moc"
