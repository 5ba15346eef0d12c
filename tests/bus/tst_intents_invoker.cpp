// SPDX-License-Identifier: BSD-3-Clause
#include <Corvane/intents_invoker.h>
#include <Corvane/intents_invoker_p.h>

#include <message_log.h>
#include <patience.h>
#include <replies.h>
#include <service_peer.h>
#include <under_valgrind.h>

#include <QtCore/QJsonArray>
#include <QtCore/QTemporaryFile>
#include <QtCore/QThread>
#include <QtTest/QtTest>

#include <optional>

using namespace Corvane;

namespace {

const QString ServiceError = QStringLiteral(CORVANE_SERVICE_ROOT ".Error.");

QString invocation(const QString &arguments)
{
    return QString("InvokeIntent (sa{sv}a{sv}) (%1)").arg(arguments);
}

} // namespace

class TestIntentsInvoker : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void init();
    void cleanup();
    void sendsNameHintsAndParams();
    void callsGoToTheIntentsObject();
    void callsTimeOutAfter86Seconds();
    void deliversTheReply_data();
    void deliversTheReply();
    void deliversErrors_data();
    void deliversErrors();
    void openUriSharesItsUri_data();
    void openUriSharesItsUri();
    void repliesComeInTheOrderOfCompletion();
    void twoInvokersGetTheirOwnReplies();
    void manyCallsInFlightAreAllAnswered();
    void missingServiceIsAnError();
    void callsFailWhenTheServiceExits();
    void invokerBelongsToItsParent();
    void callsInFlightBelongToThePrivateObject();
    void invokerAndItsPrivateObjectHaveOneSignal();
    void invokerMayBeDeletedInItsSlot();
    void invokerMayBeDeletedInItsSlotWhenRefused();
    void deletedInvokerNeverEmits();
    void invokingInTheSlotWorks();
    void replyCrossesThreads();

private:
    ServicePeer peer;
    std::optional<MessageLog> log;
    int deliveries = 0; ///< signals; the first one deletes the invoker
};

void TestIntentsInvoker::init()
{
    log.emplace();
}

void TestIntentsInvoker::cleanup()
{
    peer.answer("(@a{sv} {},)");
    peer.takeCalls();
    log.reset();
}

void TestIntentsInvoker::sendsNameHintsAndParams()
{
    IntentsInvoker invoker;
    invoker.invoke("X", {{"h", 1}}, {{"p", "q"}});
    invoker.invoke(QString(), {}, {});
    QTRY_COMPARE(peer.calls(),
                 QStringList({invocation("'X', {'h': <1.0>}, {'p': <'q'>}"), invocation("'', @a{sv} {}, @a{sv} {}")}));
}

void TestIntentsInvoker::callsGoToTheIntentsObject()
{
    const QString root = CORVANE_SERVICE_ROOT;
    const IntentsInterface interface;
    QCOMPARE(interface.service(), root);
    QCOMPARE(interface.path(), '/' + QString(root).replace('.', '/') + "/Intents1");
    QCOMPARE(interface.interface(), root + ".Intents1");
    QCOMPARE(interface.connection().name(), QDBusConnection::sessionBus().name());
    QVERIFY(!interface.parent());
    QVERIFY(!IntentsInvokerPrivate().parent());
}

void TestIntentsInvoker::callsTimeOutAfter86Seconds()
{
    QCOMPARE(IntentsInterface().timeout(), 86400);
}

void TestIntentsInvoker::deliversTheReply_data()
{
    QTest::addColumn<QString>("body");
    QTest::addColumn<QString>("delivered");

    QTest::newRow("object") << "({'a': <1>, 'b': <['x']>},)"
                            << R"({"a":1,"b":["x"]} 0 )";
    QTest::newRow("empty object") << "(@a{sv} {},)"
                                  << "{} 0 ";
    QTest::newRow("further arguments") << "({'a': <1>}, 'more', 2)"
                                       << R"({"a":1} 0 )";
    QTest::newRow("an object of strings") << "({'a': 'x'},)"
                                          << "{} 1 Unexpected reply signature: got \"a{ss}\", expected \"a{sv}\"";
    QTest::newRow("another type") << "('text',)"
                                  << R"({} 1 Unexpected reply signature: got "s", expected "a{sv}")";
}

void TestIntentsInvoker::deliversTheReply()
{
    QFETCH(QString, body);
    QFETCH(QString, delivered);

    peer.answer(body);
    IntentsInvoker invoker;
    Replies replies(invoker);
    invoker.invoke("X", {}, {});
    QCOMPARE(replies.all, QStringList());
    QTRY_COMPARE(replies.all, QStringList(delivered));
    QVERIFY(peer.roundTrip());
    QCOMPARE(replies.all.size(), 1);
}

void TestIntentsInvoker::deliversErrors_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<QString>("body");
    QTest::addColumn<QString>("delivered");

    QTest::newRow("service error") << ServiceError + "HandlerNotFound"
                                   << "('why',)"
                                   << "{} 2 why";
    QTest::newRow("standard error") << "org.freedesktop.DBus.Error.AccessDenied"
                                    << "('why',)"
                                    << "{} 6 why";
    QTest::newRow("unknown error") << "com.example.Oops"
                                   << "('why',)"
                                   << "{} 1 why";
    QTest::newRow("error that is none") << ServiceError + "NoError"
                                        << "('why',)"
                                        << "{} 0 why";
    QTest::newRow("error with an object") << ServiceError + "HandlerFailed"
                                          << "({'a': <1>},)"
                                          << "{} 3 ";
    QTest::newRow("error without arguments") << ServiceError + "HandlerFailed"
                                             << "()"
                                             << "{} 3 ";
}

void TestIntentsInvoker::deliversErrors()
{
    QFETCH(QString, name);
    QFETCH(QString, body);
    QFETCH(QString, delivered);

    peer.answerError(name, body);
    IntentsInvoker invoker;
    Replies replies(invoker);
    invoker.invoke("X", {}, {});
    QTRY_COMPARE(replies.all, QStringList(delivered));
}

void TestIntentsInvoker::openUriSharesItsUri_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<QJsonObject>("hints");
    QTest::addColumn<bool>("asArray");
    QTest::addColumn<QString>("sentHints");

    const QJsonObject none;
    const QJsonObject other{{"readFiles", QJsonArray{"other"}}};
    QTest::newRow("string") << "OpenURI" << none << false << "{'readFds': <[handle 0]>, 'readFiles': <['uri']>}";
    QTest::newRow("array") << "OpenURI" << none << true << "{'readFds': <[handle 0]>, 'readFiles': <['uri[*]']>}";
    QTest::newRow("replaces a list") << "OpenURI" << other << false
                                     << "{'readFds': <[handle 0]>, 'readFiles': <['uri']>}";
    QTest::newRow("another case") << "openURI" << none << false << "@a{sv} {}";
}

void TestIntentsInvoker::openUriSharesItsUri()
{
    QFETCH(QString, name);
    QFETCH(QJsonObject, hints);
    QFETCH(bool, asArray);
    QFETCH(QString, sentHints);

    QTemporaryFile file;
    QVERIFY(file.open());
    file.write("content");
    file.close();
    const QString uri = QUrl::fromLocalFile(file.fileName()).toString();
    IntentsInvoker invoker;
    invoker.invoke(name, hints,
                   {{"uri", asArray ? QJsonValue(QJsonArray{uri}) : QJsonValue(uri)}, {"other", file.fileName()}});
    QTRY_COMPARE(peer.calls().size(), 1);
    QCOMPARE(peer.calls().value(0),
             invocation(QString("'%1', %2, {'other': <'%3'>, 'uri': <%4>}")
                            .arg(name, sentHints, file.fileName(),
                                 QString::fromLatin1(asArray ? "['%1']" : "'%1'").arg(uri))));
    QCOMPARE(peer.descriptors(), sentHints.startsWith('@') ? QStringList() : QStringList("read: content"));
}

void TestIntentsInvoker::repliesComeInTheOrderOfCompletion()
{
    peer.hold();
    IntentsInvoker invoker;
    Replies replies(invoker);
    for (int i = 0; i < 4; ++i)
        invoker.invoke(QString::number(i), {}, {});
    QTRY_COMPARE(peer.calls().size(), 4);
    for (const int i : {2, 0, 3})
        peer.release(i, QString("({'n': <%1>},)").arg(i));
    peer.releaseError(1, ServiceError + "HandlerFailed");
    QTRY_COMPARE(replies.all, QStringList({R"({"n":2} 0 )", R"({"n":0} 0 )", R"({"n":3} 0 )", "{} 3 the reason"}));
    peer.kill(); // the restarted peer holds no calls
    peer.start();
}

void TestIntentsInvoker::twoInvokersGetTheirOwnReplies()
{
    peer.hold();
    IntentsInvoker first;
    IntentsInvoker second;
    Replies firstReplies(first);
    Replies secondReplies(second);
    first.invoke("1", {}, {});
    second.invoke("2", {}, {});
    QTRY_COMPARE(peer.calls().size(), 2);
    peer.release(1, "({'n': <2>},)");
    peer.release(0, "({'n': <1>},)");
    QTRY_COMPARE(firstReplies.all, QStringList(R"({"n":1} 0 )"));
    QTRY_COMPARE(secondReplies.all, QStringList(R"({"n":2} 0 )"));
    peer.kill();
    peer.start();
}

void TestIntentsInvoker::manyCallsInFlightAreAllAnswered()
{
    const int count = underValgrind() ? 200 : 2000;
    IntentsInvoker invoker;
    Replies replies(invoker);
    for (int i = 0; i < count; ++i)
        invoker.invoke("X", {}, {});
    QTRY_COMPARE(replies.all.size(), count);
    QVERIFY(peer.roundTrip());
    QCOMPARE(replies.all.size(), count);
    QCOMPARE(replies.all.count("{} 0 "), count);
}

void TestIntentsInvoker::missingServiceIsAnError()
{
    peer.ownServiceName(false);
    IntentsInvoker invoker;
    Replies replies(invoker);
    invoker.invoke("X", {}, {});
    QTRY_COMPARE(replies.all.size(), 1);
    QVERIFY2(replies.all.first().startsWith("{} 1 The name "), qUtf8Printable(replies.all.first()));

    peer.ownServiceName(true); // the same invoker works
    invoker.invoke("X", {}, {});
    QTRY_COMPARE(replies.all.size(), 2);
    QCOMPARE(replies.all.last(), QString("{} 0 "));
}

void TestIntentsInvoker::callsFailWhenTheServiceExits()
{
    peer.hold();
    IntentsInvoker invoker;
    Replies replies(invoker);
    for (int i = 0; i < 3; ++i)
        invoker.invoke("X", {}, {});
    QTRY_COMPARE(peer.calls().size(), 3);
    peer.kill();
    QTRY_COMPARE(replies.all.size(), 3);
    for (const QString &reply : qAsConst(replies.all))
        QVERIFY2(reply.startsWith("{} 1 "), qUtf8Printable(reply));

    peer.start();
    invoker.invoke("X", {}, {});
    QTRY_COMPARE(replies.all.size(), 4);
    QCOMPARE(replies.all.last(), QString("{} 0 "));
}

void TestIntentsInvoker::invokerBelongsToItsParent()
{
    auto parent = std::make_unique<QObject>();
    const QPointer<IntentsInvoker> invoker = new IntentsInvoker(parent.get());
    QCOMPARE(invoker->parent(), parent.get());
    parent.reset();
    QVERIFY(!invoker);
}

void TestIntentsInvoker::callsInFlightBelongToThePrivateObject()
{
    peer.hold(); // a call that has finished already has no watcher
    IntentsInvokerPrivate invoker;
    int delivered = 0;
    connect(&invoker, &IntentsInvokerPrivate::replyReceived, this, [&delivered] { ++delivered; });
    for (int i = 0; i < 3; ++i)
        invoker.invoke("X", {}, {});
    QCOMPARE(invoker.findChildren<QDBusPendingCallWatcher *>(QString(), Qt::FindDirectChildrenOnly).size(), 3);
    for (int i = 0; i < 3; ++i)
        peer.release(i, "(@a{sv} {},)");
    QTRY_COMPARE(delivered, 3);
    QTRY_VERIFY(invoker.findChildren<QDBusPendingCallWatcher *>().isEmpty());
    peer.kill(); // the restarted peer holds no calls
    peer.start();
}

void TestIntentsInvoker::invokerAndItsPrivateObjectHaveOneSignal()
{
    for (const QMetaObject *type : {&IntentsInvoker::staticMetaObject, &IntentsInvokerPrivate::staticMetaObject}) {
        QCOMPARE(type->methodCount() - type->methodOffset(), 1);
        const QMetaMethod signal = type->method(type->methodOffset());
        QCOMPARE(signal.methodType(), QMetaMethod::Signal);
        QCOMPARE(signal.methodSignature(), QByteArray("replyReceived(QJsonObject,Corvane::Error)"));
        QCOMPARE(signal.parameterNames(), QList<QByteArray>({"reply", "error"}));
    }
}

void TestIntentsInvoker::invokerMayBeDeletedInItsSlot()
{
    auto *invoker = new IntentsInvoker;
    deliveries = 0;
    connect(invoker, &IntentsInvoker::replyReceived, this, [this, invoker] {
        ++deliveries;
        delete invoker;
    });
    for (int i = 0; i < 5; ++i)
        invoker->invoke("X", {}, {});
    QTRY_COMPARE(deliveries, 1);
    QVERIFY(peer.roundTrip());
    QCOMPARE(deliveries, 1);
}

void TestIntentsInvoker::invokerMayBeDeletedInItsSlotWhenRefused()
{
    auto *invoker = new IntentsInvoker;
    deliveries = 0;
    connect(invoker, &IntentsInvoker::replyReceived, this, [this, invoker] {
        ++deliveries;
        delete invoker;
    });
    for (int i = 0; i < 5; ++i)
        invoker->invoke(QString(QChar(0)), {}, {});
    QTRY_COMPARE(deliveries, 1);
    QVERIFY(peer.roundTrip());
    QCOMPARE(deliveries, 1);
}

void TestIntentsInvoker::deletedInvokerNeverEmits()
{
    int received = 0;
    {
        IntentsInvoker invoker;
        connect(&invoker, &IntentsInvoker::replyReceived, this, [&received] { ++received; });
        for (int i = 0; i < 5; ++i)
            invoker.invoke("X", {}, {});
        invoker.invoke(QString(QChar(0)), {}, {});
    }
    QVERIFY(peer.roundTrip());
    QCOMPARE(peer.calls().size(), 5); // all calls have been sent
    QCOMPARE(received, 0);
}

void TestIntentsInvoker::invokingInTheSlotWorks()
{
    IntentsInvoker invoker;
    int received = 0;
    connect(&invoker, &IntentsInvoker::replyReceived, this, [&invoker, &received] {
        if (++received < 3)
            invoker.invoke(QString::number(received), {}, {});
    });
    invoker.invoke("0", {}, {});
    QTRY_COMPARE(received, 3);
    QCOMPARE(peer.calls().size(), 3);
}

void TestIntentsInvoker::replyCrossesThreads()
{
    QThread thread;
    QObject receiver;
    receiver.moveToThread(&thread);
    thread.start();

    peer.answerError(ServiceError + "HandlerFailed");
    IntentsInvoker invoker;
    QSignalSpy spy(&invoker, &IntentsInvoker::replyReceived);
    QAtomicInt code = -1;
    connect(&invoker, &IntentsInvoker::replyReceived, &receiver,
            [&code](const QJsonObject &, const Error &error) { code = error.code(); });
    invoker.invoke("X", {}, {});
    QTRY_COMPARE(code.loadAcquire(), int(Error::HandlerFailed));
    QCOMPARE(spy.size(), 1);
    QCOMPARE(spy.first().at(1).value<Error>().message(), QString("the reason"));
    thread.quit();
    QVERIFY(thread.wait());
}

QTEST_GUILESS_MAIN(TestIntentsInvoker)
#include "tst_intents_invoker.moc"
