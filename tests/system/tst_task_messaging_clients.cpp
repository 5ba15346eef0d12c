// SPDX-License-Identifier: BSD-3-Clause
// A task's channel with many clients.
#include <Corvane/task_messaging.h>

#include <message_log.h>
#include <patience.h>
#include <plain_socket.h>

#include <QtCore/QTemporaryDir>
#include <QtTest/QtTest>

#include <memory>
#include <optional>
#include <vector>

using namespace Corvane;

class TestTaskMessagingClients : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void init();
    void cleanup();

    void newClientIsServedAfterAllOthersHaveLeft_data();
    void newClientIsServedAfterAllOthersHaveLeft();
    void waitingClientsMayLeaveWhileTheFirstStays_data();
    void waitingClientsMayLeaveWhileTheFirstStays();
    void waitingClientsAreServedInOrder_data();
    void waitingClientsAreServedInOrder();
    void newClientIsServedAfterManyClosedOnes();
    void newClientReplacesAClosedClient();
    void messagesOfClosedClientsAreDelivered();
    void messageOfAClosedClientMayDeleteTheChannel();
    void replyToAClosedConnectionReachesItsClient();
    void incompleteFrameDuringASlotIsLoggedOnce();

private:
    static constexpr int MostAccepted =
        32; ///< clients that QLocalServer accepts; the others wait in the backlog of the socket

    void addCounts();
    std::unique_ptr<PlainSocket> connectClient() const { return std::make_unique<PlainSocket>(path); }
    std::vector<std::unique_ptr<PlainSocket>> connectClients(int count);
    bool isServed(PlainSocket &client);
    void takeOnly(const QStringList &expected);

    std::optional<QTemporaryDir> directory;
    QString path;
    std::optional<MessageLog> log;
    std::unique_ptr<TaskMessaging> task;
    QStringList messages;
    int ends = 0; ///< connections that have ended
};

namespace {

const QString OneOnly = QStringLiteral("TaskMessaging can handle only one connection at a time");
const QString RemoteClosed = QStringLiteral("Socket error \"QLocalSocket: Remote closed\"");

} // namespace

void TestTaskMessagingClients::init()
{
    directory.emplace();
    path = directory->filePath("task.socket");
    log.emplace();
    messages.clear();
    ends = 0;
    task = std::make_unique<TaskMessaging>(listeningSocket(path, 128));
    connect(task.get(), &TaskMessaging::messageReceived, this,
            [this](const QJsonObject &message) { messages << message.value("from").toString(); });
    connect(task.get(), &TaskMessaging::stateChanged, this, [this](TaskMessaging::State state) {
        if (state == TaskMessaging::Unconnected)
            ++ends;
    });
}

void TestTaskMessagingClients::cleanup()
{
    task.reset();
    log.reset();
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
}

void TestTaskMessagingClients::addCounts()
{
    QTest::addColumn<int>("count");

    for (const int count : {1, 2, 29, 30, 31, 32, 33, 100})
        QTest::addRow("%d", count) << count;
}

/// Connects \a count clients, and waits until the task has logged each client that the server has accepted.
std::vector<std::unique_ptr<PlainSocket>> TestTaskMessagingClients::connectClients(int count)
{
    takeOnly({RemoteClosed});
    std::vector<std::unique_ptr<PlainSocket>> clients;
    while (int(clients.size()) < count)
        clients.push_back(connectClient());
    QStringList warnings;
    const auto refused = [&] {
        warnings += log->takeWarnings();
        return warnings.size();
    };
    [&] {
        QTRY_COMPARE(refused(), qMin(count, MostAccepted));
        QCOMPARE(warnings.count(OneOnly), warnings.size());
    }();
    return clients;
}

/// Returns whether the client receives a message of the task.
bool TestTaskMessagingClients::isServed(PlainSocket &client)
{
    return task->state() == TaskMessaging::Connected && task->sendMessage({})
        && QTest::qWaitFor([&client] { return client.received() == frame("{}"); }, Patience);
}

void TestTaskMessagingClients::takeOnly(const QStringList &expected)
{
    const QStringList warnings = log->takeWarnings();
    for (const QString &warning : warnings)
        QVERIFY2(expected.contains(warning), qUtf8Printable(warning));
}

void TestTaskMessagingClients::newClientIsServedAfterAllOthersHaveLeft_data()
{
    addCounts();
}

void TestTaskMessagingClients::newClientIsServedAfterAllOthersHaveLeft()
{
    QFETCH(int, count);

    auto first = connectClient();
    QTRY_COMPARE(task->state(), TaskMessaging::Connected);
    auto waiting = connectClients(count);
    waiting.clear();
    first.reset();
    QTRY_COMPARE(task->state(), TaskMessaging::Unconnected);
    const auto newcomer = connectClient();
    QTRY_COMPARE(task->state(), TaskMessaging::Connected);
    QVERIFY(isServed(*newcomer));
    takeOnly({RemoteClosed});
}

void TestTaskMessagingClients::waitingClientsMayLeaveWhileTheFirstStays_data()
{
    addCounts();
}

void TestTaskMessagingClients::waitingClientsMayLeaveWhileTheFirstStays()
{
    QFETCH(int, count);

    auto first = connectClient();
    QTRY_COMPARE(task->state(), TaskMessaging::Connected);
    auto waiting = connectClients(count);
    waiting.clear();
    const auto newcomer = connectClient();
    QVERIFY(isServed(*first));
    first.reset();
    QTRY_VERIFY(ends > 0);
    const auto next = connectClient(); // after a new connection, the task serves the first waiting client
    QTRY_COMPARE(task->state(), TaskMessaging::Connected);
    QVERIFY(isServed(*newcomer));
    QCOMPARE(next->received(), QByteArray());
    takeOnly({RemoteClosed, OneOnly});
}

void TestTaskMessagingClients::waitingClientsAreServedInOrder_data()
{
    addCounts();
}

void TestTaskMessagingClients::waitingClientsAreServedInOrder()
{
    QFETCH(int, count);

    auto first = connectClient();
    QTRY_COMPARE(task->state(), TaskMessaging::Connected);
    auto clients = connectClients(count);
    for (int i = 0; i < count; ++i) {
        if (i % 3 != 0)
            clients[size_t(i)].reset();
    }
    first.reset();
    QTRY_VERIFY(ends > 0);
    clients.push_back(connectClient()); // after a new connection, the task serves the first waiting client
    for (size_t i = 0; i < size_t(count) + 10; ++i) {
        const auto client = std::move(clients[i]);
        if (!client)
            continue;
        QTRY_COMPARE(task->state(), TaskMessaging::Connected);
        QVERIFY2(isServed(*client), qPrintable(QString::number(i)));
        const int endsBefore = ends;
        client->close();
        QTRY_VERIFY(ends > endsBefore);
        clients.push_back(connectClient()); // after a new connection, the task serves the next waiting client
    }
    takeOnly({RemoteClosed, OneOnly});
}

void TestTaskMessagingClients::newClientIsServedAfterManyClosedOnes()
{
    for (int round = 0; round < 5; ++round) {
        auto first = connectClient();
        QTRY_COMPARE(task->state(), TaskMessaging::Connected);
        QVERIFY(isServed(*first));
        auto waiting = connectClients(40);
        const int endsBefore = ends;
        waiting.clear();
        first.reset();
        QTRY_VERIFY(ends > endsBefore);
        takeOnly({RemoteClosed, OneOnly});
    }
}

void TestTaskMessagingClients::newClientReplacesAClosedClient()
{
    auto first = connectClient();
    QTRY_COMPARE(task->state(), TaskMessaging::Connected);
    first.reset();
    const auto newcomer = connectClient(); // before the event loop runs
    QTRY_COMPARE(ends, 1);
    QTRY_COMPARE(task->state(), TaskMessaging::Connected);
    QVERIFY(isServed(*newcomer));
    QCOMPARE(log->takeWarnings(), QStringList(RemoteClosed));
}

void TestTaskMessagingClients::messagesOfClosedClientsAreDelivered()
{
    auto first = connectClient();
    QTRY_COMPARE(task->state(), TaskMessaging::Connected);
    auto waiting = connectClients(40);
    QStringList expected;
    for (size_t i = 0; i < waiting.size(); ++i) {
        const QByteArray number = QByteArray::number(int(i));
        QVERIFY(waiting[i]->send(frame("{\"from\":\"" + number + "\"}") + frame("{\"from\":\"" + number + "\"}")));
        expected << QString::fromLatin1(number) << QString::fromLatin1(number);
    }
    waiting.clear();
    first.reset();
    const auto newcomer = connectClient();
    QVERIFY(newcomer->send(frame("{\"from\":\"newcomer\"}")));
    expected << "newcomer";
    QTRY_COMPARE(messages.size(), expected.size());
    QCOMPARE(messages, expected);
    QVERIFY(isServed(*newcomer));
    takeOnly({RemoteClosed, OneOnly});
}

void TestTaskMessagingClients::messageOfAClosedClientMayDeleteTheChannel()
{
    auto first = connectClient();
    QTRY_COMPARE(task->state(), TaskMessaging::Connected);
    auto waiting = connectClients(3);
    for (const auto &client : waiting)
        QVERIFY(client->send(frame("{}") + frame("{}")));
    waiting.clear();
    first.reset();
    connect(task.get(), &TaskMessaging::messageReceived, this, [this] { task.reset(); });
    const auto newcomer = connectClient();
    QTRY_VERIFY(newcomer->isClosed());
    QCOMPARE(messages.size(), 1);
    takeOnly({RemoteClosed});
}

void TestTaskMessagingClients::replyToAClosedConnectionReachesItsClient()
{
    auto first = connectClient();
    QTRY_COMPARE(task->state(), TaskMessaging::Connected);
    auto waiting = connectClients(1);
    QVERIFY(waiting.front()->send(frame("{}") + "torn"));
    first.reset();
    QTRY_COMPARE(task->state(), TaskMessaging::Unconnected);
    connect(task.get(), &TaskMessaging::messageReceived, this, [this] { QVERIFY(task->sendMessage({})); });
    const auto newcomer = connectClient();
    QTRY_COMPARE(waiting.front()->received(), frame("{}"));
    takeOnly({RemoteClosed, "Insufficient data in the socket"});
}

void TestTaskMessagingClients::incompleteFrameDuringASlotIsLoggedOnce()
{
    auto first = connectClient();
    QTRY_COMPARE(task->state(), TaskMessaging::Connected);
    auto waiting = connectClients(1);
    PlainSocket *const client = waiting.front().get();
    QVERIFY(client->send(frame("{}")));
    QTRY_VERIFY(client->isRead()); // delivered when the task serves the client
    first.reset();
    QTRY_COMPARE(ends, 1);
    connect(task.get(), &TaskMessaging::messageReceived, this, [this, client] {
        QVERIFY(client->send("torn"));
        QTRY_COMPARE(ends, 2);
    });
    const auto newcomer = connectClient();
    QTRY_COMPARE(messages.size(), 1);
    QTRY_COMPARE(ends, 2);
    const QStringList warnings = log->takeWarnings();
    QCOMPARE(warnings.count("Insufficient data in the socket"), 1);
}

QTEST_GUILESS_MAIN(TestTaskMessagingClients)
#include "tst_task_messaging_clients.moc"
