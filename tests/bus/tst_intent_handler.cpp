// SPDX-License-Identifier: BSD-3-Clause
#include <Corvane/runtime_dispatcher.h>
#include <Corvane/runtime_dispatcher_p.h>

#include <introspection.h>
#include <message_log.h>
#include <patience.h>
#include <service_peer.h>
#include <under_valgrind.h>

#include <QtCore/QDir>
#include <QtCore/QProcess>
#include <QtDBus/QDBusConnection>
#include <QtTest/QtTest>

#include <functional>
#include <malloc.h>
#include <memory>
#include <optional>

using namespace Corvane;

namespace {

const QString Files = QStringLiteral("{'readFiles': <@as []>, 'writeFiles': <@as []>}");
const QString NotRegistered =
    QStringLiteral("org.freedesktop.DBus.Error.Failed (s) ('Intent not registered by specified application',)");
const QString UnknownMethod = QStringLiteral("org.freedesktop.DBus.Error.UnknownMethod");
const QString HandleIntent = QStringLiteral("HandleIntent");
const QString Ask = QStringLiteral("Ask");
const QString AskBody = QStringLiteral("('Ask', {'q': <1>})");

QJsonObject withoutInterface()
{
    return {{"interface", QJsonValue()}};
}

QString answer(const QString &result)
{
    return QString("(a{sv}a{sv}) (%1, %2)").arg(result, Files);
}

int openDescriptors()
{
    return QDir("/proc/self/fd").entryList(QDir::AllEntries | QDir::System).size();
}

/// Returns the allocated bytes; 0 under the sanitizers and under valgrind.
qint64 allocatedMemory()
{
    const struct mallinfo2 memory = mallinfo2();
    return qint64(memory.uordblks) + qint64(memory.hblkhd);
}

/// Calls a function when the last copy is destroyed.
std::shared_ptr<void> whenDestroyed(const std::function<void()> &function)
{
    return {nullptr, [function](void *) { function(); }};
}

} // namespace

class TestIntentHandler : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void init();
    void cleanup();
    void replyInsideTheHandlerIsTheOnlyOne();
    void replyMayComeLater();
    void repliesMayComeInAnyOrder();
    void callerReceivesOnlyTheFirstReply();
    void secondReplyIsSentToTheBus();
    void callerWaitsIfTheHandlerNeverReplies();
    void unknownIntentIsAnError();
    void unregisteredIntentIsAnError();
    void intentWithEmptyNameIsNeverDelivered();
    void laterHandlerReplacesTheEarlierOne();
    void outputFilesAreNamedInTheReply();
    void outputFilesOfUnknownIntentAreRefused();
    void replyUsesTheFileListsOfItsCall();
    void handlerMayUnregisterItself();
    void handlerMayReplaceItself();
    void handlerMayRunAnEventLoop();
    void replyWorksAfterUnregistering();
    void handlerMayDeleteTheDispatcher();
    void destructorOfAHandlerMayUseTheDispatcher_data();
    void destructorOfAHandlerMayUseTheDispatcher();
    void destructorOfAHandlerMayDeleteTheDispatcher();
    void anyProcessOnTheBusCanCallTheHandler();
    void introspectionShowsOneMethod();
    void metaObjectHasOneMethod();
    void callWithoutAnInterfaceIsHandled();
    void onlyHandleIntentCanBeCalled_data();
    void onlyHandleIntentCanBeCalled();
    void thousandsOfIntentsAreAnswered();
    void unusedDescriptorsAreClosed();

private:
    ServicePeer::Reply ask() { return peer.call(HandleIntent, AskBody); }

    RuntimeDispatcher *dispatcher = nullptr;
    ServicePeer peer;
    std::optional<MessageLog> log;
};

void TestIntentHandler::init()
{
    dispatcher = RuntimeDispatcher::instance();
    QVERIFY(!dispatcher->startService());
    log.emplace();
}

void TestIntentHandler::cleanup()
{
    delete RuntimeDispatcher::instance();
    log.reset();
}

void TestIntentHandler::replyInsideTheHandlerIsTheOnlyOne()
{
    dispatcher->registerIntent(Ask, [](const QJsonObject &params, const auto &reply) {
        reply({{"asked", params.value("q")}});
    });
    QCOMPARE(ask().text, answer("{'asked': <1.0>}"));
    QVERIFY(peer.roundTrip());
}

void TestIntentHandler::replyMayComeLater()
{
    RuntimeDispatcher::ReplyFunction kept;
    dispatcher->registerIntent(Ask, [&kept](const QJsonObject &, const auto &reply) { kept = reply; });
    const int call = peer.beginCall(HandleIntent, AskBody);
    QTRY_VERIFY(kept);
    QVERIFY(peer.roundTrip());
    QVERIFY(!peer.isFinished(call));
    kept({{"late", true}});
    QCOMPARE(peer.finishCall(call).text, answer("{'late': <true>}"));
}

void TestIntentHandler::repliesMayComeInAnyOrder()
{
    QVector<RuntimeDispatcher::ReplyFunction> kept;
    dispatcher->registerIntent(Ask, [&kept](const QJsonObject &, const auto &reply) { kept << reply; });
    QVector<int> calls;
    for (int i = 0; i < 3; ++i)
        calls << peer.beginCall(HandleIntent, AskBody);
    QTRY_COMPARE(kept.size(), 3);
    for (const int i : {1, 2, 0}) {
        kept[i]({{"n", i}});
        QCOMPARE(peer.finishCall(calls[i]).text, answer(QString("{'n': <%1.0>}").arg(i)));
    }
}

void TestIntentHandler::callerReceivesOnlyTheFirstReply()
{
    dispatcher->registerIntent(Ask, [](const QJsonObject &, const auto &reply) {
        reply({{"n", 1}});
        reply({{"n", 2}});
    });
    QCOMPARE(ask().text, answer("{'n': <1.0>}"));
    QVERIFY(peer.roundTrip()); // the bus has received the second reply, and the connection is open
    QCOMPARE(ask().text, answer("{'n': <1.0>}"));
}

void TestIntentHandler::secondReplyIsSentToTheBus()
{
    QProcess monitor;
    monitor.start("dbus-monitor",
                  {QString("type='method_return',sender='%1'").arg(QDBusConnection::sessionBus().baseService())});
    QByteArray seen;
    connect(&monitor, &QProcess::readyRead, this, [&monitor, &seen] { seen += monitor.readAll(); });
    QTRY_VERIFY(seen.contains("member=NameLost")); // the process is a monitor now

    dispatcher->registerIntent(Ask, [](const QJsonObject &, const auto &reply) {
        reply({{"n", 1}});
        reply({{"n", 2}});
    });
    QCOMPARE(ask().text, answer("{'n': <1.0>}"));
    QTRY_VERIFY(seen.contains("double 2"));
    const QByteArrayList lines = seen.split('\n');
    QByteArrayList answered; // numbers of the calls
    for (const QByteArray &line : lines) {
        if (line.startsWith("method return "))
            answered << line.mid(line.indexOf(" reply_serial="));
    }
    QCOMPARE(answered.size(), 2);
    QCOMPARE(answered[0], answered[1]);
    monitor.kill();
    QVERIFY(monitor.waitForFinished());
}

void TestIntentHandler::callerWaitsIfTheHandlerNeverReplies()
{
    int handled = 0;
    dispatcher->registerIntent(Ask, [&handled](const QJsonObject &, const auto &) { ++handled; });
    const int call = peer.beginCall(HandleIntent, AskBody);
    QTRY_COMPARE(handled, 1);
    QVERIFY(peer.roundTrip());
    QVERIFY(!peer.isFinished(call));
}

void TestIntentHandler::unknownIntentIsAnError()
{
    QCOMPARE(ask().text, NotRegistered);
}

void TestIntentHandler::unregisteredIntentIsAnError()
{
    dispatcher->unregisterIntent(Ask); // no effect without a handler
    dispatcher->registerIntent(Ask, [](const QJsonObject &, const auto &reply) { reply({}); });
    dispatcher->unregisterIntent(Ask);
    QCOMPARE(ask().text, NotRegistered);
}

void TestIntentHandler::intentWithEmptyNameIsNeverDelivered()
{
    bool called = false;
    dispatcher->registerIntent(QString(), [&called](const QJsonObject &, const auto &) { called = true; });
    QCOMPARE(peer.call(HandleIntent, "('', @a{sv} {})").text, NotRegistered);
    QVERIFY(!called);
}

void TestIntentHandler::laterHandlerReplacesTheEarlierOne()
{
    dispatcher->registerIntent(Ask, [](const QJsonObject &, const auto &reply) { reply({}); });
    dispatcher->registerIntentOutputFiles(Ask, {"file"}, {});
    dispatcher->registerIntent(Ask, [](const QJsonObject &, const auto &reply) { reply({{"second", true}}); });
    QCOMPARE(ask().text, answer("{'second': <true>}")); // the list of files is removed too
}

void TestIntentHandler::outputFilesAreNamedInTheReply()
{
    QTemporaryFile file;
    QVERIFY(file.open());
    file.write("content");
    file.close();
    dispatcher->registerIntent(Ask, [&file](const QJsonObject &, const auto &reply) {
        reply({{"f", file.fileName()}});
    });
    dispatcher->registerIntentOutputFiles(Ask, {"x"}, {"y"});
    dispatcher->registerIntentOutputFiles(Ask, {"f", "none"}, {"f"});
    const auto reply = ask();
    QCOMPARE(reply.text,
             QString("(a{sv}a{sv}) ({'f': <'%1'>}, {'readFds': <[handle 0]>, 'readFiles': <['f', 'none']>, 'writeFds': "
                     "<[handle 1]>, 'writeFiles': <['f']>})")
                 .arg(file.fileName()));
    QCOMPARE(reply.descriptors, QStringList({"read: content", "read-write: content"}));
}

void TestIntentHandler::outputFilesOfUnknownIntentAreRefused()
{
    dispatcher->registerIntentOutputFiles(Ask, {"f"}, {});
    QCOMPARE(log->takeWarnings(), QStringList("The intent \"Ask\" has not been registered"));
    QVERIFY2(log->lastFunction().contains("Corvane::RuntimeDispatcherPrivate::registerIntentOutputFiles("),
             qUtf8Printable(log->lastFunction()));
    dispatcher->registerIntent(Ask, [](const QJsonObject &, const auto &reply) { reply({}); });
    QCOMPARE(ask().text, answer("@a{sv} {}"));
}

void TestIntentHandler::replyUsesTheFileListsOfItsCall()
{
    RuntimeDispatcher::ReplyFunction kept;
    dispatcher->registerIntent(Ask, [&kept](const QJsonObject &, const auto &reply) { kept = reply; });
    dispatcher->registerIntentOutputFiles(Ask, {"then"}, {"then too"});
    const int call = peer.beginCall(HandleIntent, AskBody);
    QTRY_VERIFY(kept);
    dispatcher->registerIntentOutputFiles(Ask, {"now"}, {});
    kept({});
    QCOMPARE(peer.finishCall(call).text,
             QString("(a{sv}a{sv}) (@a{sv} {}, {'readFiles': <['then']>, 'writeFiles': <['then too']>})"));
}

void TestIntentHandler::handlerMayUnregisterItself()
{
    dispatcher->registerIntent(Ask, [this, captured = "x"](const QJsonObject &, const auto &reply) {
        dispatcher->unregisterIntent(Ask);
        reply({{captured, 1}}); // the handler has not been destroyed
    });
    QCOMPARE(ask().text, answer("{'x': <1.0>}"));
    QCOMPARE(ask().text, NotRegistered);
}

void TestIntentHandler::handlerMayReplaceItself()
{
    dispatcher->registerIntent(Ask, [this, captured = "first"](const QJsonObject &, const auto &reply) {
        dispatcher->registerIntent(Ask, [](const QJsonObject &, const auto &replyOfSecond) { replyOfSecond({}); });
        dispatcher->registerIntentOutputFiles(Ask, {"now"}, {});
        reply({{captured, 1}}); // the handler and its files still exist
    });
    dispatcher->registerIntentOutputFiles(Ask, {"then"}, {"then too"});
    QCOMPARE(ask().text,
             QString("(a{sv}a{sv}) ({'first': <1.0>}, {'readFiles': <['then']>, 'writeFiles': <['then too']>})"));
    QCOMPARE(ask().text, QString("(a{sv}a{sv}) (@a{sv} {}, {'readFiles': <['now']>, 'writeFiles': <@as []>})"));
}

void TestIntentHandler::handlerMayRunAnEventLoop()
{
    QVector<RuntimeDispatcher::ReplyFunction> kept;
    dispatcher->registerIntent(Ask, [&kept](const QJsonObject &, const auto &reply) {
        kept << reply;
        QTRY_COMPARE(kept.size(), 2);
        if (kept.front()) { // the second intent, inside the handler of the first one
            kept.front()({{"n", 1}});
            kept.front() = nullptr;
            reply({{"n", 2}});
        }
    });
    const int first = peer.beginCall(HandleIntent, AskBody);
    const int second = peer.beginCall(HandleIntent, AskBody);
    QCOMPARE(peer.finishCall(first).text, answer("{'n': <1.0>}"));
    QCOMPARE(peer.finishCall(second).text, answer("{'n': <2.0>}"));
}

void TestIntentHandler::replyWorksAfterUnregistering()
{
    RuntimeDispatcher::ReplyFunction kept;
    dispatcher->registerIntent(Ask, [&kept](const QJsonObject &, const auto &reply) { kept = reply; });
    const int call = peer.beginCall(HandleIntent, AskBody);
    QTRY_VERIFY(kept);
    dispatcher->unregisterIntent(Ask);
    kept({});
    QCOMPARE(peer.finishCall(call).text, answer("@a{sv} {}"));
}

void TestIntentHandler::handlerMayDeleteTheDispatcher()
{
    RuntimeDispatcher::ReplyFunction kept;
    dispatcher->registerIntent(Ask, [this, &kept](const QJsonObject &, const auto &reply) {
        kept = reply;
        delete dispatcher;
    });
    const int call = peer.beginCall(HandleIntent, AskBody);
    QTRY_VERIFY(kept);
    QVERIFY(peer.roundTrip());
    kept({{"after", true}});
    QCOMPARE(peer.finishCall(call).text, answer("{'after': <true>}"));

    // The object path is free again: the next dispatcher registers its object.
    dispatcher = RuntimeDispatcher::instance();
    QVERIFY(!dispatcher->startService());
    QCOMPARE(ask().text, NotRegistered);
}

void TestIntentHandler::destructorOfAHandlerMayUseTheDispatcher_data()
{
    QTest::addColumn<QString>("how");

    QTest::newRow("replaced") << "replaced";
    QTest::newRow("unregistered") << "unregistered";
    QTest::newRow("deleted with the dispatcher") << "deleted";
}

void TestIntentHandler::destructorOfAHandlerMayUseTheDispatcher()
{
    QFETCH(QString, how);

    bool replyIsEmpty = false;
    const auto handler = [&replyIsEmpty](const QJsonObject &, const auto &reply) {
        replyIsEmpty = true;
        reply({});
    };
    // The destructors of the captures change the same entry, other entries, and the size of the table.
    auto destroyed = whenDestroyed([this, handler] {
        for (int i = 0; i < 20; ++i)
            dispatcher->registerIntent(QString("New%1").arg(i), handler);
        dispatcher->registerIntentOutputFiles(Ask, {"f"}, {});
        dispatcher->unregisterIntent(Ask);
        dispatcher->registerIntent(Ask, handler);
        dispatcher->unregisterIntent("Other");
    });
    dispatcher->registerIntent("Other", handler);
    dispatcher->registerIntent(Ask, [destroyed = std::move(destroyed)](const QJsonObject &, const auto &) {});
    dispatcher->registerIntentOutputFiles(Ask, {"old file"}, {"old file"});

    const QStringList notRegistered("The intent \"Ask\" has not been registered");
    if (how == "deleted") {
        delete dispatcher;
        QCOMPARE(log->takeWarnings(), notRegistered);
        return;
    }
    if (how == "replaced") {
        dispatcher->registerIntent(Ask, [](const QJsonObject &, const auto &reply) { reply({{"replacement", true}}); });
    } else {
        dispatcher->unregisterIntent(Ask);
        QCOMPARE(log->takeWarnings(), notRegistered);
    }
    // The captures have registered the last handler.
    QCOMPARE(ask().text, answer("@a{sv} {}"));
    QVERIFY(replyIsEmpty);
    QCOMPARE(peer.call(HandleIntent, "('New19', @a{sv} {})").text, answer("@a{sv} {}"));
    QCOMPARE(peer.call(HandleIntent, "('Other', @a{sv} {})").text, NotRegistered);
}

void TestIntentHandler::destructorOfAHandlerMayDeleteTheDispatcher()
{
    for (const bool isReplaced : {true, false}) {
        dispatcher = RuntimeDispatcher::instance();
        QPointer<RuntimeDispatcher> alive = dispatcher;
        dispatcher->registerIntent(
            Ask, [destroyed = whenDestroyed([this] { delete dispatcher; })](const QJsonObject &, const auto &) {});
        if (isReplaced)
            dispatcher->registerIntent(Ask, [](const QJsonObject &, const auto &) {});
        else
            dispatcher->unregisterIntent(Ask);
        QVERIFY(!alive);
    }
}

void TestIntentHandler::anyProcessOnTheBusCanCallTheHandler()
{
    dispatcher->registerIntent(Ask, [](const QJsonObject &, const auto &reply) { reply({}); });
    peer.ownServiceName(false);
    QCOMPARE(ask().text, answer("@a{sv} {}"));
    QVERIFY(!dispatcher->stopService());
    const QJsonObject uniqueName{{"destination", QDBusConnection::sessionBus().baseService()}};
    QCOMPARE(peer.call(HandleIntent, AskBody, uniqueName).text, answer("@a{sv} {}"));
    peer.ownServiceName(true);
}

void TestIntentHandler::introspectionShowsOneMethod()
{
    const QString interface = CORVANE_SERVICE_ROOT ".IntentHandler1";
    const QString xml =
        introspectionIn(peer.call("Introspect", {}, {{"interface", "org.freedesktop.DBus.Introspectable"}}).text);
    const QStringList expected{
        "method HandleIntent(in s intentName, in a{sv} params, out a{sv} reply, out a{sv} files)"};
    QCOMPARE(membersOf(interface, xml), expected);
    QCOMPARE(documentedMembersOf(interface), expected);
    QCOMPARE(xml.count("<interface "), 4); // the others are Properties, Introspectable and Peer
}

void TestIntentHandler::metaObjectHasOneMethod()
{
    const QMetaObject &type = RuntimeDispatcherPrivate::staticMetaObject;
    QCOMPARE(QByteArray(type.classInfo(type.indexOfClassInfo("D-Bus Interface")).value()),
             QByteArray(CORVANE_SERVICE_ROOT ".IntentHandler1"));
    QCOMPARE(type.methodCount() - type.methodOffset(), 1);
    const QMetaMethod method = type.method(type.methodOffset());
    QCOMPARE(method.methodType(), QMetaMethod::Slot);
    QCOMPARE(method.access(), QMetaMethod::Public);
    QCOMPARE(method.methodSignature(), QByteArray("HandleIntent(QString,QJsonObject)"));
    QCOMPARE(method.returnType(), int(QMetaType::Void));
}

void TestIntentHandler::callWithoutAnInterfaceIsHandled()
{
    dispatcher->registerIntent(Ask, [](const QJsonObject &, const auto &reply) { reply({}); });
    QCOMPARE(peer.call(HandleIntent, AskBody, withoutInterface()).text, answer("@a{sv} {}"));
}

void TestIntentHandler::onlyHandleIntentCanBeCalled_data()
{
    QTest::addColumn<QString>("member");
    QTest::addColumn<QString>("body");
    QTest::addColumn<QString>("error");

    QTest::newRow("slot of QObject") << "deleteLater"
                                     << "()" << UnknownMethod;
    QTest::newRow("destroyed") << "destroyed"
                               << "()" << UnknownMethod;
    QTest::newRow("our own method") << "startService"
                                    << "()" << UnknownMethod;
    QTest::newRow("registration") << "registerIntentOutputFiles"
                                  << "('a', @as [], @as [])" << UnknownMethod;
    QTest::newRow("another case") << "handleIntent" << AskBody << UnknownMethod;
    QTest::newRow("no params") << "HandleIntent"
                               << "('Ask',)" << UnknownMethod;
    QTest::newRow("params of another type") << "HandleIntent"
                                            << "('Ask', {'a': 'b'})" << UnknownMethod;
    QTest::newRow("an argument more") << "HandleIntent"
                                      << "('Ask', {'a': <1>}, 3)" << UnknownMethod;
}

void TestIntentHandler::onlyHandleIntentCanBeCalled()
{
    QFETCH(QString, member);
    QFETCH(QString, body);
    QFETCH(QString, error);

    dispatcher->registerIntent(Ask, [](const QJsonObject &, const auto &reply) { reply({}); });
    for (const QJsonObject &more : {QJsonObject(), withoutInterface()}) {
        const QString text = peer.call(member, body, more).text;
        QVERIFY2(text.startsWith(error), qUtf8Printable(text));
    }
    QCOMPARE(ask().text, answer("@a{sv} {}")); // the handler still works

    const QJsonObject properties{{"interface", "org.freedesktop.DBus.Properties"}};
    const QString all = peer.call("GetAll", "('" CORVANE_SERVICE_ROOT ".IntentHandler1',)", properties).text;
    QVERIFY2(all.startsWith("org.freedesktop.DBus.Error.UnknownInterface"), qUtf8Printable(all));
}

void TestIntentHandler::thousandsOfIntentsAreAnswered()
{
    const int count = underValgrind() ? 500 : 10000;
    int handled = 0;
    dispatcher->registerIntent(Ask, [&handled](const QJsonObject &, const auto &reply) {
        if (++handled % 2)
            reply({});
        // else it is dropped
    });
    const auto answerThem = [this, count, &handled] {
        handled = 0;
        const auto reply = peer.call(HandleIntent, AskBody, {{"repeat", count}, {"enough", count / 2}});
        QTRY_COMPARE(handled, count);
        QCOMPARE(reply.counts.value(answer("@a{sv} {}")).toInt(), count / 2);
    };
    answerThem(); // allocates memory that later calls reuse
    const int descriptors = openDescriptors();
    const qint64 memory = allocatedMemory();
    answerThem();
    QTRY_VERIFY(openDescriptors() <= descriptors);
    QTRY_VERIFY2(allocatedMemory() - memory < 50 * qint64(count), "an intent may not leave as much as its name behind");
}

void TestIntentHandler::unusedDescriptorsAreClosed()
{
    dispatcher->registerIntent(Ask, [](const QJsonObject &params, const auto &reply) { reply(params); });
    QVERIFY(peer.roundTrip());
    const int before = openDescriptors();

    QStringList handles;
    QJsonArray files;
    for (int i = 0; i < 16; ++i) {
        handles << QString("handle %1").arg(i);
        files.append("/dev/null");
    }
    const QString body = QString("('Ask', {'fds': <[%1]>, 'n': <1>})").arg(handles.join(','));
    // In batches, because libdbus stops reading at 4096 unhandled descriptors.
    const int batches = underValgrind() ? 3 : 100;
    const int batch = 20;
    for (int i = 0; i < batches; ++i) {
        const auto reply = peer.call(HandleIntent, body, {{"repeat", batch}, {"files", files}});
        // Descriptors are read as null, which D-Bus cannot represent.
        QCOMPARE(reply.counts.value(answer("{'n': <1.0>}")).toInt(), batch);
    }
    QCOMPARE(log->takeWarnings(), QVector<QString>(batches * batch, "Unknown JSON value type").toList());
    QTRY_VERIFY(openDescriptors() <= before);
}

QTEST_GUILESS_MAIN(TestIntentHandler)
#include "tst_intent_handler.moc"
