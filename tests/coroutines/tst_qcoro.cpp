// SPDX-License-Identifier: BSD-3-Clause
// Requests in coroutines of the library QCoro.
#include <Corvane/IntentsInvoker>
#include <Corvane/coroutines.h>

#include <message_log.h>
#include <patience.h>
#include <service_peer.h>

#include <qcoro/qcorosignal.h>
#include <qcoro/qcorotask.h>

#include <QtTest/QtTest>

#include <memory>
#include <optional>

using namespace Corvane;

class TestQCoro : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void init() { log.emplace(); }
    void cleanup() { log.reset(); }
    void taskWaitsForARequest();
    void taskWaitsForTheSignal();
    void tasksWaitForTasks();
    void deletedInvokerResumesTheTask();

private:
    QCoro::Task<int> number();

    ServicePeer peer;
    std::optional<MessageLog> log;
    std::unique_ptr<IntentsInvoker> invoker = std::make_unique<IntentsInvoker>();
};

QCoro::Task<int> TestQCoro::number()
{
    const auto [state, reply, error] = co_await * invoker->request("X");
    co_return error ? -1 : reply.value("n").toInt();
}

void TestQCoro::taskWaitsForARequest()
{
    peer.answer("({'n': <7>},)");
    QCOMPARE(QCoro::waitFor(number()), 7);
    peer.answerError("com.example.Oops");
    QCOMPARE(QCoro::waitFor(number()), -1);
}

void TestQCoro::taskWaitsForTheSignal()
{
    peer.answer("({'n': <7>},)");
    const auto run = [this]() -> QCoro::Task<IntentRequest::State> {
        IntentRequest *request = invoker->request("X");
        co_await qCoro(request, &IntentRequest::finished);
        co_return request->state();
    };
    QCOMPARE(QCoro::waitFor(run()), IntentRequest::Replied);
}

void TestQCoro::tasksWaitForTasks()
{
    peer.answer("({'n': <7>},)");
    const auto run = [this]() -> QCoro::Task<int> { co_return co_await number() + co_await number(); };
    QCOMPARE(QCoro::waitFor(run()), 14);
}

void TestQCoro::deletedInvokerResumesTheTask()
{
    peer.hold();
    QTimer::singleShot(0, this, [this] { invoker.reset(); });
    QCOMPARE(QCoro::waitFor(number()), -1);
}

QTEST_GUILESS_MAIN(TestQCoro)
#include "tst_qcoro.moc"
