// SPDX-License-Identifier: BSD-3-Clause
#include <Corvane/intent_request.h>
#include <Corvane/intents_invoker.h>
#include <Corvane/runtime_dispatcher.h>
#include <Corvane/task.h>
#include <Corvane/task_messaging.h>

#include <patience.h>
#include <service_peer.h>

#include <QtCore/QLoggingCategory>
#include <QtCore/QRegularExpression>
#include <QtCore/QTemporaryDir>
#include <QtNetwork/QLocalServer>
#include <QtNetwork/QLocalSocket>
#include <QtTest/QtTest>

using namespace Corvane;
using namespace std::chrono_literals;

namespace {

QStringList &lines()
{
    static QStringList list;
    return list;
}

void handleMessage(QtMsgType, const QMessageLogContext &context, const QString &text)
{
    if (qstrcmp(context.category, "corvane.trace") == 0)
        lines() << text;
}

/// Returns the lines since the last call. # replaces the numbers of the operations, T the milliseconds, and PATH the
/// path.
QStringList takeLines(const QString &path = QStringLiteral("PATH"))
{
    static const QRegularExpression number(" ([0-9]+) (begins|ends): ");
    static const QRegularExpression time("[0-9]+ ms$");
    QStringList result;
    for (QString line : qAsConst(lines()))
        result << line.replace(number, " # \\2: ").replace(time, "T ms").replace(path, "PATH");
    lines().clear();
    return result;
}

} // namespace

class TestTrace : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void initTestCase();
    void init();
    void cleanup();
    void nothingIsTracedByDefault();
    void requestsAreTraced_data();
    void requestsAreTraced();
    void refusedRequestIsTraced();
    void filesAreCounted();
    void incomingIntentsAreTraced_data();
    void incomingIntentsAreTraced();
    void taskCallsAreTraced();
    void channelMessagesAreTraced();
    void droppedOperationsEnd();
    void numbersIdentifyTheOperations();
    void contentsAreNotTraced();

private:
    ServicePeer peer;
    std::unique_ptr<IntentsInvoker> invoker;
};

void TestTrace::initTestCase()
{
    QVERIFY(!RuntimeDispatcher::instance()->startService());
}

void TestTrace::init()
{
    qInstallMessageHandler(handleMessage);
    QLoggingCategory::setFilterRules("corvane.trace=true");
    invoker = std::make_unique<IntentsInvoker>();
    lines().clear();
}

void TestTrace::cleanup()
{
    invoker.reset();
    peer.hold(false);
    QLoggingCategory::setFilterRules(QString());
    qInstallMessageHandler(nullptr);
}

void TestTrace::nothingIsTracedByDefault()
{
    QLoggingCategory::setFilterRules(QString());
    const IntentRequest *request = invoker->request("X");
    QTRY_VERIFY(request->isFinished());
    QCOMPARE(lines(), QStringList());
}

void TestTrace::requestsAreTraced_data()
{
    QTest::addColumn<QString>("end");
    QTest::addColumn<QString>("line");
    QTest::newRow("reply") << "reply"
                           << "request # ends: Corvane::Error::NoError, 32 bytes, 0 descriptors, T ms";
    QTest::newRow("error") << "error"
                           << "request # ends: Corvane::Error::HandlerNotFound, 8 bytes, 0 descriptors, T ms";
    QTest::newRow("time-out") << "timeout"
                              << "request # ends: timed out, T ms";
    QTest::newRow("cancel") << "cancel"
                            << "request # ends: canceled, T ms";
    QTest::newRow("deletion") << "delete"
                              << "request # ends: dropped, T ms";
    QTest::newRow("reply to invoke()") << "invoke"
                                       << "request # ends: Corvane::Error::NoError, 32 bytes, 0 descriptors, T ms";
}

void TestTrace::requestsAreTraced()
{
    QFETCH(QString, end);
    QFETCH(QString, line);

    if (end == "error")
        peer.answerError(CORVANE_SERVICE_ROOT ".Error.HandlerNotFound");
    else
        peer.answer("({'text': <'content'>},)");
    if (end == "timeout" || end == "cancel" || end == "delete")
        peer.hold();
    if (end == "invoke") {
        invoker->invoke("X", {{"h", 1}}, {{"p", "q"}});
    } else {
        IntentRequest *request = invoker->request("X", {{"h", 1}}, {{"p", "q"}});
        if (end == "timeout")
            request->setTimeout(0ms);
        if (end == "cancel")
            request->cancel();
        if (end == "delete")
            delete request;
    }
    QTRY_COMPARE(lines().size(), 2);
    QCOMPARE(takeLines(), QStringList({"request # begins: \"X\", 64 bytes, 0 descriptors", line}));
    QVERIFY(peer.roundTrip());
    QCOMPARE(lines(), QStringList());
}

void TestTrace::refusedRequestIsTraced()
{
    invoker->request("X", {{"file", "/nonexistent/a"}, {"text", QString(QChar(0))}});
    QTRY_COMPARE(lines().size(), 2);
    QCOMPARE(takeLines(),
             QStringList({"request # begins: \"X\", 0 bytes, 0 descriptors",
                          "request # ends: Corvane::Error::Failed, 8 bytes, 0 descriptors, T ms"}));
}

void TestTrace::filesAreCounted()
{
    invoker->request("OpenURI", {{"uri", "/dev/null"}});
    QCOMPARE(takeLines().value(0).section(", ", -1), QString("1 descriptors"));
}

void TestTrace::incomingIntentsAreTraced_data()
{
    QTest::addColumn<QString>("answer");
    QTest::addColumn<QString>("line");
    const QString replied = "incoming intent # ends: Corvane::Error::NoError, 128 bytes, 1 descriptors, T ms";
    QTest::newRow("reply function") << "function" << replied;
    QTest::newRow("reply") << "reply" << replied;
    QTest::newRow("failure") << "fail"
                             << "incoming intent # ends: Corvane::Error::HandlerFailed, 9 bytes, 0 descriptors, T ms";
    QTest::newRow("no answer")
        << "none"
        << "incoming intent # ends: Corvane::Error::HandlerFailed, 47 bytes, 0 descriptors, T ms";
}

void TestTrace::incomingIntentsAreTraced()
{
    QFETCH(QString, answer);
    QFETCH(QString, line);

    auto *dispatcher = RuntimeDispatcher::instance();
    const QJsonObject result{{"file", "/dev/null"}};
    if (answer == "function") {
        dispatcher->registerIntent("Ask", [result](const QJsonObject &, const auto &reply) { reply(result); });
    } else {
        dispatcher->registerIntentHandler("Ask", [&](const IncomingIntent &intent) {
            if (answer == "reply")
                intent.reply(result);
            if (answer == "fail")
                intent.fail("text");
        });
    }
    dispatcher->registerIntentOutputFiles("Ask", {"file"}, {});
    peer.call("HandleIntent", "('Ask', {'p': <'q'>})");
    QCOMPARE(takeLines(), QStringList({"incoming intent # begins: \"Ask\", 34 bytes, 0 descriptors", line}));
}

void TestTrace::taskCallsAreTraced()
{
    Task task("sync");
    task.withInterval(60).start();
    QTRY_COMPARE(lines().size(), 2);
    QCOMPARE(takeLines(),
             QStringList({"task start # begins: \"demo.task_sync\", 52 bytes, 0 descriptors",
                          "task start # ends: Corvane::Error::NoError, 0 bytes, 0 descriptors, T ms"}));
    peer.answerError(CORVANE_SERVICE_ROOT ".Error.ApplicationNotRunning", "('why',)", "Stop");
    task.stop();
    QTRY_COMPARE(lines().size(), 2);
    QCOMPARE(takeLines(),
             QStringList({"task stop # begins: \"demo.task_sync\", 19 bytes, 0 descriptors",
                          "task stop # ends: Corvane::Error::ApplicationNotRunning, 0 bytes, 0 descriptors, T ms"}));
}

void TestTrace::channelMessagesAreTraced()
{
    const QTemporaryDir directory;
    const QString path = directory.filePath("socket");
    QLocalServer server;
    QVERIFY(server.listen(path));
    TaskMessaging channel(path);
    QVERIFY(server.waitForNewConnection(Patience));
    QLocalSocket *const client = server.nextPendingConnection();

    QVERIFY(channel.sendMessage({{"SECRET", "SECRET"}}));
    QVERIFY(channel.sendMessage({}));
    QTRY_COMPARE(lines().size(), 4);
    QStringList found = takeLines(path);
    found.sort();
    QCOMPARE(found,
             QStringList({"sent message # begins: \"PATH\", 19 bytes, 0 descriptors",
                          "sent message # begins: \"PATH\", 2 bytes, 0 descriptors",
                          "sent message # ends: written, T ms", "sent message # ends: written, T ms"}));

    client->write(QByteArray("\0\0\0\2{}", 6));
    QTRY_COMPARE(lines().size(), 2);
    QCOMPARE(takeLines(path),
             QStringList({"received message # begins: \"PATH\", 2 bytes, 0 descriptors",
                          "received message # ends: delivered, T ms"}));
}

void TestTrace::droppedOperationsEnd()
{
    peer.hold();
    invoker->invoke("X", {}, {});
    invoker.reset();
    auto task = std::make_unique<Task>("sync");
    task->stop();
    task.reset();
    RuntimeDispatcher::instance()->registerIntent("Ask", [](const QJsonObject &, const auto &) {});
    peer.beginCall("HandleIntent", "('Ask', @a{sv} {})");
    QTRY_COMPARE(lines().size(), 6);
    const QString dropped = " # ends: dropped, T ms";
    const QStringList found = takeLines();
    QCOMPARE(QStringList({found.at(1), found.at(3), found.at(5)}),
             QStringList({"request" + dropped, "task stop" + dropped, "incoming intent" + dropped}));
    invoker = std::make_unique<IntentsInvoker>();
}

void TestTrace::numbersIdentifyTheOperations()
{
    peer.hold();
    invoker->request("First");
    invoker->request("Second");
    peer.release(1, "(@a{sv} {},)");
    QTRY_COMPARE(lines().size(), 3);
    static const QRegularExpression number("^request ([0-9]+) ");
    QStringList numbers;
    for (const QString &line : qAsConst(lines()))
        numbers << number.match(line).captured(1);
    QVERIFY(numbers.at(0) != numbers.at(1));
    QCOMPARE(numbers.at(2), numbers.at(1));
}

void TestTrace::contentsAreNotTraced()
{
    RuntimeDispatcher::instance()->registerIntentHandler(
        "Ask", [](const IncomingIntent &intent) { intent.fail(intent.params().value("p").toString()); });
    peer.call("HandleIntent", "('Ask', {'p': <'SECRET'>})");
    peer.answerError("com.example.Oops", "('SECRET',)");
    invoker->request("X", {{"SECRET", "SECRET"}}, {{"SECRET", "SECRET"}});
    QTRY_COMPARE(lines().size(), 4);
    QVERIFY(!lines().join('\n').contains("SECRET"));
}

QTEST_GUILESS_MAIN(TestTrace)
#include "tst_trace.moc"
