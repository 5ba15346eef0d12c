// SPDX-License-Identifier: BSD-3-Clause
// A process whose bus dies while calls are in flight. Qt never connects a process to its session bus again.
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
    void replyIsLogged();
    void replyWithAFileIsLogged();
    void namesCanNeitherBeClaimedNorReleased();
    void stateAndLevelStayAsTheyWere();
    void objectsCanBeMade();

private:
    void loseTheBus();
    std::function<void(const Error &)> note(const char *what)
    {
        return [this, what](const Error &error) {
            outcomes << QStringLiteral("%1 %2").arg(QLatin1String(what)).arg(int(error.code()));
        };
    }

    BusDaemon bus;
    ServicePeer peer;
    IntentsInvoker invoker;
    Replies replies{invoker};
    Task task{QStringLiteral("sync")};
    QStringList outcomes; ///< of the task
    RuntimeDispatcher::ReplyFunction reply; ///< of an intent that has arrived before
    std::optional<MessageLog> log;
};

void TestLostBus::initTestCase()
{
    MemoryPressure::instance();
    auto *dispatcher = RuntimeDispatcher::instance();
    dispatcher->registerIntent(QStringLiteral("Ask"), [this](const auto &, const auto &function) { reply = function; });
    dispatcher->registerIntentOutputFiles(QStringLiteral("Ask"), {QStringLiteral("file")}, {});
    QVERIFY(!dispatcher->startService());
    const QString body = QStringLiteral("([('sync', uint32 1, @a{sv} {})],)");
    peer.emitSignal(QStringLiteral("Tasks1"), QStringLiteral(CORVANE_SERVICE_ROOT ".Tasks1"),
                    QStringLiteral("StateChanged"), body);
    QCOMPARE(task.state(), Task::Running);
    loseTheBus();
}

void TestLostBus::loseTheBus()
{
    QVERIFY(peer.roundTrip());
    peer.takeCalls();
    peer.hold();
    for (int i = 0; i < 3; ++i)
        invoker.invoke(QStringLiteral("X"), {}, {});
    task.start(note("started"));
    task.stop({}, note("stopped"));
    peer.beginCall(QStringLiteral("HandleIntent"), QStringLiteral("('Ask', @a{sv} {})"));
    QTRY_COMPARE(peer.calls().size(), 5);
    QTRY_VERIFY(reply);
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
    later.invoke(QStringLiteral("X"), {}, {});
    QTRY_COMPARE(laterReplies.all.size(), 1); // by which the others would have been told twice
    QCOMPARE(replies.all.size(), 3);
    for (const QString &failed : qAsConst(replies.all))
        QVERIFY2(failed.startsWith(QStringLiteral("{} 1 ")), qUtf8Printable(failed));
    QCOMPARE(outcomes, QStringList({QStringLiteral("started 1"), QStringLiteral("stopped 1")}));
}

void TestLostBus::callsFailOnceFromTheEventLoop()
{
    replies.all.clear();
    outcomes.clear();
    invoker.invoke(QStringLiteral("X"), {}, {});
    invoker.invoke(QStringLiteral("Y"), {}, {{QStringLiteral("a"), 1}});
    task.start(note("started"));
    task.stop(Task::Force, note("stopped"));
    QCOMPARE(replies.all, QStringList());
    QCOMPARE(outcomes, QStringList());
    QTRY_COMPARE(replies.all.size(), 2);
    QCOMPARE(replies.all,
             QStringList({QStringLiteral("{} 1 ") + NotConnected, QStringLiteral("{} 1 ") + NotConnected}));
    QTRY_COMPARE(outcomes, QStringList({QStringLiteral("started 1"), QStringLiteral("stopped 1")}));
    QCoreApplication::processEvents();
    QCOMPARE(replies.all.size(), 2);
    QCOMPARE(outcomes.size(), 2);
}

void TestLostBus::replyIsLogged()
{
    reply({{QStringLiteral("a"), 1}});
    QCOMPARE(log->takeWarnings(),
             QStringList(QStringLiteral("Failed to reply to an intent: \"The message cannot be sent\"")));
}

void TestLostBus::replyWithAFileIsLogged()
{
    reply({{QStringLiteral("file"), QStringLiteral("/dev/null")}});
    QCOMPARE(log->takeWarnings(),
             QStringList(QStringLiteral("Failed to reply to an intent: \"The message cannot be sent\"")));
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

void TestLostBus::stateAndLevelStayAsTheyWere()
{
    QCOMPARE(task.state(), Task::Running);
    QCOMPARE(Task(QStringLiteral("sync")).state(), Task::Running);
    QCOMPARE(MemoryPressure::instance()->level(), MemoryPressure::NormalLevel);
}

void TestLostBus::objectsCanBeMade()
{
    IntentsInvoker fresh;
    Replies freshReplies(fresh);
    fresh.invoke(QStringLiteral("X"), {}, {});
    QCOMPARE(freshReplies.all, QStringList());
    QTRY_COMPARE(freshReplies.all, QStringList(QStringLiteral("{} 1 ") + NotConnected));
}

QTEST_GUILESS_MAIN(TestLostBus)
#include "tst_lost_bus.moc"
