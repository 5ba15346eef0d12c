// SPDX-License-Identifier: BSD-3-Clause
#include <Corvane/incoming_intent.h>
#include <Corvane/runtime_dispatcher.h>

#include <json.h>
#include <message_log.h>
#include <patience.h>
#include <service_peer.h>

#include <QtCore/QTemporaryDir>
#include <QtCore/QThread>
#include <QtTest/QtTest>

#include <functional>
#include <memory>
#include <optional>
#include <thread>

using namespace Corvane;

namespace {

const QString NoFiles = QStringLiteral("{'readFiles': <@as []>, 'writeFiles': <@as []>}");
const QString HandleIntent = QStringLiteral("HandleIntent");

/// Returns the text of a reply without files.
QString replied(const QString &result)
{
    return QString("(a{sv}a{sv}) (%1, %2)").arg(result, NoFiles);
}

/// Returns the text of an error reply.
QString failed(const QString &text)
{
    return QString(CORVANE_SERVICE_ROOT ".Error.HandlerFailed (s) ('%1',)").arg(text);
}

const QString Unanswered = QStringLiteral("The handler of \"Ask\" ended without a reply");

} // namespace

class TestIncomingIntent : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void init();
    void cleanup();
    void handlerGetsTheIntent();
    void replyIsSentInTheHandler();
    void replyMayComeLater();
    void failureIsSent_data();
    void failureIsSent();
    void firstAnswerCounts_data();
    void firstAnswerCounts();
    void unansweredIntentFails();
    void lastCopyFailsTheIntent();
    void emptyHandlerFailsTheIntent();
    void handleWithoutAnIntentIsAnswered();
    void handlesOfOneIntentAreEqual();
    void intentIsPrinted();
    void valuesAreProperties();
    void outputFilesAreSent();
    void outputFilesReplaceTheRegisteredOnes();
    void missingOutputFileFailsTheIntent_data();
    void missingOutputFileFailsTheIntent();
    void refusedResultFailsTheIntent();
    void refusedTextIsReplaced();
    void laterHandlerReplacesTheEarlierOne();
    void handlerMayUnregisterItself();
    void handlerMayDeleteTheDispatcher();
    void answerWorksAfterTheDispatcherIsDeleted();
    void destructorOfAHandlerMayUseTheDispatcher();
    void handlerMayRunAnEventLoop();
    void answersFromOtherThreadsAreSentOnThisThread_data();
    void answersFromOtherThreadsAreSentOnThisThread();
    void answerOfAnotherThreadSurvivesTheLastCopy();
    void firstAnswerOfManyThreadsCounts();
    void thousandsOfIntentsAreAnswered();

private:
    using Handler = std::function<void(IncomingIntent)>;
    void handle(const Handler &handler) { dispatcher->registerIntentHandler("Ask", handler); }
    ServicePeer::Reply ask() { return peer.call(HandleIntent, "('Ask', {'q': <1>})"); }

    RuntimeDispatcher *dispatcher = nullptr;
    ServicePeer peer;
    std::optional<MessageLog> log;
};

void TestIncomingIntent::init()
{
    dispatcher = RuntimeDispatcher::instance();
    QVERIFY(!dispatcher->startService());
    log.emplace();
}

void TestIncomingIntent::cleanup()
{
    delete RuntimeDispatcher::instance();
    log.reset();
}

void TestIncomingIntent::handlerGetsTheIntent()
{
    QString name;
    QJsonObject params;
    handle([&](const IncomingIntent &intent) {
        name = intent.intentName();
        params = intent.params();
        QVERIFY(!intent.isAnswered());
        intent.reply();
        QVERIFY(intent.isAnswered());
    });
    QCOMPARE(ask().text, replied("@a{sv} {}"));
    QCOMPARE(name, QString("Ask"));
    QCOMPARE(toJson(params), QString(R"({"q":1})"));
}

void TestIncomingIntent::replyIsSentInTheHandler()
{
    handle([](const IncomingIntent &intent) { intent.reply({{"a", QJsonArray{1, 2}}}); });
    const ServicePeer::Reply reply = peer.call(HandleIntent, "('Ask', @a{sv} {})", {{"repeat", 2}});
    QCOMPARE(reply.text, replied("{'a': <[1.0, 2.0]>}"));
    QCOMPARE(reply.counts.size(), 1);
}

void TestIncomingIntent::replyMayComeLater()
{
    QVector<IncomingIntent> intents;
    handle([&intents](const IncomingIntent &intent) { intents << intent; });
    const int first = peer.beginCall(HandleIntent, "('Ask', {'n': <1>})");
    const int second = peer.beginCall(HandleIntent, "('Ask', {'n': <2>})");
    QTRY_COMPARE(intents.size(), 2);
    dispatcher->unregisterIntent("Ask");
    intents.at(1).reply(intents.at(1).params());
    QCOMPARE(peer.finishCall(second).text, replied("{'n': <2.0>}"));
    intents.at(0).reply(intents.at(0).params());
    QCOMPARE(peer.finishCall(first).text, replied("{'n': <1.0>}"));
}

void TestIncomingIntent::failureIsSent_data()
{
    QTest::addColumn<QString>("text");
    QTest::newRow("text") << "The user has canceled";
    QTest::newRow("letters") << "\u00e4\u4e16\U0001f600";
}

void TestIncomingIntent::failureIsSent()
{
    QFETCH(QString, text);

    handle([text](const IncomingIntent &intent) { intent.fail(text); });
    QCOMPARE(ask().text, failed(text));
}

void TestIncomingIntent::firstAnswerCounts_data()
{
    QTest::addColumn<bool>("fails");
    QTest::newRow("reply") << false;
    QTest::newRow("failure") << true;
}

void TestIncomingIntent::firstAnswerCounts()
{
    QFETCH(bool, fails);

    handle([fails](const IncomingIntent &intent) {
        if (fails)
            intent.fail("first");
        const QVector<IncomingIntent> copies{intent, intent};
        copies.at(0).reply({{"n", 2}});
        copies.at(1).fail("third");
        intent.reply({{"n", 4}});
    });
    const ServicePeer::Reply reply = ask();
    QCOMPARE(reply.text, fails ? failed("first") : replied("{'n': <2.0>}"));
    const QStringList warnings = log->takeWarnings();
    QCOMPARE(warnings.size(), fails ? 3 : 2);
    for (const QString &warning : warnings)
        QCOMPARE(warning, QString("The intent \"Ask\" is already answered"));
}

void TestIncomingIntent::unansweredIntentFails()
{
    handle([](const IncomingIntent &) {});
    QCOMPARE(ask().text, failed(Unanswered));
}

void TestIncomingIntent::lastCopyFailsTheIntent()
{
    std::optional<IncomingIntent> kept;
    handle([&kept](const IncomingIntent &intent) { kept = intent; });
    const int call = peer.beginCall(HandleIntent, "('Ask', @a{sv} {})");
    QTRY_VERIFY(kept);
    auto copy = std::make_unique<IncomingIntent>(*kept);
    kept.reset();
    QVERIFY(peer.roundTrip());
    QVERIFY(!peer.isFinished(call));
    copy.reset();
    QCOMPARE(peer.finishCall(call).text, failed(Unanswered));
}

void TestIncomingIntent::emptyHandlerFailsTheIntent()
{
    handle({});
    QCOMPARE(ask().text, failed(Unanswered));
    handle(nullptr);
    QCOMPARE(ask().text, failed(Unanswered));
}

void TestIncomingIntent::handleWithoutAnIntentIsAnswered()
{
    const IncomingIntent intent;
    QVERIFY(intent.isAnswered());
    QCOMPARE(intent.intentName(), QString());
    QCOMPARE(intent.params(), QJsonObject());
    intent.setOutputFiles({"f"});
    intent.reply();
    intent.fail("text");
    QCOMPARE(log->takeWarnings(),
             QStringList({"The intent \"\" is already answered", "The intent \"\" is already answered"}));
}

void TestIncomingIntent::handlesOfOneIntentAreEqual()
{
    QVector<IncomingIntent> intents;
    handle([&intents](const IncomingIntent &intent) {
        intents << intent << intent;
        intent.reply();
    });
    ask();
    ask();
    QCOMPARE(intents.size(), 4);
    QVERIFY(intents.at(0) == intents.at(1));
    QVERIFY(intents.at(0) != intents.at(2));
    QVERIFY(IncomingIntent() == IncomingIntent());
}

void TestIncomingIntent::intentIsPrinted()
{
    QStringList texts;
    handle([&texts](const IncomingIntent &intent) {
        QString before;
        QString after;
        QDebug(&before) << intent << "text";
        intent.reply();
        QDebug(&after) << intent;
        texts << before << after;
    });
    ask();
    QCOMPARE(texts,
             QStringList({"Corvane::IncomingIntent(\"Ask\", not answered) text ",
                          "Corvane::IncomingIntent(\"Ask\", answered) "}));
}

void TestIncomingIntent::valuesAreProperties()
{
    QVariantList values;
    handle([&values](const IncomingIntent &intent) {
        const QMetaObject &meta = IncomingIntent::staticMetaObject;
        for (int i = 0; i < meta.propertyCount(); ++i)
            values << meta.property(i).name() << meta.property(i).readOnGadget(&intent);
        intent.reply();
    });
    ask();
    QCOMPARE(values, QVariantList({"intentName", "Ask", "params", QJsonObject{{"q", 1}}, "answered", false}));
}

void TestIncomingIntent::outputFilesAreSent()
{
    const QTemporaryDir directory;
    const QString readable = directory.filePath("r");
    const QString writable = directory.filePath("w");
    QFile file(readable);
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.write("content");
    file.close();

    handle([&](const IncomingIntent &intent) {
        intent.setOutputFiles({"r"}, {"w"});
        intent.reply({{"r", readable}, {"w", writable}});
    });
    const ServicePeer::Reply reply = ask();
    QCOMPARE(reply.text,
             QString("(a{sv}a{sv}) ({'r': <'%1'>, 'w': <'%2'>}, {'readFds': <[handle 0]>, 'readFiles': <['r']>, "
                     "'writeFds': <[handle 1]>, 'writeFiles': <['w']>})")
                 .arg(readable, writable));
    QCOMPARE(reply.descriptors, QStringList({"read: content", "read-write: "}));
}

void TestIncomingIntent::outputFilesReplaceTheRegisteredOnes()
{
    bool replaces = false;
    handle([&replaces](const IncomingIntent &intent) {
        if (replaces)
            intent.setOutputFiles({"second"});
        intent.reply();
    });
    dispatcher->registerIntentOutputFiles("Ask", {"first"}, {"other"});
    QCOMPARE(ask().text, QString("(a{sv}a{sv}) (@a{sv} {}, {'readFiles': <['first']>, 'writeFiles': <['other']>})"));
    replaces = true;
    QCOMPARE(ask().text, QString("(a{sv}a{sv}) (@a{sv} {}, {'readFiles': <['second']>, 'writeFiles': <@as []>})"));
}

void TestIncomingIntent::missingOutputFileFailsTheIntent_data()
{
    QTest::addColumn<QStringList>("read");
    QTest::addColumn<QStringList>("write");
    QTest::newRow("read") << QStringList("f[*]") << QStringList();
    QTest::newRow("write") << QStringList() << QStringList("f[*]");
}

void TestIncomingIntent::missingOutputFileFailsTheIntent()
{
    QFETCH(QStringList, read);
    QFETCH(QStringList, write);

    handle([&](const IncomingIntent &intent) {
        intent.setOutputFiles(read, write);
        intent.reply({{"f", QJsonArray{"/dev/null", "/nonexistent/a"}}});
    });
    const QString problem = "Cannot open the file \"/nonexistent/a\": No such file or directory";
    const ServicePeer::Reply reply = ask();
    QCOMPARE(reply.text, failed(problem));
    QCOMPARE(reply.descriptors, QStringList());
    QString warning;
    QDebug(&warning) << "Failed to reply to an intent:" << problem;
    QCOMPARE(log->takeWarnings(), QStringList(warning.trimmed()));
}

void TestIncomingIntent::refusedResultFailsTheIntent()
{
    handle([](const IncomingIntent &intent) { intent.reply({{"text", QString(QChar(0))}}); });
    QCOMPARE(ask().text, failed("A message cannot hold a text with U+0000"));
    QCOMPARE(log->takeWarnings(),
             QStringList("Failed to reply to an intent: \"A message cannot hold a text with U+0000\""));
}

void TestIncomingIntent::refusedTextIsReplaced()
{
    handle([](const IncomingIntent &intent) { intent.fail(QString("text") + QChar(0)); });
    QCOMPARE(ask().text, failed("A message cannot hold a text with U+0000"));
}

void TestIncomingIntent::laterHandlerReplacesTheEarlierOne()
{
    handle([](const IncomingIntent &intent) { intent.reply({{"n", 1}}); });
    dispatcher->registerIntentOutputFiles("Ask", {"f"}, {});
    dispatcher->registerIntent("Ask", [](const QJsonObject &, const auto &reply) { reply({{"n", 2}}); });
    QCOMPARE(ask().text, replied("{'n': <2.0>}"));
    dispatcher->registerIntentOutputFiles("Ask", {"f"}, {});
    handle([](const IncomingIntent &intent) { intent.reply({{"n", 3}}); });
    QCOMPARE(ask().text, replied("{'n': <3.0>}"));
    dispatcher->unregisterIntent("Ask");
    QCOMPARE(ask().text,
             QString("org.freedesktop.DBus.Error.Failed (s) ('Intent not registered by specified application',)"));
}

void TestIncomingIntent::handlerMayUnregisterItself()
{
    const auto captured = std::make_shared<int>(7);
    handle([captured, this](const IncomingIntent &intent) {
        dispatcher->unregisterIntent("Ask");
        intent.reply({{"n", *captured}});
    });
    QCOMPARE(ask().text, replied("{'n': <7.0>}"));
}

void TestIncomingIntent::handlerMayDeleteTheDispatcher()
{
    handle([this](const IncomingIntent &intent) {
        delete dispatcher;
        intent.reply({{"n", 1}});
    });
    QCOMPARE(ask().text, replied("{'n': <1.0>}"));
}

void TestIncomingIntent::answerWorksAfterTheDispatcherIsDeleted()
{
    QVector<IncomingIntent> intents;
    handle([&intents](const IncomingIntent &intent) { intents << intent; });
    const int first = peer.beginCall(HandleIntent, "('Ask', @a{sv} {})");
    const int second = peer.beginCall(HandleIntent, "('Ask', @a{sv} {})");
    QTRY_COMPARE(intents.size(), 2);
    delete dispatcher;
    intents.at(0).reply();
    QCOMPARE(peer.finishCall(first).text, replied("@a{sv} {}"));
    intents.clear();
    QCOMPARE(peer.finishCall(second).text, failed(Unanswered));
}

void TestIncomingIntent::destructorOfAHandlerMayUseTheDispatcher()
{
    bool replaced = false;
    {
        const std::shared_ptr<void> captured(nullptr, [this, &replaced](void *) {
            dispatcher->unregisterIntent("Other");
            handle([](const IncomingIntent &intent) { intent.reply({{"n", 2}}); });
            replaced = true;
        });
        handle([captured](const IncomingIntent &) {});
    }
    dispatcher->unregisterIntent("Ask");
    QVERIFY(replaced);
    QCOMPARE(ask().text, replied("{'n': <2.0>}"));
}

void TestIncomingIntent::handlerMayRunAnEventLoop()
{
    handle([this](const IncomingIntent &intent) {
        if (intent.params().contains("inner"))
            return intent.reply({{"inner", true}});
        const QString inner = peer.call(HandleIntent, "('Ask', {'inner': <true>})").text;
        intent.reply({{"answer", inner == replied("{'inner': <true>}")}});
    });
    QCOMPARE(ask().text, replied("{'answer': <true>}"));
}

void TestIncomingIntent::answersFromOtherThreadsAreSentOnThisThread_data()
{
    QTest::addColumn<QString>("answer");
    QTest::addColumn<QString>("expected");
    QTest::newRow("reply") << "reply" << replied("{'n': <1.0>}");
    QTest::newRow("failure") << "fail" << failed("text");
    QTest::newRow("files") << "files"
                           << QString("(a{sv}a{sv}) ({'n': <1.0>}, {'readFiles': <['f']>, 'writeFiles': <@as []>})");
    QTest::newRow("destruction") << "destroy" << failed(Unanswered);
}

void TestIncomingIntent::answersFromOtherThreadsAreSentOnThisThread()
{
    QFETCH(QString, answer);
    QFETCH(QString, expected);

    IncomingIntent kept;
    handle([&kept](const IncomingIntent &intent) { kept = intent; });
    const int call = peer.beginCall(HandleIntent, "('Ask', @a{sv} {})");
    QTRY_COMPARE(kept.intentName(), QString("Ask"));
    std::thread thread([intent = std::exchange(kept, {}), answer] {
        if (answer == "files")
            intent.setOutputFiles({"f"});
        if (answer == "reply" || answer == "files")
            intent.reply({{"n", 1}, {"null", {}}});
        if (answer == "fail")
            intent.fail("text");
    });
    thread.join();
    QCOMPARE(log->takeWarnings(), QStringList()); // the conversion of the null logs one
    QCOMPARE(peer.finishCall(call).text, expected);
    QCOMPARE(log->takeWarnings(),
             answer == "reply" || answer == "files" ? QStringList("Unknown JSON value type") : QStringList());
}

void TestIncomingIntent::answerOfAnotherThreadSurvivesTheLastCopy()
{
    IncomingIntent kept;
    handle([&kept](const IncomingIntent &intent) { kept = intent; });
    const int call = peer.beginCall(HandleIntent, "('Ask', @a{sv} {})");
    QTRY_COMPARE(kept.intentName(), QString("Ask"));
    std::thread([&kept] { kept.reply({{"n", 1}}); }).join();
    kept = {}; // the last copy, while the answer is in the queue
    QCOMPARE(peer.finishCall(call).text, replied("{'n': <1.0>}"));
}

void TestIncomingIntent::firstAnswerOfManyThreadsCounts()
{
    constexpr int Count = 8;
    IncomingIntent kept;
    handle([&kept](const IncomingIntent &intent) { kept = intent; });
    const int call = peer.beginCall(HandleIntent, "('Ask', @a{sv} {})");
    QTRY_COMPARE(kept.intentName(), QString("Ask"));
    std::vector<std::thread> threads;
    threads.reserve(Count);
    for (int i = 0; i < Count; ++i)
        threads.emplace_back([intent = kept] { intent.reply({{"n", 1}}); });
    kept = {};
    for (std::thread &thread : threads)
        thread.join();
    QCOMPARE(peer.finishCall(call).text, replied("{'n': <1.0>}"));
    QCOMPARE(log->takeWarnings().size(), Count - 1);
}

void TestIncomingIntent::thousandsOfIntentsAreAnswered()
{
    constexpr int Count = 10000;
    QVector<IncomingIntent> intents;
    handle([&intents](const IncomingIntent &intent) { intents << intent; });
    const int call = peer.beginCall(HandleIntent, "('Ask', @a{sv} {})", {{"repeat", Count}});
    QTRY_COMPARE(intents.size(), Count);
    for (int i = 0; i < Count; i += 2)
        intents.at(i).reply();
    intents.clear();
    const QJsonObject counts = peer.finishCall(call).counts;
    QCOMPARE(counts, QJsonObject({{replied("@a{sv} {}"), Count / 2}, {failed(Unanswered), Count / 2}}));
}

QTEST_GUILESS_MAIN(TestIncomingIntent)
#include "tst_incoming_intent.moc"
