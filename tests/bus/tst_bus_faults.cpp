// SPDX-License-Identifier: BSD-3-Clause
// A bus that hangs, processes that are killed during a call, and a process without a free descriptor.
#include <Corvane/intents_invoker.h>
#include <Corvane/intents_invoker_p.h>
#include <Corvane/lifecycle.h>
#include <Corvane/memory_pressure.h>
#include <Corvane/runtime_dispatcher.h>
#include <Corvane/task.h>

#include <bus_daemon.h>
#include <descriptor_limit.h>
#include <message_log.h>
#include <patience.h>
#include <replies.h>
#include <service_peer.h>
#include <under_valgrind.h>

#include <QtCore/QJsonArray>
#include <QtCore/QTemporaryFile>
#include <QtDBus/QDBusConnection>
#include <QtDBus/QDBusMessage>
#include <QtDBus/QDBusPendingCall>
#include <QtTest/QtTest>

#include <cstdio>
#include <optional>

using namespace Corvane;

namespace {

const QString HandleIntent = QStringLiteral("HandleIntent");
const QString AskBody = QStringLiteral("('Ask', @a{sv} {})");
const QString Answer = QStringLiteral("(a{sv}a{sv}) ({'a': <1.0>}, {'readFiles': <@as []>, 'writeFiles': <@as []>})");
const QString Number = QStringLiteral("n");

/// Starts a call to the bus itself. While the bus hangs, the call fails after the default timeout, before any blocking
/// call that was started later.
QDBusPendingCall startCall()
{
    return QDBusConnection::sessionBus().asyncCall(QDBusMessage::createMethodCall(
        "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus", "GetId"));
}

} // namespace

class TestBusFaults : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void initTestCase();
    void init();
    void cleanup();

    void hungBusBlocksNothing();
    void hungBusReceivesTheCallsLater();
    void replyWaitsForAHungBus();
    void answerAfterTheTimeOutIsDropped();
    void callsMayTimeOutWhileTheBusHangs();
    void onlyTheFirstObjectWaitsForTheBus();
    void queuedIntentsAreReportedOnceAndInOrder();

    void serviceMayDieAndComeBack();
    void callerMayDieBeforeItsReply();
    void handlerMayDieBeforeItsReply();

    void intentIsSentWithoutAFreeDescriptor();
    void replyIsSentWithoutAFreeDescriptor();
    void replyIsSentIfItsDescriptorCannotBeDuplicated();

private:
    RuntimeDispatcher::ReplyFunction keepReply(int &call);

    BusDaemon bus;
    ServicePeer peer;
    QTemporaryFile file;
    std::optional<MessageLog> log;
};

void TestBusFaults::initTestCase()
{
    QVERIFY(file.open());
    QVERIFY(!RuntimeDispatcher::instance()->startService());
}

void TestBusFaults::init()
{
    log.emplace();
    RuntimeDispatcher::instance()->registerIntent("Ask", [](const QJsonObject &, const auto &reply) {
        reply({{"a", 1}});
    });
}

void TestBusFaults::cleanup()
{
    bus.goOn(); // after a failure
    peer.kill(); // the restarted peer holds no calls
    peer.start();
    peer.takeCalls();
    QVERIFY(peer.call(HandleIntent, AskBody).text.startsWith("(a{sv}a{sv})")); // the bus and the handler work
    log.reset();
}

void TestBusFaults::hungBusBlocksNothing()
{
    IntentsInvoker invoker;
    Replies replies(invoker);
    Task task("sync");
    QStringList outcomes;
    const auto note = [&outcomes](const char *what) {
        return [&outcomes, what](const Error &error) { outcomes << QString("%1 %2").arg(what).arg(int(error.code())); };
    };
    QVERIFY(peer.roundTrip());
    peer.takeCalls();

    bus.hang();
    const QDBusPendingCall earlier = startCall();
    for (int i = 0; i < 3; ++i)
        invoker.invoke(QString::number(i), {}, {});
    task.start(note("started"));
    task.stop({}, note("stopped"));
    QVERIFY2(!earlier.isFinished(), "the library has waited for the bus");
    QCoreApplication::processEvents();
    QCOMPARE(replies.all, QStringList());
    QCOMPARE(outcomes, QStringList());

    bus.goOn();
    QTRY_COMPARE(replies.all, QStringList({"{} 0 ", "{} 0 ", "{} 0 "}));
    QTRY_COMPARE(outcomes, QStringList({"started 0", "stopped 0"}));
    QVERIFY(peer.roundTrip());
    QCOMPARE(replies.all.size(), 3);
    QCOMPARE(outcomes.size(), 2);
    QCOMPARE(peer.calls().size(), 5);
}

void TestBusFaults::hungBusReceivesTheCallsLater()
{
    const int count = underValgrind() ? 4 : 32; // more than the socket buffer holds
    const QJsonObject params{{"text", QString(1024 * 1024, 'x')}};
    IntentsInvoker invoker;
    Replies replies(invoker);
    QVERIFY(peer.roundTrip());
    peer.takeCalls();

    bus.hang();
    const QDBusPendingCall earlier = startCall();
    for (int i = 0; i < count; ++i)
        invoker.invoke("X", {}, params);
    QVERIFY2(!earlier.isFinished(), "the library has waited for the bus");
    QCoreApplication::processEvents();
    QCOMPARE(replies.all, QStringList());

    bus.goOn();
    QTRY_COMPARE(replies.all.size(), count);
    QVERIFY(peer.roundTrip());
    QCOMPARE(replies.all.count("{} 0 "), count);
    QCOMPARE(replies.all.size(), count);
    QCOMPARE(peer.calls().size(), count);
}

/// Starts a call of the handler, and returns the reply function that the handler received.
RuntimeDispatcher::ReplyFunction TestBusFaults::keepReply(int &call)
{
    RuntimeDispatcher::ReplyFunction kept;
    RuntimeDispatcher::instance()->registerIntent("Ask",
                                                  [&kept](const QJsonObject &, const auto &reply) { kept = reply; });
    call = peer.beginCall(HandleIntent, AskBody);
    if (!QTest::qWaitFor([&kept] { return bool(kept); }, Patience))
        qFatal("The intent does not arrive");
    RuntimeDispatcher::instance()->unregisterIntent("Ask");
    init();
    return kept;
}

void TestBusFaults::replyWaitsForAHungBus()
{
    int call = 0;
    const auto reply = keepReply(call);
    bus.hang();
    reply({{"a", 1}});
    QCoreApplication::processEvents();
    QVERIFY(!peer.isFinished(call));
    bus.goOn();
    QCOMPARE(peer.finishCall(call).text, Answer);
}

void TestBusFaults::answerAfterTheTimeOutIsDropped()
{
    peer.hold();
    IntentsInvokerPrivate invoker;
    invoker.interface->setTimeout(100);
    QVector<int> codes;
    connect(&invoker, &IntentsInvokerPrivate::replyReceived, this,
            [&codes](const QJsonObject &, const Error &error) { codes << int(error.code()); });
    invoker.invoke("X", {}, {});
    QTRY_COMPARE(codes, QVector<int>{Error::Failed});
    QTRY_COMPARE(peer.calls().size(), 1);
    peer.release(0, "({'late': <1>},)");
    QVERIFY(peer.roundTrip());
    QCOMPARE(codes.size(), 1);
}

void TestBusFaults::callsMayTimeOutWhileTheBusHangs()
{
    peer.hold();
    IntentsInvoker patient;
    Replies replies(patient);
    IntentsInvokerPrivate hasty;
    hasty.interface->setTimeout(100);
    QVector<int> codes;
    connect(&hasty, &IntentsInvokerPrivate::replyReceived, this,
            [&codes](const QJsonObject &, const Error &error) { codes << int(error.code()); });
    patient.invoke("A", {}, {});
    QTRY_COMPARE(peer.calls().size(), 1);
    hasty.invoke("B", {}, {});

    bus.hang();
    hasty.invoke("C", {}, {});
    QTRY_COMPARE(codes, QVector<int>({Error::Failed, Error::Failed}));
    QCOMPARE(replies.all, QStringList());

    bus.goOn();
    QTRY_COMPARE(peer.calls().size(), 3);
    for (const int late : {0, 1, 2})
        peer.release(late, "(@a{sv} {},)");
    QVERIFY(peer.roundTrip());
    QCOMPARE(codes.size(), 2);
    QCOMPARE(replies.all, QStringList("{} 0 "));

    hasty.interface->setTimeout(Patience);
    hasty.invoke("D", {}, {});
    QTRY_COMPARE(peer.calls().size(), 4);
    peer.release(3, "(@a{sv} {},)");
    QTRY_COMPARE(codes, QVector<int>({Error::Failed, Error::Failed, Error::NoError}));
}

void TestBusFaults::onlyTheFirstObjectWaitsForTheBus()
{
    Lifecycle::instance(); // from now on, Qt knows the owner of the service's name

    bus.hang();
    const QDBusPendingCall earlier = startCall();
    const IntentsInvoker invoker;
    const Task first("sync");
    const Task second("other");
    Lifecycle::instance();
    MemoryPressure::instance();
    QVERIFY2(!earlier.isFinished(), "the library has waited for the bus");
    bus.goOn();
    QVERIFY(peer.roundTrip());
}

void TestBusFaults::queuedIntentsAreReportedOnceAndInOrder()
{
    const int count = underValgrind() ? 300 : 10000;
    peer.echo();
    IntentsInvoker invoker;
    Replies replies(invoker);
    QStringList expected;
    for (int i = 0; i < count; ++i) {
        invoker.invoke("X", {}, {{Number, i}});
        expected << QString("{\"n\":%1} 0 ").arg(i);
    }
    QTRY_COMPARE(replies.all.size(), count);
    QVERIFY(peer.roundTrip());
    QCOMPARE(replies.all, expected);
}

void TestBusFaults::serviceMayDieAndComeBack()
{
    IntentsInvoker invoker;
    Replies replies(invoker);
    Task task("sync");
    QStringList outcomes;
    const auto note = [&outcomes](const Error &error) { outcomes << QString::number(error.code()); };
    for (int i = 1; i <= 3; ++i) {
        QVERIFY(peer.roundTrip());
        peer.takeCalls();
        peer.hold();
        invoker.invoke("X", {}, {});
        task.start(note);
        QTRY_COMPARE(peer.calls().size(), 2);
        peer.kill();
        QTRY_COMPARE(replies.all.size(), 2 * i - 1);
        QVERIFY2(replies.all.last().startsWith("{} 1 "), qUtf8Printable(replies.all.last()));
        QTRY_COMPARE(outcomes.size(), 2 * i - 1);
        QCOMPARE(outcomes.last(), QString("1"));

        peer.start();
        invoker.invoke("X", {}, {});
        task.start(note);
        QTRY_COMPARE(replies.all.size(), 2 * i);
        QCOMPARE(replies.all.last(), QString("{} 0 "));
        QTRY_COMPARE(outcomes.size(), 2 * i);
        QCOMPARE(outcomes.last(), QString("0"));
    }
}

void TestBusFaults::callerMayDieBeforeItsReply()
{
    int call = 0;
    const auto reply = keepReply(call);
    peer.kill();
    reply({{"a", 1}});
    reply({{"a", QString(QChar(0))}}); // the caller does not wait for the error
    QCOMPARE(log->takeWarnings(),
             QStringList("Failed to reply to an intent: \"A message cannot hold a text with U+0000\""));
    QVERIFY(peer.busRoundTrip()); // the bus has received both replies, and the connection is open
    peer.start();
    QCOMPARE(peer.call(HandleIntent, AskBody).text, Answer);
}

void TestBusFaults::handlerMayDieBeforeItsReply()
{
    const QJsonObject destination{{"destination", "demo.instance2"}};
    for (int i = 0; i < 2; ++i) { // the next process can own the name
        QProcess handler;
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert("HALVIR_APP_INSTANCE_ID", "demo.instance2");
        handler.setProcessEnvironment(environment);
        handler.setProcessChannelMode(QProcess::ForwardedErrorChannel);
        handler.start(QCoreApplication::applicationFilePath(), {"--handle"});
        QTRY_VERIFY(handler.canReadLine());
        QCOMPARE(handler.readLine(), QByteArray("ready\n"));
        QCOMPARE(peer.call(HandleIntent, "('Answer', @a{sv} {})", destination).text, Answer);

        const int call = peer.beginCall(HandleIntent, "('Keep', @a{sv} {})", destination);
        QTRY_VERIFY(handler.canReadLine());
        QCOMPARE(handler.readLine(), QByteArray("kept\n"));
        handler.kill();
        QVERIFY(handler.waitForFinished(Patience));
        const QString text = peer.finishCall(call).text;
        QVERIFY2(text.startsWith("org.freedesktop.DBus.Error.NoReply"), qUtf8Printable(text));
        QVERIFY(!peer.hasOwner("demo.instance2"));
    }
}

void TestBusFaults::intentIsSentWithoutAFreeDescriptor()
{
    IntentsInvoker invoker;
    Replies replies(invoker);
    {
        const NoFreeDescriptor none;
        invoker.invoke("X", {{"readFiles", "file"}, {"writeFiles", "file"}}, {{"file", file.fileName()}});
        QTRY_COMPARE(replies.all, QStringList("{} 0 "));
    }
    QCOMPARE(log->takeWarnings(),
             QVector<QString>(2, QString("Failed to open file \"%1\"").arg(file.fileName())).toList());
    QTRY_COMPARE(peer.calls(),
                 QStringList(QString("InvokeIntent (sa{sv}a{sv}) ('X', {'readFiles': <['file']>, 'writeFiles': "
                                     "<['file']>}, {'file': <'%1'>})")
                                 .arg(file.fileName())));
}

void TestBusFaults::replyIsSentWithoutAFreeDescriptor()
{
    auto *dispatcher = RuntimeDispatcher::instance();
    dispatcher->registerIntent("Give", [this](const QJsonObject &, const auto &reply) {
        reply({{"file", file.fileName()}});
    });
    dispatcher->registerIntentOutputFiles("Give", {"file"}, {});
    ServicePeer::Reply reply;
    {
        const NoFreeDescriptor none;
        reply = peer.call(HandleIntent, "('Give', @a{sv} {})");
    }
    QCOMPARE(log->takeWarnings(), QStringList(QString("Failed to open file \"%1\"").arg(file.fileName())));
    QCOMPARE(reply.text,
             QString("(a{sv}a{sv}) ({'file': <'%1'>}, {'readFiles': <['file']>, 'writeFiles': <@as []>})")
                 .arg(file.fileName()));
    QVERIFY(peer.call(HandleIntent, "('Give', @a{sv} {})").descriptors.size() == 1);
}

void TestBusFaults::replyIsSentIfItsDescriptorCannotBeDuplicated()
{
    auto *dispatcher = RuntimeDispatcher::instance();
    dispatcher->registerIntent("Give", [this](const QJsonObject &, const auto &reply) {
        reply({{"file", file.fileName()}, {"leftOut", QJsonValue()}});
    });
    dispatcher->registerIntentOutputFiles("Give", {"file"}, {});
    // The warning about the omitted value is logged after the file is opened, and before the message duplicates the
    // descriptor.
    static std::optional<NoFreeDescriptor> none;
    static QtMessageHandler handler = nullptr;
    handler = qInstallMessageHandler([](QtMsgType type, const QMessageLogContext &context, const QString &text) {
        if (!none)
            none.emplace();
        handler(type, context, text);
    });
    const QString reply = peer.call(HandleIntent, "('Give', @a{sv} {})").text;
    qInstallMessageHandler(handler);
    QVERIFY(none);
    none.reset();
    QCOMPARE(log->takeWarnings(), QStringList("Unknown JSON value type"));
    QCOMPARE(
        reply, // libdbus omits the descriptor
        QString(
            "(a{sv}a{sv}) ({'file': <'%1'>}, {'readFds': <@ah []>, 'readFiles': <['file']>, 'writeFiles': <@as []>})")
            .arg(file.fileName()));
}

namespace {

/// The process that the tests kill. It prints a line for each event.
int handleIntents(int argc, char **argv)
{
    QCoreApplication application(argc, argv);
    const auto print = [](const char *line) {
        std::puts(line);
        std::fflush(stdout);
    };
    auto *dispatcher = RuntimeDispatcher::instance();
    dispatcher->registerIntent("Answer", [](const QJsonObject &, const auto &reply) { reply({{"a", 1}}); });
    RuntimeDispatcher::ReplyFunction kept;
    dispatcher->registerIntent("Keep", [&kept, print](const QJsonObject &, const auto &reply) {
        kept = reply;
        print("kept");
    });
    print(dispatcher->startService() ? "no name" : "ready");
    return QCoreApplication::exec();
}

} // namespace

int main(int argc, char **argv)
{
    if (argc == 2 && qstrcmp(argv[1], "--handle") == 0)
        return handleIntents(argc, argv);
    QCoreApplication application(argc, argv);
    TestBusFaults test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_bus_faults.moc"
