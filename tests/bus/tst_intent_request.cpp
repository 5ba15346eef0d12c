// SPDX-License-Identifier: BSD-3-Clause
#include <Corvane/intent_request.h>
#include <Corvane/intents_invoker.h>

#include <json.h>
#include <message_log.h>
#include <patience.h>
#include <service_peer.h>

#include <QtCore/QJsonArray>
#include <QtCore/QMetaProperty>
#include <QtCore/QTemporaryDir>
#include <QtTest/QtTest>

#include <atomic>
#include <dlfcn.h>
#include <limits>
#include <memory>
#include <optional>

using namespace Corvane;
using namespace std::chrono_literals;

namespace {

std::atomic<int> lastTimeout; // of a call of InvokeIntent, in milliseconds

QString invocation(const QString &arguments)
{
    return QString("InvokeIntent (sa{sv}a{sv}) (%1)").arg(arguments);
}

/// Returns a function of libdbus.
template<typename Function>
Function nextFunction(const char *name)
{
    return reinterpret_cast<Function>(dlsym(RTLD_NEXT, name));
}

/// Returns the result, such as "Failed {} 1 the reason".
QString print(const IntentRequest &request)
{
    const auto states = QMetaEnum::fromType<IntentRequest::State>();
    return QString("%1 %2 %3 %4")
        .arg(states.valueToKey(request.state()), toJson(request.reply()))
        .arg(int(request.error().code()))
        .arg(request.error().message());
}

} // namespace

// Replaces the function of libdbus, which QtDBus calls for each method call.
extern "C" __attribute__((visibility("default"))) unsigned
dbus_connection_send_with_reply(void *connection, void *message, void **call, int timeout)
{
    static const auto memberOf = nextFunction<const char *(*)(void *)>("dbus_message_get_member");
    static const auto send = nextFunction<decltype(&dbus_connection_send_with_reply)>(__func__);
    if (qstrcmp(memberOf(message), "InvokeIntent") == 0)
        lastTimeout = timeout;
    return send(connection, message, call, timeout);
}

class TestIntentRequest : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void initTestCase();
    void init();
    void cleanup();
    void sendsNameHintsAndParams();
    void sendsTheSameFilesAsInvoke();
    void newRequestIsPending();
    void requestBelongsToTheInvoker();
    void deliversTheResult_data();
    void deliversTheResult();
    void requestsKnowTheirReplies();
    void propertiesShowTheResult();
    void stateAndResultArePrinted();
    void onlyInvokeHasATimeout();
    void timeoutEndsTheRequest_data();
    void timeoutEndsTheRequest();
    void lateReplyIsDroppedAfterTheTimeout();
    void removedTimeoutHasNoEffect_data();
    void removedTimeoutHasNoEffect();
    void timeoutHasNoEffectOnAFinishedRequest();
    void canceledRequestEndsAtOnce();
    void lateReplyIsDroppedAfterCancel();
    void replyInTheQueueIsDroppedByCancel();
    void cancelHasNoEffectOnAFinishedRequest();
    void canceledRequestMayBeDeletedBeforeItsSignal();
    void callbackGetsTheReply();
    void callbackOfAFinishedRequestIsCalledLater();
    void callbackOfACanceledRequestIsCalledOnce();
    void callbackIsNotCalledAfterItsContextIsDeleted_data();
    void callbackIsNotCalledAfterItsContextIsDeleted();
    void callbackIsNotCalledAfterTheRequestIsDeleted_data();
    void callbackIsNotCalledAfterTheRequestIsDeleted();
    void callbackMayDeleteEverything();
    void callbackMayOwnTheInvoker_data();
    void callbackMayOwnTheInvoker();
    void captureMayUseTheInvokerInItsDestructor();
    void callbackMayAddACallback();
    void emptyCallbackIsIgnored();
    void finishedRequestReleasesItsCallbacks();
    void autoDeleteDeletesTheFinishedRequest();
    void autoDeleteOfAFinishedRequestDeletesIt();
    void requestMayBeDeletedInItsSlot_data();
    void requestMayBeDeletedInItsSlot();
    void requestMayBeDeletedInTheSlotOfAnother();
    void invokerMayBeDeletedInTheSlot();
    void deletedRequestNeverFinishes();
    void deletedInvokerDeletesItsRequests();
    void slotMayRunAnEventLoop();
    void missingFileEndsTheRequest_data();
    void missingFileEndsTheRequest();
    void refusedIntentEndsTheRequest();
    void intentOfAUriIsSent();
    void fileHintsOfAUriAreRemoved();
    void invalidUriEndsTheRequest();
    void missingServiceIsAnError();
    void requestsFailWhenTheServiceExits();
    void thousandsInFlightAreAllAnswered();

private:
    ServicePeer peer;
    std::optional<MessageLog> log;
    std::unique_ptr<IntentsInvoker> invoker;
    int signalCount = 0;
};

void TestIntentRequest::initTestCase()
{
    qRegisterMetaType<QJsonObject>();
}

void TestIntentRequest::init()
{
    log.emplace();
    signalCount = 0;
    invoker = std::make_unique<IntentsInvoker>();
}

void TestIntentRequest::cleanup()
{
    invoker.reset();
    peer.hold(false);
    peer.answer("(@a{sv} {},)");
    peer.takeCalls();
    log.reset();
}

void TestIntentRequest::sendsNameHintsAndParams()
{
    invoker->request("X", {{"h", 1}}, {{"p", "q"}});
    invoker->request("Y", {{"p", "q"}});
    invoker->request("Z");
    QTRY_COMPARE(peer.calls(),
                 QStringList({invocation("'X', {'h': <1.0>}, {'p': <'q'>}"), invocation("'Y', @a{sv} {}, {'p': <'q'>}"),
                              invocation("'Z', @a{sv} {}, @a{sv} {}")}));
}

void TestIntentRequest::sendsTheSameFilesAsInvoke()
{
    const QTemporaryDir directory;
    const QString name = directory.filePath("file");
    QFile file(name);
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.write("content");
    file.close();

    const QJsonObject params{{"uri", name}};
    invoker->invoke("OpenURI", {}, params);
    QTRY_COMPARE(peer.calls().size(), 1);
    QCOMPARE(peer.descriptors(), QStringList("read: content"));
    invoker->request("OpenURI", params);
    QTRY_COMPARE(peer.calls().size(), 2);
    QCOMPARE(peer.calls().at(1), peer.calls().at(0));
    QCOMPARE(peer.descriptors(), QStringList("read: content"));
}

void TestIntentRequest::newRequestIsPending()
{
    const IntentRequest *request = invoker->request("X");
    QCOMPARE(request->intentName(), QString("X"));
    QVERIFY(!request->isFinished());
    QCOMPARE(print(*request), QString("Pending {} 0 "));
    QVERIFY(!request->autoDelete());
}

void TestIntentRequest::requestBelongsToTheInvoker()
{
    const IntentRequest *request = invoker->request("X");
    QCOMPARE(request->parent(), invoker.get());
    QSignalSpy finished(request, &IntentRequest::finished);
    QTRY_COMPARE(finished.size(), 1);
    QCOMPARE(invoker->findChildren<IntentRequest *>(), QList<IntentRequest *>{const_cast<IntentRequest *>(request)});
}

void TestIntentRequest::deliversTheResult_data()
{
    QTest::addColumn<QString>("error");
    QTest::addColumn<QString>("body");
    QTest::addColumn<QString>("result");

    QTest::newRow("reply") << ""
                           << "({'a': <1>},)"
                           << R"(Replied {"a":1} 0 )";
    QTest::newRow("error") << CORVANE_SERVICE_ROOT ".Error.HandlerNotFound"
                           << "('why',)"
                           << "Failed {} 2 why";
    QTest::newRow("error with an object") << CORVANE_SERVICE_ROOT ".Error.HandlerFailed"
                                          << "({'a': <1>},)"
                                          << "Failed {} 3 ";
    QTest::newRow("error that is none") << CORVANE_SERVICE_ROOT ".Error.NoError"
                                        << "('why',)"
                                        << "Replied {} 0 why";
    QTest::newRow("another signature") << ""
                                       << "('text',)"
                                       << R"(Failed {} 1 Unexpected reply signature: got "s", expected "a{sv}")";
}

void TestIntentRequest::deliversTheResult()
{
    QFETCH(QString, error);
    QFETCH(QString, body);
    QFETCH(QString, result);

    if (error.isEmpty())
        peer.answer(body);
    else
        peer.answerError(error, body);
    const IntentRequest *request = invoker->request("X");
    QSignalSpy finished(request, &IntentRequest::finished);
    QTRY_COMPARE(finished.size(), 1);
    QCOMPARE(print(*request), result);
    QVERIFY(request->isFinished());
    QCOMPARE(request->result().state, request->state());
    QCOMPARE(request->result().reply, request->reply());
    QVERIFY(request->result().error == request->error());
    QVERIFY(peer.roundTrip());
    QCOMPARE(finished.size(), 1);
}

void TestIntentRequest::requestsKnowTheirReplies()
{
    peer.hold();
    const IntentRequest *first = invoker->request("First");
    const IntentRequest *second = invoker->request("Second");
    peer.release(1, "({'a': <2>},)");
    QTRY_VERIFY(second->isFinished());
    QVERIFY(!first->isFinished());
    peer.release(0, "({'a': <1>},)");
    QTRY_VERIFY(first->isFinished());
    QCOMPARE(print(*first), QString(R"(Replied {"a":1} 0 )"));
    QCOMPARE(print(*second), QString(R"(Replied {"a":2} 0 )"));
}

void TestIntentRequest::propertiesShowTheResult()
{
    peer.answer("({'a': <1>},)");
    IntentRequest *request = invoker->request("X");
    QTRY_VERIFY(request->isFinished());
    QCOMPARE(request->property("intentName").toString(), QString("X"));
    QCOMPARE(request->property("state").toInt(), int(IntentRequest::Replied));
    QCOMPARE(toJson(request->property("reply").toJsonObject()), QString(R"({"a":1})"));
    QVERIFY(!request->property("error").value<Error>());

    const QMetaObject &meta = IntentRequest::staticMetaObject;
    for (const char *name : {"state", "reply", "error"}) {
        const QMetaProperty property = meta.property(meta.indexOfProperty(name));
        QCOMPARE(property.notifySignal().methodSignature(), QByteArray("finished()"));
    }
}

void TestIntentRequest::stateAndResultArePrinted()
{
    QString text;
    QDebug(&text) << IntentRequest::TimedOut << IntentRequest::Result{IntentRequest::Failed, {}, Error::Failed};
    QCOMPARE(text.trimmed(),
             QString("Corvane::IntentRequest::TimedOut Corvane::IntentRequest::Result(Corvane::IntentRequest::Failed, "
                     "QJsonObject(), Corvane::Error(Failed, \"\"))"));
}

void TestIntentRequest::onlyInvokeHasATimeout()
{
    invoker->invoke("X", {}, {});
    QTRY_COMPARE(peer.calls().size(), 1);
    QCOMPARE(lastTimeout.load(), 86400);
    invoker->request("X");
    QTRY_COMPARE(peer.calls().size(), 2);
    QCOMPARE(lastTimeout.load(), std::numeric_limits<int>::max()); // infinite in libdbus
    invoker->invoke("X", {}, {});
    QTRY_COMPARE(peer.calls().size(), 3);
    QCOMPARE(lastTimeout.load(), 86400);
}

void TestIntentRequest::timeoutEndsTheRequest_data()
{
    QTest::addColumn<int>("milliseconds");
    QTest::newRow("zero") << 0;
    QTest::newRow("some") << 20;
}

void TestIntentRequest::timeoutEndsTheRequest()
{
    QFETCH(int, milliseconds);

    peer.hold();
    IntentRequest *request = invoker->request("X");
    QSignalSpy finished(request, &IntentRequest::finished);
    request->setTimeout(1h);
    request->setTimeout(std::chrono::milliseconds(milliseconds));
    QVERIFY(!request->isFinished());
    QTRY_COMPARE(finished.size(), 1);
    QCOMPARE(print(*request), QString("TimedOut {} 1 The request timed out"));
}

void TestIntentRequest::lateReplyIsDroppedAfterTheTimeout()
{
    peer.hold();
    IntentRequest *request = invoker->request("X");
    QSignalSpy finished(request, &IntentRequest::finished);
    request->setTimeout(0ms);
    QTRY_COMPARE(finished.size(), 1);
    peer.release(0, "({'a': <1>},)");
    QVERIFY(peer.roundTrip());
    QCOMPARE(finished.size(), 1);
    QCOMPARE(print(*request), QString("TimedOut {} 1 The request timed out"));
}

void TestIntentRequest::removedTimeoutHasNoEffect_data()
{
    QTest::addColumn<qint64>("milliseconds");
    QTest::newRow("negative") << qint64(-1);
    QTest::newRow("more than a timer can count") << qint64(std::numeric_limits<int>::max()) + 1;
    QTest::newRow("maximum") << qint64(std::chrono::milliseconds::max().count());
    QTest::newRow("minimum") << qint64(std::chrono::milliseconds::min().count());
}

void TestIntentRequest::removedTimeoutHasNoEffect()
{
    QFETCH(qint64, milliseconds);

    peer.hold();
    IntentRequest *request = invoker->request("X");
    request->setTimeout(0ms);
    request->setTimeout(std::chrono::milliseconds(milliseconds));
    IntentRequest *other = invoker->request("Y");
    other->setTimeout(1ms);
    QTRY_VERIFY(other->isFinished()); // later than the removed one would have
    QVERIFY(!request->isFinished());
}

void TestIntentRequest::timeoutHasNoEffectOnAFinishedRequest()
{
    IntentRequest *request = invoker->request("X");
    QSignalSpy finished(request, &IntentRequest::finished);
    request->setTimeout(1h);
    QTRY_COMPARE(finished.size(), 1);
    request->setTimeout(0ms);
    QVERIFY(peer.roundTrip());
    QCOMPARE(print(*request), QString("Replied {} 0 "));
    QCOMPARE(finished.size(), 1);
}

void TestIntentRequest::canceledRequestEndsAtOnce()
{
    peer.hold();
    IntentRequest *request = invoker->request("X");
    QSignalSpy finished(request, &IntentRequest::finished);
    request->cancel();
    request->cancel();
    QCOMPARE(print(*request), QString("Canceled {} 1 The request was canceled"));
    QCOMPARE(finished.size(), 0);
    QTRY_COMPARE(finished.size(), 1);
    QVERIFY(peer.roundTrip());
    QCOMPARE(finished.size(), 1);
}

void TestIntentRequest::lateReplyIsDroppedAfterCancel()
{
    peer.hold();
    IntentRequest *request = invoker->request("X");
    QSignalSpy finished(request, &IntentRequest::finished);
    request->cancel();
    QTRY_COMPARE(finished.size(), 1);
    peer.release(0, "({'a': <1>},)");
    QVERIFY(peer.roundTrip());
    QCOMPARE(finished.size(), 1);
    QCOMPARE(print(*request), QString("Canceled {} 1 The request was canceled"));
}

void TestIntentRequest::replyInTheQueueIsDroppedByCancel()
{
    peer.hold();
    IntentRequest *request = invoker->request("X");
    QTRY_COMPARE(peer.calls().size(), 1);
    QSignalSpy finished(request, &IntentRequest::finished);
    peer.setEventLoopBlocked(true);
    peer.release(0, "({'a': <1>},)");
    peer.waitUntilRead();
    peer.setEventLoopBlocked(false);
    request->cancel();
    QTRY_COMPARE(finished.size(), 1);
    QVERIFY(peer.roundTrip());
    QCOMPARE(finished.size(), 1);
    QCOMPARE(print(*request), QString("Canceled {} 1 The request was canceled"));
}

void TestIntentRequest::cancelHasNoEffectOnAFinishedRequest()
{
    IntentRequest *request = invoker->request("X");
    QSignalSpy finished(request, &IntentRequest::finished);
    QTRY_COMPARE(finished.size(), 1);
    request->cancel();
    QVERIFY(peer.roundTrip());
    QCOMPARE(print(*request), QString("Replied {} 0 "));
    QCOMPARE(finished.size(), 1);
}

void TestIntentRequest::canceledRequestMayBeDeletedBeforeItsSignal()
{
    IntentRequest *request = invoker->request("X");
    QSignalSpy finished(request, &IntentRequest::finished);
    request->cancel();
    delete request;
    QVERIFY(peer.roundTrip());
    QCOMPARE(finished.size(), 0);
}

void TestIntentRequest::callbackGetsTheReply()
{
    peer.answer("({'a': <1>},)");
    QStringList results;
    const auto record = [&results](const QJsonObject &reply, const Error &error) {
        results << toJson(reply) + ' ' + error.message();
    };
    IntentRequest *request = invoker->request("X");
    request->then(this, record);
    request->then(nullptr, record);
    request->then(this, [&results] { return [&results](auto &&...) { results << "any"; }; }());
    QCOMPARE(results, QStringList());
    QTRY_COMPARE(results, QStringList({R"({"a":1} )", R"({"a":1} )", "any"}));

    peer.answerError("com.example.Oops", "('why',)");
    results.clear();
    invoker->request("X")->then(this, record);
    QTRY_COMPARE(results, QStringList("{} why"));
    QVERIFY(peer.roundTrip());
    QCOMPARE(results.size(), 1);
}

void TestIntentRequest::callbackOfAFinishedRequestIsCalledLater()
{
    peer.answer("({'a': <1>},)");
    IntentRequest *request = invoker->request("X");
    QTRY_VERIFY(request->isFinished());
    QString result;
    request->then(this, [&result](const QJsonObject &reply, const Error &) { result += toJson(reply); });
    QCOMPARE(result, QString());
    QTRY_COMPARE(result, QString(R"({"a":1})"));
}

void TestIntentRequest::callbackOfACanceledRequestIsCalledOnce()
{
    IntentRequest *request = invoker->request("X");
    QStringList results;
    const auto record = [&results](const QJsonObject &, const Error &error) { results << error.message(); };
    request->then(this, record);
    request->cancel();
    request->then(this, record);
    QTRY_COMPARE(results, QStringList({"The request was canceled", "The request was canceled"}));
    QVERIFY(peer.roundTrip());
    QCOMPARE(results.size(), 2);
}

void TestIntentRequest::callbackIsNotCalledAfterItsContextIsDeleted_data()
{
    QTest::addColumn<bool>("isFinished");
    QTest::newRow("pending") << false;
    QTest::newRow("finished") << true;
}

void TestIntentRequest::callbackIsNotCalledAfterItsContextIsDeleted()
{
    QFETCH(bool, isFinished);

    IntentRequest *request = invoker->request("X");
    if (isFinished)
        QTRY_VERIFY(request->isFinished());
    auto context = std::make_unique<QObject>();
    bool called = false;
    request->then(context.get(), [&called](const QJsonObject &, const Error &) { called = true; });
    context.reset();
    QTRY_VERIFY(request->isFinished());
    QVERIFY(peer.roundTrip());
    QVERIFY(!called);
}

void TestIntentRequest::callbackIsNotCalledAfterTheRequestIsDeleted_data()
{
    callbackIsNotCalledAfterItsContextIsDeleted_data();
}

void TestIntentRequest::callbackIsNotCalledAfterTheRequestIsDeleted()
{
    QFETCH(bool, isFinished);

    IntentRequest *request = invoker->request("X");
    if (isFinished)
        QTRY_VERIFY(request->isFinished());
    bool called = false;
    request->then(this, [&called](const QJsonObject &, const Error &) { called = true; });
    delete request;
    QVERIFY(peer.roundTrip());
    QVERIFY(!called);
}

void TestIntentRequest::callbackMayDeleteEverything()
{
    peer.answer("({'a': <1>},)");
    auto *context = new QObject;
    QStringList results;
    IntentRequest *request = invoker->request("X");
    request->then(context, [&results, context, this](const QJsonObject &reply, const Error &error) {
        delete context;
        invoker.reset();
        results << toJson(reply) + error.message();
    });
    request->then(this, [&results](const QJsonObject &, const Error &) { results << "second"; });
    QTRY_COMPARE(results, QStringList(R"({"a":1})"));
    QVERIFY(peer.roundTrip());
    QCOMPARE(results.size(), 1);
}

void TestIntentRequest::callbackMayOwnTheInvoker_data()
{
    requestMayBeDeletedInItsSlot_data();
    QTest::newRow("callback of a finished request") << "late";
}

void TestIntentRequest::callbackMayOwnTheInvoker()
{
    QFETCH(QString, end);

    peer.hold(end == "timeout" || end == "cancel");
    auto owner = std::make_shared<IntentsInvoker>();
    const QPointer<IntentsInvoker> owned = owner.get();
    IntentRequest *request = owner->request("X");
    if (end == "late")
        QTRY_VERIFY(request->isFinished());
    int calls = 0;
    request->then(nullptr, [owner, &calls](const QJsonObject &, const Error &) { ++calls; });
    owner.reset(); // the callback is the last owner
    if (end == "timeout")
        request->setTimeout(0ms);
    if (end == "cancel")
        request->cancel();
    QTRY_COMPARE(calls, 1);
    QTRY_VERIFY(!owned);
}

void TestIntentRequest::captureMayUseTheInvokerInItsDestructor()
{
    std::shared_ptr<void> guard(nullptr, [invoker = invoker.get()](void *) { invoker->invoke("Y", {}, {}); });
    invoker->request("X")->then(this, [guard](const QJsonObject &, const Error &) {});
    guard.reset(); // the callback is the last owner
    invoker.reset();
    QTRY_COMPARE(peer.calls().size(), 2);
}

void TestIntentRequest::callbackMayAddACallback()
{
    IntentRequest *request = invoker->request("X");
    int calls = 0;
    request->then(this, [&calls, request](const QJsonObject &, const Error &) {
        request->then(request, [&calls](const QJsonObject &, const Error &) { ++calls; });
        ++calls;
    });
    QTRY_COMPARE(calls, 2);
    QVERIFY(peer.roundTrip());
    QCOMPARE(calls, 2);
}

void TestIntentRequest::emptyCallbackIsIgnored()
{
    IntentRequest *request = invoker->request("X");
    request->then(this, {});
    request->then(this, nullptr);
    QTRY_VERIFY(request->isFinished());
    request->then(nullptr, {});
    QVERIFY(peer.roundTrip());
}

void TestIntentRequest::finishedRequestReleasesItsCallbacks()
{
    const auto captured = std::make_shared<int>();
    IntentRequest *request = invoker->request("X");
    request->then(this, [captured](const QJsonObject &, const Error &) {});
    QCOMPARE(captured.use_count(), 2L);
    QTRY_VERIFY(request->isFinished());
    QTRY_COMPARE(captured.use_count(), 1L);
}

void TestIntentRequest::autoDeleteDeletesTheFinishedRequest()
{
    const QPointer<IntentRequest> request = invoker->request("X");
    request->setAutoDelete(true);
    QString result;
    connect(request, &IntentRequest::finished, this, [&result, &request] { result = print(*request); });
    QTRY_VERIFY(!request);
    QCOMPARE(result, QString("Replied {} 0 "));
}

void TestIntentRequest::autoDeleteOfAFinishedRequestDeletesIt()
{
    const QPointer<IntentRequest> request = invoker->request("X");
    QTRY_VERIFY(request->isFinished());
    QVERIFY(peer.roundTrip());
    QVERIFY(request);
    request->setAutoDelete(true);
    QVERIFY(request);
    QTRY_VERIFY(!request);
}

void TestIntentRequest::requestMayBeDeletedInItsSlot_data()
{
    QTest::addColumn<QString>("end");
    for (const char *end : {"reply", "timeout", "cancel"})
        QTest::newRow(end) << end;
}

void TestIntentRequest::requestMayBeDeletedInItsSlot()
{
    QFETCH(QString, end);

    peer.hold(end != "reply");
    IntentRequest *request = invoker->request("X");
    request->setAutoDelete(true);
    connect(request, &IntentRequest::finished, this, [this, request] {
        ++signalCount;
        delete request;
    });
    connect(request, &IntentRequest::finished, this, [this] { ++signalCount; });
    if (end == "timeout")
        request->setTimeout(0ms);
    if (end == "cancel")
        request->cancel();
    QTRY_COMPARE(signalCount, 1);
    QVERIFY(peer.roundTrip());
    QCOMPARE(signalCount, 1);
}

void TestIntentRequest::requestMayBeDeletedInTheSlotOfAnother()
{
    peer.hold();
    IntentRequest *first = invoker->request("First");
    IntentRequest *second = invoker->request("Second");
    connect(second, &IntentRequest::finished, this, [this] { ++signalCount; });
    connect(first, &IntentRequest::finished, second, &QObject::deleteLater);
    connect(first, &IntentRequest::finished, this, [second] { delete second; });
    QTRY_COMPARE(peer.calls().size(), 2);
    peer.setEventLoopBlocked(true); // both replies are in the queue
    peer.release(0, "(@a{sv} {},)");
    peer.release(1, "(@a{sv} {},)");
    peer.waitUntilRead();
    peer.setEventLoopBlocked(false);
    QTRY_VERIFY(first->isFinished());
    QVERIFY(peer.roundTrip());
    QCOMPARE(signalCount, 0);
}

void TestIntentRequest::invokerMayBeDeletedInTheSlot()
{
    const QPointer<IntentRequest> request = invoker->request("X");
    connect(request, &IntentRequest::finished, this, [this] { invoker.reset(); });
    QTRY_VERIFY(!request);
    QVERIFY(peer.roundTrip());
}

void TestIntentRequest::deletedRequestNeverFinishes()
{
    IntentRequest *request = invoker->request("X");
    QSignalSpy finished(request, &IntentRequest::finished);
    delete request;
    QTRY_COMPARE(peer.calls().size(), 1);
    QVERIFY(peer.roundTrip());
    QCOMPARE(finished.size(), 0);
}

void TestIntentRequest::deletedInvokerDeletesItsRequests()
{
    const QPointer<IntentRequest> request = invoker->request("X");
    QSignalSpy finished(request, &IntentRequest::finished);
    invoker.reset();
    QVERIFY(!request);
    QVERIFY(peer.roundTrip());
    QCOMPARE(finished.size(), 0);
}

void TestIntentRequest::slotMayRunAnEventLoop()
{
    const IntentRequest *first = invoker->request("First");
    connect(first, &IntentRequest::finished, this, [this] {
        const IntentRequest *second = invoker->request("Second");
        QEventLoop loop;
        connect(second, &IntentRequest::finished, &loop, &QEventLoop::quit);
        loop.exec();
        signalCount = second->isFinished();
    });
    QTRY_COMPARE(signalCount, 1);
}

void TestIntentRequest::missingFileEndsTheRequest_data()
{
    QTest::addColumn<QJsonObject>("hints");
    QTest::addColumn<QString>("file");
    QTest::addColumn<QString>("reason");

    const QJsonObject read{{"readFiles", QJsonArray{"f[*]"}}};
    const QJsonObject write{{"writeFiles", QJsonArray{"f[*]"}}};
    QTest::newRow("read") << read << "/nonexistent/a"
                          << "No such file or directory";
    QTest::newRow("write") << write << "/nonexistent/a"
                           << "No such file or directory";
    QTest::newRow("directory, read") << read << "/"
                                     << "Is a directory";
    QTest::newRow("directory, write") << write << "/"
                                      << "Is a directory";
}

void TestIntentRequest::missingFileEndsTheRequest()
{
    QFETCH(QJsonObject, hints);
    QFETCH(QString, file);
    QFETCH(QString, reason);

    const QTemporaryDir directory;
    QFile first(directory.filePath("first"));
    QVERIFY(first.open(QIODevice::WriteOnly));
    const QString notCreated = directory.filePath("third");
    const IntentRequest *request =
        invoker->request("X", hints, {{"f", QJsonArray{first.fileName(), file, notCreated}}});
    QVERIFY(!request->isFinished());
    QTRY_VERIFY(request->isFinished());
    QVERIFY(peer.roundTrip());
    QCOMPARE(print(*request), QString("Failed {} 1 Cannot open the file \"%1\": %2").arg(file, reason));
    QCOMPARE(peer.calls(), QStringList());
    QVERIFY(!QFile::exists(notCreated));
}

void TestIntentRequest::refusedIntentEndsTheRequest()
{
    const IntentRequest *request = invoker->request("X", {{"text", QString(QChar(0))}});
    QVERIFY(!request->isFinished());
    QTRY_VERIFY(request->isFinished());
    QCOMPARE(request->state(), IntentRequest::Failed);
    QVERIFY(peer.roundTrip());
    QCOMPARE(peer.calls(), QStringList());
}

void TestIntentRequest::intentOfAUriIsSent()
{
    const QUrl uri("intent://?h=B.true#Intent;name=Show;page=i.2;end");
    const IntentRequest *request = invoker->request(uri);
    QCOMPARE(request->intentName(), QString("Show"));
    invoker->request(IntentUri(uri));
    const QString expected = invocation("'Show', {'h': <true>}, {'page': <2.0>}");
    QTRY_COMPARE(peer.calls(), QStringList({expected, expected}));
}

void TestIntentRequest::fileHintsOfAUriAreRemoved()
{
    const QUrl uri("intent://?readFiles=S.f#Intent;name=Show;f=S./etc/hostname;end");
    invoker->request(uri);
    invoker->request(IntentUri(uri, IntentUri::KeepFileHints));
    QTRY_COMPARE(peer.calls(),
                 QStringList({invocation("'Show', @a{sv} {}, {'f': <'/etc/hostname'>}"),
                              invocation("'Show', {'readFds': <[handle 0]>, 'readFiles': <['f']>}, "
                                         "{'f': <'/etc/hostname'>}")}));
}

void TestIntentRequest::invalidUriEndsTheRequest()
{
    const IntentRequest *request = invoker->request(QUrl("https://example.com"));
    QSignalSpy finished(request, &IntentRequest::finished);
    QVERIFY(!request->isFinished());
    QTRY_COMPARE(finished.size(), 1);
    QCOMPARE(print(*request), QString("Failed {} 4 The scheme is not \"intent\""));
    QCOMPARE(request->intentName(), QString());
    QCOMPARE(peer.calls(), QStringList());
}

void TestIntentRequest::missingServiceIsAnError()
{
    peer.ownServiceName(false);
    const IntentRequest *request = invoker->request("X");
    QTRY_VERIFY(request->isFinished());
    QCOMPARE(request->state(), IntentRequest::Failed);
    QVERIFY(request->error() == Error::Failed);
    peer.ownServiceName(true);
    const IntentRequest *next = invoker->request("X");
    QTRY_COMPARE(next->state(), IntentRequest::Replied);
}

void TestIntentRequest::requestsFailWhenTheServiceExits()
{
    peer.hold();
    const IntentRequest *request = invoker->request("X");
    QTRY_COMPARE(peer.calls().size(), 1);
    peer.kill();
    QTRY_VERIFY(request->isFinished());
    QCOMPARE(request->state(), IntentRequest::Failed);
    peer.start();
    const IntentRequest *next = invoker->request("X");
    QTRY_COMPARE(next->state(), IntentRequest::Replied);
}

void TestIntentRequest::thousandsInFlightAreAllAnswered()
{
    constexpr int Count = 10000;
    peer.echo();
    int replied = 0;
    for (int i = 0; i < Count; ++i) {
        IntentRequest *request = invoker->request("X", {{"i", i}});
        request->setAutoDelete(true);
        request->then(this, [&replied, i](const QJsonObject &reply, const Error &error) {
            if (!error && reply.value("i").toInt() == i)
                ++replied;
        });
    }
    QTRY_COMPARE_WITH_TIMEOUT(replied, Count, Patience);
    QTRY_COMPARE(invoker->findChildren<IntentRequest *>().size(), 0);
}

QTEST_GUILESS_MAIN(TestIntentRequest)
#include "tst_intent_request.moc"
