// SPDX-License-Identifier: BSD-3-Clause
// A process whose bus is killed while calls are in flight. Qt does not connect to the session bus again.
#include <Corvane/intent_request.h>
#include <Corvane/intents_invoker.h>
#include <Corvane/lifecycle.h>
#include <Corvane/memory_pressure.h>
#include <Corvane/runtime_dispatcher.h>
#include <Corvane/task.h>

#include <bus_daemon.h>
#include <message_log.h>
#include <patience.h>
#include <replies.h>
#include <service_peer.h>

#include <QtTest/QtTest>

#include <optional>

using namespace Corvane;

namespace {

const QString NotConnected = QStringLiteral("Not connected to D-Bus server");

} // namespace

class TestLostBus : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void initTestCase();
    void init();
    void cleanup();
    void callsInFlightHaveFailedOnce();
    void callsFailOnceFromTheEventLoop();
    void requestsFailOnceFromTheEventLoop();
    void replyIsLogged();
    void answerOfAHandlerIsLogged();
    void replyWithADescriptorIsLogged();
    void namesCanNeitherBeClaimedNorReleased();
    void stateAndLevelAreKept();
    void objectsCanBeCreated();

private:
    void loseTheBus();
    std::function<void(const Error &)> note(const char *what)
    {
        return [this, what](const Error &error) { outcomes << QString("%1 %2").arg(what).arg(int(error.code())); };
    }

    BusDaemon bus;
    ServicePeer peer;
    IntentsInvoker invoker;
    Replies replies{invoker};
    Task task{"sync"};
    QStringList outcomes; ///< The outcomes of the task's calls.
    RuntimeDispatcher::ReplyFunction reply; ///< The reply function of an intent from before the loss.
    QVector<IncomingIntent> intents; ///< Two intents from before the loss.
    IntentRequest *request = nullptr; ///< A request from before the loss.
    std::optional<MessageLog> log;
};

void TestLostBus::initTestCase()
{
    MemoryPressure::instance();
    auto *dispatcher = RuntimeDispatcher::instance();
    dispatcher->registerIntent("Ask", [this](const auto &, const auto &function) { reply = function; });
    dispatcher->registerIntentOutputFiles("Ask", {"file"}, {});
    dispatcher->registerIntentHandler("Keep", [this](const IncomingIntent &intent) { intents << intent; });
    QVERIFY(!dispatcher->startService());
    const QString body = "([('sync', uint32 1, @a{sv} {})],)";
    peer.emitSignal("Tasks1", CORVANE_SERVICE_ROOT ".Tasks1", "StateChanged", body);
    QCOMPARE(task.state(), Task::Running);
    loseTheBus();
}

void TestLostBus::loseTheBus()
{
    QVERIFY(peer.roundTrip());
    peer.takeCalls();
    peer.hold();
    for (int i = 0; i < 3; ++i)
        invoker.invoke("X", {}, {});
    request = invoker.request("X");
    task.start(note("started"));
    task.stop({}, note("stopped"));
    peer.beginCall("HandleIntent", "('Ask', @a{sv} {})");
    peer.beginCall("HandleIntent", "('Keep', @a{sv} {})", {{"repeat", 2}});
    QTRY_COMPARE(peer.calls().size(), 6);
    QTRY_VERIFY(reply && intents.size() == 2);
    bus.crash();
    QTRY_COMPARE(replies.all.size(), 3);
    QTRY_COMPARE(outcomes.size(), 2);
}

void TestLostBus::init()
{
    log.emplace();
}

void TestLostBus::cleanup()
{
    log.reset();
}

void TestLostBus::callsInFlightHaveFailedOnce()
{
    IntentsInvoker later;
    Replies laterReplies(later);
    later.invoke("X", {}, {});
    QTRY_COMPARE(laterReplies.all.size(), 1); // repeated earlier outcomes would arrive before this one
    QCOMPARE(replies.all.size(), 3);
    for (const QString &failed : qAsConst(replies.all))
        QVERIFY2(failed.startsWith("{} 1 "), qUtf8Printable(failed));
    QCOMPARE(outcomes, QStringList({"started 1", "stopped 1"}));
}

void TestLostBus::callsFailOnceFromTheEventLoop()
{
    replies.all.clear();
    outcomes.clear();
    invoker.invoke("X", {}, {});
    invoker.invoke("Y", {}, {{"a", 1}});
    task.start(note("started"));
    task.stop(Task::Force, note("stopped"));
    QCOMPARE(replies.all, QStringList());
    QCOMPARE(outcomes, QStringList());
    QTRY_COMPARE(replies.all.size(), 2);
    QCOMPARE(replies.all, QStringList({"{} 1 " + NotConnected, "{} 1 " + NotConnected}));
    QTRY_COMPARE(outcomes, QStringList({"started 1", "stopped 1"}));
    QCoreApplication::processEvents();
    QCOMPARE(replies.all.size(), 2);
    QCOMPARE(outcomes.size(), 2);
}

void TestLostBus::requestsFailOnceFromTheEventLoop()
{
    QTRY_COMPARE(request->state(), IntentRequest::Failed);
    QVERIFY(request->error() == Error::Failed);
    const IntentRequest *later = invoker.request("X");
    QSignalSpy finished(later, &IntentRequest::finished);
    QCOMPARE(later->state(), IntentRequest::Pending);
    QTRY_COMPARE(finished.size(), 1);
    QCOMPARE(later->error().message(), NotConnected);
    QCoreApplication::processEvents();
    QCOMPARE(finished.size(), 1);
}

void TestLostBus::answerOfAHandlerIsLogged()
{
    intents.at(0).reply();
    QCOMPARE(log->takeWarnings(), QStringList("Failed to reply to an intent: \"The message cannot be sent\""));
    intents.clear(); // the caller of the second one cannot be reached either
}

void TestLostBus::replyIsLogged()
{
    reply({{"a", 1}});
    QCOMPARE(log->takeWarnings(), QStringList("Failed to reply to an intent: \"The message cannot be sent\""));
}

void TestLostBus::replyWithADescriptorIsLogged()
{
    reply({{"file", "/dev/null"}});
    QCOMPARE(log->takeWarnings(), QStringList("Failed to reply to an intent: \"The message cannot be sent\""));
}

void TestLostBus::namesCanNeitherBeClaimedNorReleased()
{
    auto *dispatcher = RuntimeDispatcher::instance();
    for (const Error &error : {dispatcher->startService(), dispatcher->stopService(),
                               Lifecycle::instance()->startService(), Lifecycle::instance()->stopService()}) {
        QCOMPARE(error.code(), Error::Failed);
        QVERIFY(!error.message().isEmpty());
    }
}

void TestLostBus::stateAndLevelAreKept()
{
    QCOMPARE(task.state(), Task::Running);
    QCOMPARE(Task("sync").state(), Task::Running);
    QCOMPARE(MemoryPressure::instance()->level(), MemoryPressure::NormalLevel);
}

void TestLostBus::objectsCanBeCreated()
{
    IntentsInvoker fresh;
    Replies freshReplies(fresh);
    fresh.invoke("X", {}, {});
    QCOMPARE(freshReplies.all, QStringList());
    QTRY_COMPARE(freshReplies.all, QStringList("{} 1 " + NotConnected));
}

QTEST_GUILESS_MAIN(TestLostBus)
#include "tst_lost_bus.moc"
