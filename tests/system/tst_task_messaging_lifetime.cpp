// SPDX-License-Identifier: BSD-3-Clause
// Channels and clients that a slot deletes.
#include "channel.h"

#include <message_log.h>
#include <patience.h>
#include <plain_socket.h>

#include <QtCore/QTemporaryDir>
#include <QtTest/QtTest>

#include <memory>
#include <optional>
#include <utility>

using namespace Corvane;

namespace {

const QString OneOnly = QStringLiteral("TaskMessaging can handle only one connection at a time");

} // namespace

class TestTaskMessagingLifetime : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void init();
    void cleanup();

    void messageSlotMayDeleteTheChannel_data();
    void messageSlotMayDeleteTheChannel();
    void messageOfAWaitingClientMayDeleteTheChannel();
    void stateSlotMayDeleteTheChannel_data();
    void stateSlotMayDeleteTheChannel();
    void clientMayBeReplacedDuringASlot();
    void eventLoopOfASlotMayDeleteTheChannel_data();
    void eventLoopOfASlotMayDeleteTheChannel();

private:
    QString path() const { return directory->filePath("task.socket"); }

    std::unique_ptr<QTemporaryDir> directory;
    std::optional<MessageLog> log;
    int handled = 0; ///< signals; the first one deletes the channel
};

void TestTaskMessagingLifetime::init()
{
    directory = std::make_unique<QTemporaryDir>();
    log.emplace();
}

void TestTaskMessagingLifetime::cleanup()
{
    log.reset();
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
}

void TestTaskMessagingLifetime::messageSlotMayDeleteTheChannel_data()
{
    QTest::addColumn<bool>("isTask");

    QTest::newRow("application") << false;
    QTest::newRow("task") << true;
}

void TestTaskMessagingLifetime::messageSlotMayDeleteTheChannel()
{
    QFETCH(bool, isTask);

    Descriptor listener(listeningSocket(path()));
    auto *channel = isTask ? new TaskMessaging(listener.release()) : new TaskMessaging(path());
    std::unique_ptr<PlainSocket> other =
        isTask ? std::make_unique<PlainSocket>(path()) : std::make_unique<PlainSocket>(listener.get());
    handled = 0;
    connect(channel, &TaskMessaging::messageReceived, this, [this, channel] {
        ++handled;
        delete channel;
    });
    QVERIFY(other->send(frame("{}") + frame("{}")));
    QTRY_VERIFY(other->isClosed());
    QCOMPARE(handled, 1);
}

void TestTaskMessagingLifetime::messageOfAWaitingClientMayDeleteTheChannel()
{
    auto *channel = new TaskMessaging(listeningSocket(path()));
    PlainSocket first(path());
    QTRY_COMPARE(channel->state(), TaskMessaging::Connected);
    PlainSocket second(path());
    QVERIFY(second.send(frame("{}") + frame("{}")));
    QStringList warnings;
    QTRY_COMPARE((warnings += log->takeWarnings(), warnings), QStringList(OneOnly));
    first.close();
    QTRY_COMPARE(channel->state(), TaskMessaging::Unconnected);
    log->takeWarnings();

    handled = 0;
    connect(channel, &TaskMessaging::messageReceived, this, [this, channel] {
        ++handled;
        delete channel;
    });
    PlainSocket third(path());
    QTRY_VERIFY(second.isClosed());
    QCOMPARE(handled, 1);
}

void TestTaskMessagingLifetime::stateSlotMayDeleteTheChannel_data()
{
    messageSlotMayDeleteTheChannel_data();
}

void TestTaskMessagingLifetime::stateSlotMayDeleteTheChannel()
{
    QFETCH(bool, isTask);

    for (const bool isTorn : {true, false}) { // the channel closes the connection, or the other end does
        Descriptor listener(listeningSocket(path()));
        auto *channel = isTask ? new TaskMessaging(listener.release()) : new TaskMessaging(path());
        std::unique_ptr<PlainSocket> other =
            isTask ? std::make_unique<PlainSocket>(path()) : std::make_unique<PlainSocket>(listener.get());
        QTRY_COMPARE(channel->state(), TaskMessaging::Connected);
        handled = 0;
        connect(channel, &TaskMessaging::stateChanged, this, [this, channel] {
            ++handled;
            delete channel;
        });
        if (isTorn)
            QVERIFY(other->send("{}"));
        other->close();
        QTRY_COMPARE(handled, 1);
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
        log->takeWarnings();
        QFile::remove(path());
    }
}

void TestTaskMessagingLifetime::clientMayBeReplacedDuringASlot()
{
    Channel task(listeningSocket(path()));
    auto first = std::make_unique<PlainSocket>(path());
    QTRY_COMPARE(task->state(), TaskMessaging::Connected);
    std::unique_ptr<PlainSocket> second;
    bool replaced = false;
    connect(task.channel.get(), &TaskMessaging::messageReceived, this, [&] {
        if (std::exchange(replaced, true))
            return;
        first.reset();
        QTRY_COMPARE(task->state(), TaskMessaging::Unconnected);
        second = std::make_unique<PlainSocket>(path());
        QTRY_COMPARE(task->state(), TaskMessaging::Connected);
    });
    QVERIFY(first->send(frame(R"({"n":1})") + frame(R"({"n":2})")));
    QTRY_VERIFY(second);
    QVERIFY(second->send(frame(R"({"n":3})")));
    QTRY_COMPARE(task.messages, QStringList({"{\"n\":1}", "{\"n\":3}"}));
    log->takeWarnings();
}

void TestTaskMessagingLifetime::eventLoopOfASlotMayDeleteTheChannel_data()
{
    QTest::addColumn<bool>("hasWaited");
    QTest::addColumn<bool>("onState");

    QTest::newRow("message") << false << false;
    QTest::newRow("message that has waited") << true << false;
    QTest::newRow("state") << false << true;
}

void TestTaskMessagingLifetime::eventLoopOfASlotMayDeleteTheChannel()
{
    QFETCH(bool, hasWaited);
    QFETCH(bool, onState);

    auto *channel = new TaskMessaging(listeningSocket(path()));
    auto client = std::make_unique<PlainSocket>(path());
    QTRY_COMPARE(channel->state(), TaskMessaging::Connected);
    handled = 0;
    const auto handle = [this, channel] {
        QEventLoop loop;
        QTimer::singleShot(0, &loop, [channel, &loop] {
            delete channel;
            QTimer::singleShot(0, &loop, &QEventLoop::quit); // quits after deferred deletions
        });
        loop.exec();
        ++handled;
    };
    if (onState)
        connect(channel, &TaskMessaging::stateChanged, this, handle);
    else
        connect(channel, &TaskMessaging::messageReceived, this, handle);

    std::unique_ptr<PlainSocket> second;
    std::unique_ptr<PlainSocket> third;
    if (hasWaited) {
        second = std::make_unique<PlainSocket>(path());
        QVERIFY(second->send(frame("{}") + frame("{}")));
        QStringList warnings;
        QTRY_COMPARE((warnings += log->takeWarnings(), warnings), QStringList(OneOnly));
        client.reset();
        QTRY_COMPARE(channel->state(), TaskMessaging::Unconnected);
        third = std::make_unique<PlainSocket>(path());
    } else if (onState) {
        client.reset();
    } else {
        QVERIFY(client->send(frame("{}") + frame("{}")));
    }
    QTRY_COMPARE(handled, 1);
    log->takeWarnings();
}

QTEST_GUILESS_MAIN(TestTaskMessagingLifetime)
#include "tst_task_messaging_lifetime.moc"
