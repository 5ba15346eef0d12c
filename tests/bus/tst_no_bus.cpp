// SPDX-License-Identifier: BSD-3-Clause
// A process that has no session bus at all.
#include <Corvane/intents_invoker.h>
#include <Corvane/runtime_dispatcher.h>

#include <replies.h>

#include <QtTest/QtTest>

using namespace Corvane;

class TestNoBus : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void invokeFailsOnceFromTheEventLoop();
    void invokerMayBeDeletedInItsSlot();
    void deletedInvokerDeliversNothing();
    void servicesCannotStart();
};

void TestNoBus::invokeFailsOnceFromTheEventLoop()
{
    IntentsInvoker invoker;
    Replies replies(invoker);
    invoker.invoke(QStringLiteral("X"), {}, {});
    invoker.invoke(QString(QChar(0)), {}, {});
    QCOMPARE(replies.all, QStringList());
    QTRY_COMPARE(replies.all,
                 QStringList({QStringLiteral("{} 1 Not connected to D-Bus server"),
                              QStringLiteral("{} 1 A message cannot hold a text with U+0000")}));
    QCoreApplication::processEvents();
    QCOMPARE(replies.all.size(), 2);
}

void TestNoBus::invokerMayBeDeletedInItsSlot()
{
    auto *invoker = new IntentsInvoker;
    int received = 0;
    connect(invoker, &IntentsInvoker::replyReceived, this, [invoker, &received] {
        ++received;
        delete invoker;
    });
    invoker->invoke(QStringLiteral("X"), {}, {});
    invoker->invoke(QStringLiteral("X"), {}, {});
    QTRY_COMPARE(received, 1);
    QCoreApplication::processEvents();
    QCOMPARE(received, 1);
}

void TestNoBus::deletedInvokerDeliversNothing()
{
    int received = 0;
    {
        IntentsInvoker invoker;
        connect(&invoker, &IntentsInvoker::replyReceived, this, [&received] { ++received; });
        invoker.invoke(QStringLiteral("X"), {}, {});
    }
    IntentsInvoker other;
    Replies replies(other);
    other.invoke(QStringLiteral("X"), {}, {});
    QTRY_COMPARE(replies.all.size(), 1);
    QCOMPARE(received, 0);
}

void TestNoBus::servicesCannotStart()
{
    auto *dispatcher = RuntimeDispatcher::instance();
    const Error error = dispatcher->startService();
    QCOMPARE(error.code(), Error::Failed);
    QCOMPARE(error.message(), QStringLiteral("Registration failed"));
    delete dispatcher;
}

QTEST_GUILESS_MAIN(TestNoBus)
#include "tst_no_bus.moc"
