// SPDX-License-Identifier: BSD-3-Clause
#include <Corvane/IntentsInvoker>
#include <Corvane/coroutines.h>

#include <json.h>
#include <message_log.h>
#include <patience.h>
#include <service_peer.h>

#include <QtTest/QtTest>

#include <memory>
#include <optional>

using namespace Corvane;
using namespace std::chrono_literals;

namespace {

/// A coroutine that starts at once. The object destroys a coroutine that is still suspended.
class Coroutine
{
public:
    struct promise_type
    {
        Coroutine get_return_object() { return Coroutine(std::coroutine_handle<promise_type>::from_promise(*this)); }
        std::suspend_never initial_suspend() noexcept { return {}; }
        std::suspend_always final_suspend() noexcept { return {}; }
        void return_void() { }
        void unhandled_exception() { std::terminate(); }
    };

    Coroutine(Coroutine &&other) noexcept : m_handle(std::exchange(other.m_handle, {})) { }
    ~Coroutine()
    {
        if (m_handle)
            m_handle.destroy();
    }
    Q_DISABLE_COPY(Coroutine)

    bool isDone() const { return m_handle.done(); }

private:
    explicit Coroutine(std::coroutine_handle<promise_type> handle) : m_handle(handle) { }

    std::coroutine_handle<promise_type> m_handle;
};

QString print(const IntentRequest::Result &result)
{
    const auto states = QMetaEnum::fromType<IntentRequest::State>();
    return QString("%1 %2 %3").arg(states.valueToKey(result.state), toJson(result.reply), result.error.message());
}

/// Waits for the request, and adds its result to the list.
Coroutine record(IntentRequest *request, QStringList &results)
{
    results << print(co_await * request);
}

const QString Deleted = QStringLiteral("Canceled {} The request was deleted");

} // namespace

class TestCoroutines : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void init();
    void cleanup();
    void coroutineGetsTheResult();
    void resultMayBeUnpacked();
    void finishedRequestDoesNotSuspend();
    void timeoutAndCancelResume();
    void requestsMayFollowEachOther();
    void severalCoroutinesMayWait();
    void deletedRequestResumes();
    void deletedInvokerResumes();
    void coroutineMayDeleteTheRequest();
    void coroutineMayDeleteTheInvoker();
    void coroutineMayBeDestroyedWhileSuspended_data();
    void coroutineMayBeDestroyedWhileSuspended();
    void requestMayBeDeletedByAnEarlierSlot();
    void thousandsOfCoroutinesAreResumed();

private:
    ServicePeer peer;
    std::optional<MessageLog> log;
    std::unique_ptr<IntentsInvoker> invoker;
    QStringList results;
};

void TestCoroutines::init()
{
    log.emplace();
    invoker = std::make_unique<IntentsInvoker>();
    results.clear();
    peer.answer("({'a': <1>},)");
}

void TestCoroutines::cleanup()
{
    invoker.reset();
    peer.hold(false);
    peer.takeCalls();
    log.reset();
}

void TestCoroutines::coroutineGetsTheResult()
{
    const Coroutine replied = record(invoker->request("X"), results);
    QVERIFY(!replied.isDone());
    QTRY_COMPARE(results, QStringList(R"(Replied {"a":1} )"));
    QVERIFY(replied.isDone());

    peer.answerError("com.example.Oops", "('why',)");
    const Coroutine failed = record(invoker->request("X"), results);
    QTRY_COMPARE(results.value(1), QString("Failed {} why"));
    QVERIFY(peer.roundTrip());
    QCOMPARE(results.size(), 2);
}

void TestCoroutines::resultMayBeUnpacked()
{
    bool replied = false;
    const auto wait = [&]() -> Coroutine {
        const auto [state, reply, error] = co_await * invoker->request("X");
        replied = state == IntentRequest::Replied && reply.value("a").toInt() == 1 && !error;
    };
    const Coroutine coroutine = wait();
    QTRY_VERIFY(replied);
}

void TestCoroutines::finishedRequestDoesNotSuspend()
{
    IntentRequest *request = invoker->request("X");
    QTRY_VERIFY(request->isFinished());
    const Coroutine coroutine = record(request, results);
    QVERIFY(coroutine.isDone());
    QCOMPARE(results, QStringList(R"(Replied {"a":1} )"));
}

void TestCoroutines::timeoutAndCancelResume()
{
    peer.hold();
    IntentRequest *slow = invoker->request("X");
    IntentRequest *canceled = invoker->request("X");
    const Coroutine first = record(slow, results);
    const Coroutine second = record(canceled, results);
    slow->setTimeout(0ms);
    QTRY_COMPARE(results, QStringList("TimedOut {} The request timed out"));
    canceled->cancel();
    QCOMPARE(results.size(), 1);
    QTRY_COMPARE(results.value(1), QString("Canceled {} The request was canceled"));
    QVERIFY(peer.roundTrip());
    QCOMPARE(results.size(), 2);
}

void TestCoroutines::requestsMayFollowEachOther()
{
    const auto run = [this]() -> Coroutine {
        for (int i = 0; i < 3; ++i)
            results << print(co_await * invoker->request(QString::number(i)));
    };
    const Coroutine coroutine = run();
    QTRY_VERIFY(coroutine.isDone());
    QCOMPARE(results.size(), 3);
    QCOMPARE(peer.calls().size(), 3);
}

void TestCoroutines::severalCoroutinesMayWait()
{
    IntentRequest *request = invoker->request("X");
    const Coroutine first = record(request, results);
    const Coroutine second = record(request, results);
    QTRY_COMPARE(results, QStringList({R"(Replied {"a":1} )", R"(Replied {"a":1} )"}));
}

void TestCoroutines::deletedRequestResumes()
{
    IntentRequest *request = invoker->request("X");
    const Coroutine coroutine = record(request, results);
    delete request;
    QCOMPARE(results, QStringList()); // not inside the destructor
    QTRY_COMPARE(results, QStringList(Deleted));
    QVERIFY(peer.roundTrip());
    QCOMPARE(results.size(), 1);
}

void TestCoroutines::deletedInvokerResumes()
{
    const Coroutine first = record(invoker->request("X"), results);
    const Coroutine second = record(invoker->request("Y"), results);
    invoker.reset();
    QTRY_COMPARE(results, QStringList({Deleted, Deleted}));
}

void TestCoroutines::coroutineMayDeleteTheRequest()
{
    const auto run = [this](IntentRequest *request) -> Coroutine {
        results << print(co_await * request);
        delete request;
        results << "after";
    };
    const QPointer<IntentRequest> request = invoker->request("X");
    const Coroutine coroutine = run(request);
    QTRY_COMPARE(results, QStringList({R"(Replied {"a":1} )", "after"}));
    QVERIFY(!request);
}

void TestCoroutines::coroutineMayDeleteTheInvoker()
{
    const auto run = [this]() -> Coroutine {
        results << print(co_await * invoker->request("X"));
        invoker.reset();
        results << "after";
    };
    const Coroutine coroutine = run();
    QTRY_COMPARE(results, QStringList({R"(Replied {"a":1} )", "after"}));
}

void TestCoroutines::coroutineMayBeDestroyedWhileSuspended_data()
{
    QTest::addColumn<bool>("requestIsDeleted");
    QTest::newRow("pending") << false;
    QTest::newRow("request deleted before") << true;
}

void TestCoroutines::coroutineMayBeDestroyedWhileSuspended()
{
    QFETCH(bool, requestIsDeleted);

    IntentRequest *request = invoker->request("X");
    {
        const Coroutine coroutine = record(request, results);
        if (requestIsDeleted)
            delete request; // the resumption is in the queue
    }
    QVERIFY(peer.roundTrip());
    QVERIFY(peer.roundTrip());
    QCOMPARE(results, QStringList());
}

void TestCoroutines::requestMayBeDeletedByAnEarlierSlot()
{
    IntentRequest *request = invoker->request("X");
    connect(request, &IntentRequest::finished, this, [request] { delete request; });
    const Coroutine coroutine = record(request, results);
    QTRY_COMPARE(results, QStringList(Deleted));
}

void TestCoroutines::thousandsOfCoroutinesAreResumed()
{
    constexpr int Count = 10000;
    std::vector<Coroutine> coroutines;
    coroutines.reserve(Count);
    for (int i = 0; i < Count; ++i)
        coroutines.push_back(record(invoker->request("X"), results));
    QTRY_COMPARE(results.size(), Count);
    QCOMPARE(results.count(R"(Replied {"a":1} )"), Count);
}

QTEST_GUILESS_MAIN(TestCoroutines)
#include "tst_coroutines.moc"
