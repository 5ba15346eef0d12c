// SPDX-License-Identifier: BSD-3-Clause
// The begin and the end of the connections of a task channel.
#include "channel.h"

#include <descriptor_limit.h>
#include <message_log.h>
#include <patience.h>
#include <plain_socket.h>
#include <run_until.h>

#include <QtCore/QTemporaryDir>
#include <QtTest/QtTest>

#include <fcntl.h>
#include <memory>
#include <optional>
#include <sys/socket.h>
#include <unistd.h>

using namespace Corvane;

namespace {

const QString OneOnly = QStringLiteral("TaskMessaging can handle only one connection at a time");
const QString NoSocket = QStringLiteral("Socket error \"QLocalSocket::connectToServer: Invalid name\"");
const QString RemoteClosed = QStringLiteral("Socket error \"QLocalSocket: Remote closed\"");

} // namespace

class TestTaskMessagingConnections : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void init();
    void cleanup();

    void interfaceIsFixed();
    void applicationIsConnectedAfterConstruction();
    void missingSocketIsLogged();
    void channelOutlivesItsPath();
    void sendingUnconnectedFails();
    void applicationNoticesTheEndOfTheTask();
    void taskAcceptsWithoutASignal();
    void taskOutlivesItsClients();
    void secondClientWaits();
    void messagesOfAClientThatLeftWhileWaitingArrive();
    void deletedTaskRemovesItsSocketFile();
    void descriptorsThatDoNotListenStayUntouched_data();
    void descriptorsThatDoNotListenStayUntouched();
    void taskWithoutAFreeDescriptorStopsListening();
    void applicationWithoutAFreeDescriptorCannotConnect();
    void peerThatDoesNotReadBlocksNothing_data();
    void peerThatDoesNotReadBlocksNothing();
    void bothEndsSendAndReceive();

private:
    QString path() const { return directory->filePath("task.socket"); }

    std::unique_ptr<QTemporaryDir> directory;
    std::optional<MessageLog> log;
};

void TestTaskMessagingConnections::init()
{
    directory = std::make_unique<QTemporaryDir>();
    log.emplace();
}

void TestTaskMessagingConnections::cleanup()
{
    log.reset();
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
}

void TestTaskMessagingConnections::interfaceIsFixed()
{
    QCOMPARE(int(TaskMessaging::Unconnected), 0);
    QCOMPARE(int(TaskMessaging::Connecting), 1);
    QCOMPARE(int(TaskMessaging::Connected), 2);
    QCOMPARE(int(TaskMessaging::Closing), 3);
    const QMetaObject &meta = TaskMessaging::staticMetaObject;
    QCOMPARE(meta.methodCount() - meta.methodOffset(), 2);
    QCOMPARE(meta.method(meta.methodOffset()).methodSignature(), QByteArray("stateChanged(State)"));
    QCOMPARE(meta.method(meta.methodOffset() + 1).methodSignature(), QByteArray("messageReceived(QJsonObject)"));
    QCOMPARE(meta.propertyCount() - meta.propertyOffset(), 0);
    QCOMPARE(meta.enumeratorCount() - meta.enumeratorOffset(), 0);
}

void TestTaskMessagingConnections::applicationIsConnectedAfterConstruction()
{
    const Descriptor listener(listeningSocket(path()));
    Channel application(path());
    QCOMPARE(application->state(), TaskMessaging::Connected);
    QVERIFY(application->sendMessage({}));
    PlainSocket task(listener.get());
    QTRY_COMPARE(task.received(), frame("{}"));
    QCOMPARE(application.states,
             QVector<int>()); // connected within the constructor, before any connection of the signal
}

void TestTaskMessagingConnections::missingSocketIsLogged()
{
    Channel application(path());
    QCOMPARE(application->state(), TaskMessaging::Unconnected);
    QCOMPARE(log->takeWarnings(), QStringList(NoSocket));
    Channel nameless((QString()));
    QCOMPARE(nameless->state(), TaskMessaging::Unconnected);
    QCOMPARE(log->takeWarnings().size(), 1);

    ::close(::open(qPrintable(path()), O_CREAT | O_CLOEXEC, 0600));
    Channel file(path());
    QCOMPARE(file->state(), TaskMessaging::Unconnected);
    QCOMPARE(log->takeWarnings(), QStringList("Socket error \"QLocalSocket::connectToServer: Connection refused\""));

    QVERIFY(QFile::remove(path()));
    const Descriptor listener(listeningSocket(path()));
    Channel late(path());
    QCOMPARE(late->state(), TaskMessaging::Connected);
}

void TestTaskMessagingConnections::channelOutlivesItsPath()
{
    Channel task(listeningSocket(path()));
    Channel application(path());
    QTRY_COMPARE(task->state(), TaskMessaging::Connected);
    QVERIFY(QFile::remove(path()));
    Channel late(path());
    QCOMPARE(late->state(), TaskMessaging::Unconnected);
    QCOMPARE(log->takeWarnings(), QStringList(NoSocket));

    QVERIFY(application->sendMessage({}));
    QTRY_COMPARE(task.messages.size(), 1);
    QVERIFY(task->sendMessage({}));
    QTRY_COMPARE(application.messages.size(), 1);

    task.channel.reset();
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete); // deletes its QLocalServer
    QCOMPARE(log->takeWarnings(), QStringList());
    QTRY_COMPARE(application->state(), TaskMessaging::Unconnected);
    QCOMPARE(log->takeWarnings(), QStringList(RemoteClosed));

    Channel nextTask(listeningSocket(path()));
    Channel nextApplication(path());
    QVERIFY(nextApplication->sendMessage({}));
    QTRY_COMPARE(nextTask.messages.size(), 1);
}

void TestTaskMessagingConnections::sendingUnconnectedFails()
{
    Channel task(listeningSocket(path()));
    QCOMPARE(task->state(), TaskMessaging::Unconnected);
    QVERIFY(!task->sendMessage({}));
    QCOMPARE(log->takeWarnings(),
             QStringList("bool Corvane::TaskMessagingPrivate::sendMessage(const QJsonObject&) not connected"));
    QVERIFY2(log->lastFunction().startsWith("bool Corvane::TaskMessagingPrivate::sendMessage("),
             qUtf8Printable(log->lastFunction()));
}

void TestTaskMessagingConnections::applicationNoticesTheEndOfTheTask()
{
    const Descriptor listener(listeningSocket(path()));
    Channel application(path());
    PlainSocket task(listener.get());
    QVERIFY(task.send(frame(R"({"last":true})")));
    task.close();
    QTRY_COMPARE(application->state(), TaskMessaging::Unconnected);
    QCOMPARE(application.messages, QStringList("{\"last\":true}"));
    QCOMPARE(application.states.last(), int(TaskMessaging::Unconnected));
    QCOMPARE(log->takeWarnings(), QStringList(RemoteClosed));
    QVERIFY(!application->sendMessage({}));
    QCOMPARE(log->takeWarnings().size(), 1);
}

void TestTaskMessagingConnections::taskAcceptsWithoutASignal()
{
    Channel task(listeningSocket(path()));
    PlainSocket application(path());
    QTRY_COMPARE(task->state(), TaskMessaging::Connected);
    QCOMPARE(task.states, QVector<int>());
}

void TestTaskMessagingConnections::taskOutlivesItsClients()
{
    Channel task(listeningSocket(path()));
    for (int i = 0; i < 3; ++i) {
        PlainSocket application(path());
        QVERIFY(application.send(frame("{}")));
        QTRY_COMPARE(task.messages.size(), i + 1);
        application.close();
        QTRY_COMPARE(task->state(), TaskMessaging::Unconnected);
        QCOMPARE(log->takeWarnings(), QStringList(RemoteClosed));
    }
}

void TestTaskMessagingConnections::secondClientWaits()
{
    Channel task(listeningSocket(path()));
    PlainSocket first(path());
    QTRY_COMPARE(task->state(), TaskMessaging::Connected);
    PlainSocket second(path());
    QVERIFY(second.send(frame(R"({"from":"second"})")));
    QStringList warnings;
    QTRY_COMPARE((warnings += log->takeWarnings(), warnings), QStringList(OneOnly));

    // The first client stays connected.
    QVERIFY(first.send(frame(R"({"from":"first"})")));
    QTRY_COMPARE(task.messages, QStringList("{\"from\":\"first\"}"));
    QVERIFY(task->sendMessage({}));
    QTRY_COMPARE(first.received(), frame("{}"));
    QVERIFY(!second.isClosed());
    QCOMPARE(second.received(), QByteArray());

    // After the first client has left and another one has connected, the task serves the waiting client.
    first.close();
    QTRY_COMPARE(task->state(), TaskMessaging::Unconnected);
    log->takeWarnings();
    PlainSocket third(path());
    QTRY_COMPARE(task.messages.size(), 2);
    QCOMPARE(task.messages.last(), QString("{\"from\":\"second\"}"));
    QVERIFY(task->sendMessage({}));
    QTRY_COMPARE(second.received(), frame("{}"));
    QCOMPARE(third.received(), QByteArray());
}

void TestTaskMessagingConnections::messagesOfAClientThatLeftWhileWaitingArrive()
{
    Channel task(listeningSocket(path()));
    PlainSocket first(path());
    QTRY_COMPARE(task->state(), TaskMessaging::Connected);
    PlainSocket second(path());
    QVERIFY(second.send(frame(R"({"from":"second"})")));
    QStringList warnings;
    QTRY_COMPARE((warnings += log->takeWarnings(), warnings), QStringList(OneOnly));
    second.close();
    first.close();
    QTRY_COMPARE(task->state(), TaskMessaging::Unconnected);
    log->takeWarnings();
    PlainSocket third(path()); // the task serves the second client, which has left, and then the third one
    QVERIFY(third.send(frame(R"({"from":"third"})")));
    QTRY_COMPARE(task.messages, QStringList({"{\"from\":\"second\"}", "{\"from\":\"third\"}"}));
    QCOMPARE(task->state(), TaskMessaging::Connected);
    const QStringList endings = log->takeWarnings(); // none if Qt has already noticed the end of the second client
    for (const QString &warning : endings)
        QCOMPARE(warning, RemoteClosed);
}

void TestTaskMessagingConnections::deletedTaskRemovesItsSocketFile()
{
    {
        Channel task(listeningSocket(path()));
        QVERIFY(QFile::exists(path()));
    }
    QVERIFY(!QFile::exists(path()));
}

void TestTaskMessagingConnections::descriptorsThatDoNotListenStayUntouched_data()
{
    QTest::addColumn<QString>("kind");

    for (const char *kind : {"negative", "closed", "standard input", "file", "pipe", "connected socket",
                             "unbound socket", "datagram socket", "internet socket"})
        QTest::newRow(kind) << QString::fromLatin1(kind);
}

void TestTaskMessagingConnections::descriptorsThatDoNotListenStayUntouched()
{
    QFETCH(QString, kind);

    Descriptor descriptor;
    Descriptor other;
    int number = 0;
    if (kind == "negative") {
        number = -1;
    } else if (kind == "closed") {
        descriptor.reset(::open("/dev/null", O_RDONLY | O_CLOEXEC));
        number = descriptor.get();
        descriptor.reset();
    } else if (kind == "file") {
        descriptor.reset(::open("/dev/null", O_RDONLY | O_CLOEXEC));
    } else if (kind == "pipe") {
        int ends[2];
        QCOMPARE(::pipe2(ends, O_CLOEXEC), 0);
        descriptor.reset(ends[0]);
        other.reset(ends[1]);
    } else if (kind == "connected socket") {
        int ends[2];
        QCOMPARE(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), 0);
        descriptor.reset(ends[0]);
        other.reset(ends[1]);
    } else if (kind == "unbound socket") {
        descriptor.reset(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    } else if (kind == "datagram socket") {
        descriptor.reset(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    } else if (kind == "internet socket") {
        descriptor.reset(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
        QCOMPARE(::listen(descriptor.get(), 1), 0);
    }
    if (descriptor.get() >= 0)
        number = descriptor.get();

    const int flags = ::fcntl(number, F_GETFL);
    {
        Channel task(number);
        QCOMPARE(task->state(), TaskMessaging::Unconnected);
        QVERIFY(!task->sendMessage({}));
    }
    QCOMPARE(::fcntl(number, F_GETFL), flags); // neither closed nor switched to non-blocking
    const QStringList warnings = log->takeWarnings();
    QCOMPARE(warnings.size(), 2);
    QCOMPARE(warnings.first(), QString("Not a listening local socket: %1").arg(number));
}

void TestTaskMessagingConnections::taskWithoutAFreeDescriptorStopsListening()
{
    Channel task(listeningSocket(path()));
    PlainSocket first(path());
    QTRY_COMPARE(task->state(), TaskMessaging::Connected);
    PlainSocket second(path());

    QStringList warnings;
    {
        const NoFreeDescriptor none;
        QTRY_VERIFY((warnings += log->takeWarnings(), !warnings.isEmpty()));
    }
    QCOMPARE(warnings,
             QStringList("TaskMessaging has stopped listening: \"QLocalSocket::activated: Unknown error 24\""));
    QVERIFY(first.send(frame("{}"))); // the first client stays connected
    QTRY_COMPARE(task.messages.size(), 1);
}

void TestTaskMessagingConnections::applicationWithoutAFreeDescriptorCannotConnect()
{
    const Descriptor listener(listeningSocket(path()));
    {
        const NoFreeDescriptor none;
        Channel application(path());
        QCOMPARE(application->state(), TaskMessaging::Unconnected);
        QCOMPARE(log->takeWarnings(),
                 QStringList("Socket error \"QLocalSocket::connectToServer: The socket operation is not supported\""));
        QVERIFY(!application->sendMessage({}));
        QCOMPARE(log->takeWarnings().size(), 1);
    }
    Channel application(path());
    QCOMPARE(application->state(), TaskMessaging::Connected);
}

void TestTaskMessagingConnections::peerThatDoesNotReadBlocksNothing_data()
{
    QTest::addColumn<bool>("isTask");

    QTest::newRow("application") << false;
    QTest::newRow("task") << true;
}

void TestTaskMessagingConnections::peerThatDoesNotReadBlocksNothing()
{
    QFETCH(bool, isTask);

    Descriptor listener(listeningSocket(path()));
    const auto channel =
        isTask ? std::make_unique<TaskMessaging>(listener.release()) : std::make_unique<TaskMessaging>(path());
    int received = 0;
    connect(channel.get(), &TaskMessaging::messageReceived, this, [&received] { ++received; });
    std::unique_ptr<PlainSocket> other =
        isTask ? std::make_unique<PlainSocket>(path()) : std::make_unique<PlainSocket>(listener.get());
    QTRY_COMPARE(channel->state(), TaskMessaging::Connected);
    const int count = 1000; // messages of 32 KiB, many more than the socket buffer holds
    const QJsonObject message{{"x", QString(32 * 1024 - 8, 'x')}};
    for (int i = 0; i < count; ++i) {
        QVERIFY(channel->sendMessage(message));
        QCoreApplication::processEvents(); // does not block while the buffer is full
    }
    QCOMPARE(channel->state(), TaskMessaging::Connected);
    QVERIFY(other->send(frame("{}"))); // the channel still reads
    QTRY_COMPARE(received, 1);

    // The channel has queued all messages, and sends each completely.
    const QByteArray bytes = frame(toJson(message).toUtf8());
    QVERIFY(runUntil([&] { return other->received().size() == count * bytes.size(); }));
    QCOMPARE(other->received(), bytes.repeated(count));
}

void TestTaskMessagingConnections::bothEndsSendAndReceive()
{
    Channel task(listeningSocket(path()));
    Channel application(path());
    QVERIFY(application->sendMessage({{"to", "task"}}));
    QTRY_COMPARE(task.messages, QStringList("{\"to\":\"task\"}"));
    QVERIFY(task->sendMessage({{"to", "application"}}));
    QTRY_COMPARE(application.messages, QStringList("{\"to\":\"application\"}"));

    task.channel.reset();
    QTRY_COMPARE(application->state(), TaskMessaging::Unconnected);
    QCOMPARE(log->takeWarnings(), QStringList(RemoteClosed));
}

QTEST_GUILESS_MAIN(TestTaskMessagingConnections)
#include "tst_task_messaging_connections.moc"
