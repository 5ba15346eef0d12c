// SPDX-License-Identifier: BSD-3-Clause
// The process of a task: its channel, SIGTERM, and its end. With an argument, the program is such a process itself.
#include "channel.h"

#include <Corvane/task_messaging_p.h>
#include <Corvane/task_process_p.h>

#include <descriptor_limit.h>
#include <message_log.h>
#include <patience.h>
#include <plain_socket.h>
#include <run_until.h>

#include <QtCore/QMetaProperty>
#include <QtCore/QProcess>
#include <QtCore/QTemporaryDir>
#include <QtTest/QtTest>

#include <csignal>
#include <fcntl.h>
#include <memory>
#include <optional>
#include <sys/wait.h>
#include <unistd.h>

using namespace Corvane;

namespace {

const QString NotRead = QStringLiteral("TaskProcess has finished, although the client has not read all messages");
const QString OneOnly = QStringLiteral("TaskMessaging can handle only one connection at a time");
const QString RemoteClosed = QStringLiteral("Socket error \"QLocalSocket: Remote closed\"");
const QString Second =
    QStringLiteral("There is another TaskProcess: this one has no channel and does not handle SIGTERM");

const int Expired = -100; ///< the result of runEventLoop() if nothing ends the event loop

/// Runs the event loop of the application until QCoreApplication::exit() is called.
int runEventLoop()
{
    QTimer watchdog;
    QObject::connect(&watchdog, &QTimer::timeout, [] { QCoreApplication::exit(Expired); });
    watchdog.start(Patience);
    return QCoreApplication::exec();
}

/// Sends SIGTERM to this thread. The signal handler has run when the function returns.
void sendSignal()
{
    ::raise(SIGTERM);
}

struct sigaction terminationAction()
{
    struct sigaction action = {};
    ::sigaction(SIGTERM, nullptr, &action);
    return action;
}

volatile std::sig_atomic_t handled = 0; // signals that ownHandler() has received

void ownHandler(int)
{
    handled = handled + 1;
}

/// A message of \a size bytes.
QJsonObject numbered(int number, int size = 1024)
{
    return {{"n", number}, {"x", QString(size - 16 - QString::number(number).size(), 'x')}};
}

/// Reads from a socket while the event loop runs.
class Reading
{
public:
    explicit Reading(PlainSocket &socket)
    {
        QObject::connect(&m_timer, &QTimer::timeout, [&socket] { socket.received(); });
        m_timer.start(1);
    }

private:
    QTimer m_timer;
};

} // namespace

class TestTaskProcess : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void initTestCase();
    void init();
    void cleanup();

    void propertiesDescribeTheTask();
    void socketOfTheTaskBecomesItsChannel();
    void ownedDescriptorIsNotUsedAgain();
    void taskWithoutASocketHasNoChannel_data();
    void taskWithoutASocketHasNoChannel();
    void standardInputIsNotUsedByAccident_data();
    void standardInputIsNotUsedByAccident();

    void clientIsAnnouncedBeforeItsMessages();
    void waitingClientIsAnnouncedBeforeItsMessages();
    void announcedClientReceivesMessages();
    void clientMayBeReplacedWhileItIsAnnounced();
    void channelMayOutliveTheProcess();
    void slotMayDelete_data();
    void slotMayDelete();

    void stopIsRequestedOnce();
    void signalBeforeTheEventLoopArrives();
    void signalWithoutAReceiverFinishes();
    void signalDuringTheFinishChangesNothing();
    void previousActionIsRestored();
    void actionOfTheProgramIsKept();
    void childProcessEndsBySignal();
    void secondObjectDoesNotDisturbTheFirst();

    void finishEndsTheEventLoop_data();
    void finishEndsTheEventLoop();
    void finishBeforeTheEventLoopIsNotLost();
    void finishInANestedLoopEndsTheEventLoop();
    void messagesBeforeTheFinishArrive_data();
    void messagesBeforeTheFinishArrive();
    void messageIsReadWhenTheClientHasReadIt();
    void messagesDuringTheFinishArrive();
    void clientMayLeaveDuringTheFinish();
    void clientThatDoesNotReadCannotPreventTheEnd_data();
    void clientThatDoesNotReadCannotPreventTheEnd();
    void noClientIsAcceptedAfterFinish();
    void noWaitingClientIsAcceptedAfterFinish();
    void deletionDuringTheFinishCancelsIt();
    void channelMayBeDeletedDuringTheFinish();
    void finishedChannelIsClosed();

    void processEndsWithTheExitCode_data();
    void processEndsWithTheExitCode();
    void processWithoutAFreeDescriptorKeepsTheAction();

private:
    /// Creates the object with a listening socket. Its signals are recorded.
    void createProcess();
    /// Connects a client and waits until it is accepted.
    std::unique_ptr<PlainSocket> connectClient();

    std::optional<QTemporaryDir> directory;
    QString path;
    std::optional<MessageLog> log;
    std::unique_ptr<TaskProcess> process;
    QStringList events; ///< clients and messages of the channel
    QVector<int> states; ///< of the channel
};

void TestTaskProcess::initTestCase()
{
    QCOMPARE(TaskProcess::MaximumFinishTime, std::chrono::seconds(5));
    QCOMPARE(TaskProcessPrivate::maximumFinishTime, std::chrono::milliseconds(5000));
}

void TestTaskProcess::init()
{
    TaskProcessPrivate::maximumFinishTime = std::chrono::milliseconds(Patience); // on a busy machine too
    directory.emplace();
    path = directory->filePath("task.socket");
    log.emplace();
    events.clear();
    states.clear();
    qputenv("HALVIR_TASK_ID", "fetch");
    qunsetenv("HALVIR_TASK_FD");
}

void TestTaskProcess::cleanup()
{
    process.reset();
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    log.reset();
}

void TestTaskProcess::createProcess()
{
    qputenv("HALVIR_TASK_FD", QByteArray::number(listeningSocket(path)));
    process = std::make_unique<TaskProcess>();
    QVERIFY(process->messaging());
    connect(process.get(), &TaskProcess::clientConnected, this, [this] { events << "client"; });
    connect(process->messaging(), &TaskMessaging::messageReceived, this,
            [this](const QJsonObject &message) { events << toJson(message); });
    connect(process->messaging(), &TaskMessaging::stateChanged, this,
            [this](TaskMessaging::State state) { states << state; });
}

std::unique_ptr<PlainSocket> TestTaskProcess::connectClient()
{
    auto client = std::make_unique<PlainSocket>(path);
    if (!runUntil([this] { return process->messaging()->state() == TaskMessaging::Connected; }))
        qFatal("The client is not accepted");
    return client;
}

void TestTaskProcess::propertiesDescribeTheTask()
{
    const TaskProcess task;
    QCOMPARE(task.taskId(), QString("fetch"));
    QCOMPARE(task.property("taskId"), QVariant("fetch"));
    QCOMPARE(task.property("stopping"), QVariant(false));
    const QMetaObject &meta = TaskProcess::staticMetaObject;
    const QMetaProperty property = meta.property(meta.indexOfProperty("stopping"));
    QCOMPARE(property.notifySignal().methodSignature(), QByteArray("stopRequested()"));
    QVERIFY(meta.property(meta.indexOfProperty("taskId")).isConstant());
}

void TestTaskProcess::socketOfTheTaskBecomesItsChannel()
{
    createProcess();
    TaskMessaging *const channel = process->messaging();
    QCOMPARE(channel->parent(), process.get());
    QVERIFY(connectClient());

    delete channel;
    QCOMPARE(process->messaging(), nullptr);
    QVERIFY(!QFile::exists(path));
}

void TestTaskProcess::ownedDescriptorIsNotUsedAgain()
{
    createProcess();
    process.reset();
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete); // closes the socket
    process = std::make_unique<TaskProcess>();
    QCOMPARE(process->messaging(), nullptr);
    QCOMPARE(log->takeWarnings(),
             QStringList("HALVIR_TASK_FD is not a listening local socket: \"" + qEnvironmentVariable("HALVIR_TASK_FD")
                         + '"'));
}

void TestTaskProcess::taskWithoutASocketHasNoChannel_data()
{
    QTest::addColumn<QByteArray>("value");

    QTest::newRow("not set") << QByteArray();
    for (const char *value : {"letters", "7x", "0x7", "-1", "99999", "99999999999", " ", "0"})
        QTest::newRow(value) << QByteArray(value);
    QTest::newRow("file") << QByteArray("FILE");
    QTest::newRow("connected socket") << QByteArray("SOCKET");
}

void TestTaskProcess::taskWithoutASocketHasNoChannel()
{
    QFETCH(QByteArray, value);

    const Descriptor listener(listeningSocket(path));
    const PlainSocket client(path);
    const Descriptor accepted(::accept(listener.get(), nullptr, nullptr));
    const Descriptor file(::open("/dev/null", O_RDONLY));
    const int number = value == "FILE" ? file.get() : value == "SOCKET" ? accepted.get() : 0;
    if (number > 0)
        value.setNum(number);
    if (!value.isEmpty())
        qputenv("HALVIR_TASK_FD", value);
    const int flags = ::fcntl(number, F_GETFL);
    const int descriptorFlags = ::fcntl(number, F_GETFD);

    process = std::make_unique<TaskProcess>();
    QCOMPARE(process->messaging(), nullptr);
    QStringList expected;
    if (!value.isEmpty())
        expected << QString("HALVIR_TASK_FD is not a listening local socket: \"%1\"").arg(QString::fromUtf8(value));
    QCOMPARE(log->takeWarnings(), expected);

    process->finish(3);
    QCOMPARE(runEventLoop(), 3);
    process.reset();
    QCOMPARE(::fcntl(number, F_GETFL), flags);
    QCOMPARE(::fcntl(number, F_GETFD), descriptorFlags);
}

void TestTaskProcess::standardInputIsNotUsedByAccident_data()
{
    QTest::addColumn<QByteArray>("value");
    QTest::addColumn<bool>("isUsed");

    QTest::newRow("not set") << QByteArray() << false;
    QTest::newRow("letters") << QByteArray("letters") << false;
    QTest::newRow("set") << QByteArray("0") << true; // deliberately
}

void TestTaskProcess::standardInputIsNotUsedByAccident()
{
    QFETCH(QByteArray, value);
    QFETCH(bool, isUsed);

    const Descriptor input(::fcntl(0, F_DUPFD_CLOEXEC, 3));
    const Descriptor listener(listeningSocket(path));
    QCOMPARE(::dup2(listener.get(), 0), 0);
    if (!value.isEmpty())
        qputenv("HALVIR_TASK_FD", value);
    process = std::make_unique<TaskProcess>();
    const bool hasChannel = process->messaging();
    process.reset();
    const int descriptorFlags = ::fcntl(0, F_GETFD);
    ::dup2(input.get(), 0);
    QCOMPARE(hasChannel, isUsed);
    QCOMPARE(descriptorFlags, isUsed ? -1 : 0); // the channel has closed it
    QCOMPARE(log->takeWarnings().size(), value == "letters" ? 1 : 0);
}

void TestTaskProcess::clientIsAnnouncedBeforeItsMessages()
{
    createProcess();
    PlainSocket first(path); // before the event loop runs
    QVERIFY(first.send(frame("{\"n\":1}")));
    QTRY_COMPARE(events, QStringList({"client", "{\"n\":1}"}));
    first.close();
    QTRY_COMPARE(process->messaging()->state(), TaskMessaging::Unconnected);
    const PlainSocket second(path);
    QTRY_COMPARE(events, QStringList({"client", "{\"n\":1}", "client"}));
    QCOMPARE(log->takeWarnings(), QStringList(RemoteClosed));
}

void TestTaskProcess::waitingClientIsAnnouncedBeforeItsMessages()
{
    createProcess();
    const auto first = connectClient();
    PlainSocket gone(path);
    QVERIFY(gone.send(frame("{\"n\":1}")));
    gone.close();
    PlainSocket waiting(path);
    QVERIFY(waiting.send(frame("{\"n\":2}") + frame("{\"n\":3}")));
    QStringList warnings;
    QTRY_COMPARE((warnings += log->takeWarnings(), warnings), QStringList({OneOnly, OneOnly}));
    QCOMPARE(events, QStringList("client"));
    first->close();
    QTRY_COMPARE(process->messaging()->state(), TaskMessaging::Unconnected);
    log->takeWarnings();

    const PlainSocket next(path);
    QTRY_COMPARE(events, QStringList({"client", "client", "{\"n\":1}", "client", "{\"n\":2}", "{\"n\":3}"}));
    log->takeWarnings();
}

void TestTaskProcess::announcedClientReceivesMessages()
{
    createProcess();
    connect(process.get(), &TaskProcess::clientConnected, this, [this] {
        QCOMPARE(process->messaging()->state(), TaskMessaging::Connected);
        QVERIFY(process->messaging()->sendMessage({{"n", 1}}));
    });
    PlainSocket client(path);
    QTRY_COMPARE(client.received(), frame("{\"n\":1}"));
}

void TestTaskProcess::clientMayBeReplacedWhileItIsAnnounced()
{
    createProcess();
    PlainSocket first(path);
    QVERIFY(first.send(frame("{\"n\":1}")));
    const auto replaceFirst = [this, &first] {
        if (events.size() > 1)
            return;
        PlainSocket second(path);
        QVERIFY(second.send(frame("{\"n\":2}")));
        first.close();
        QVERIFY(runUntil([this] { return events.size() == 4; }));
    };
    connect(process.get(), &TaskProcess::clientConnected, this, replaceFirst);
    QTRY_COMPARE(events.size(), 4);
    QCOMPARE(events, QStringList({"client", "{\"n\":1}", "client", "{\"n\":2}"}));
    log->takeWarnings();
}

void TestTaskProcess::channelMayOutliveTheProcess()
{
    createProcess();
    const std::unique_ptr<TaskMessaging> channel(process->messaging());
    channel->setParent(nullptr);
    process.reset();
    PlainSocket client(path);
    QTRY_COMPARE(channel->state(), TaskMessaging::Connected);
    QVERIFY(channel->sendMessage({}));
    QTRY_COMPARE(client.received(), frame("{}"));
}

void TestTaskProcess::slotMayDelete_data()
{
    QTest::addColumn<QByteArray>("signal");
    QTest::addColumn<bool>("isChannel");

    for (const char *signal : {"client", "message", "state", "stop"}) {
        QTest::addRow("%s deletes the process", signal) << QByteArray(signal) << false;
        QTest::addRow("%s deletes the channel", signal) << QByteArray(signal) << true;
    }
}

void TestTaskProcess::slotMayDelete()
{
    QFETCH(QByteArray, signal);
    QFETCH(bool, isChannel);

    createProcess();
    int deletions = 0;
    const auto deleteObject = [this, isChannel, &deletions] {
        ++deletions;
        if (isChannel)
            delete process->messaging();
        else
            process.reset();
    };
    if (signal == "client")
        connect(process.get(), &TaskProcess::clientConnected, this, deleteObject);
    else if (signal == "message")
        connect(process->messaging(), &TaskMessaging::messageReceived, this, deleteObject);
    else if (signal == "state")
        connect(process->messaging(), &TaskMessaging::stateChanged, this, deleteObject);
    else
        connect(process.get(), &TaskProcess::stopRequested, this, deleteObject);

    PlainSocket client(path);
    QVERIFY(client.send(frame("{}") + frame("{}")));
    if (signal == "state") {
        QTRY_COMPARE(process->messaging()->state(), TaskMessaging::Connected);
        client.close();
    } else if (signal == "stop") {
        sendSignal();
    }
    QTRY_COMPARE(deletions, 1);
    QCOMPARE(bool(process), isChannel);
    if (process)
        QCOMPARE(process->messaging(), nullptr);
    QVERIFY(signal == "state" || runUntil([&client] { return client.isClosed(); }));
    QCOMPARE(deletions, 1);
    log->takeWarnings();
}

void TestTaskProcess::stopIsRequestedOnce()
{
    process = std::make_unique<TaskProcess>();
    const QSignalSpy requests(process.get(), &TaskProcess::stopRequested);
    connect(process.get(), &TaskProcess::stopRequested, this, [this] {
        QVERIFY(process->isStopRequested());
        sendSignal();
    });
    QVERIFY(!process->isStopRequested());
    sendSignal();
    sendSignal();
    QCOMPARE(requests.size(), 0); // the event loop has not run
    QVERIFY(!process->isStopRequested());
    QTRY_COMPARE(requests.size(), 1);
    QVERIFY(process->property("stopping").toBool());

    sendSignal();
    QCoreApplication::processEvents();
    QCOMPARE(requests.size(), 1);
}

void TestTaskProcess::signalBeforeTheEventLoopArrives()
{
    process = std::make_unique<TaskProcess>();
    connect(process.get(), &TaskProcess::stopRequested, this, [] { QCoreApplication::exit(5); });
    sendSignal();
    QCOMPARE(runEventLoop(), 5);
}

void TestTaskProcess::signalWithoutAReceiverFinishes()
{
    createProcess();
    const auto client = connectClient();
    QVERIFY(process->messaging()->sendMessage({}));
    sendSignal();
    const Reading reading(*client);
    QCOMPARE(runEventLoop(), 0);
    QVERIFY(process->isStopRequested());
    QCOMPARE(client->received(), frame("{}"));
    QVERIFY(client->isClosed());
}

void TestTaskProcess::signalDuringTheFinishChangesNothing()
{
    createProcess();
    Channel application(path);
    QTRY_COMPARE(process->messaging()->state(), TaskMessaging::Connected);
    for (int i = 0; i < 100; ++i)
        QVERIFY(process->messaging()->sendMessage(numbered(i)));
    process->finish(3);
    sendSignal();
    QCOMPARE(runEventLoop(), 3);
    QCOMPARE(application.messages.size(), 100);
    QVERIFY(process->isStopRequested());
}

void TestTaskProcess::previousActionIsRestored()
{
    struct sigaction own = {};
    own.sa_handler = &ownHandler;
    own.sa_flags = SA_NODEFER;
    struct sigaction before = {};
    ::sigaction(SIGTERM, &own, &before);
    process = std::make_unique<TaskProcess>();
    QVERIFY(terminationAction().sa_handler != &ownHandler);
    process.reset();
    const struct sigaction restored = terminationAction();
    handled = 0;
    sendSignal();
    ::sigaction(SIGTERM, &before, nullptr);
    QVERIFY(restored.sa_handler == &ownHandler);
    QCOMPARE(restored.sa_flags & SA_NODEFER, SA_NODEFER);
    QCOMPARE(int(handled), 1);
}

void TestTaskProcess::actionOfTheProgramIsKept()
{
    process = std::make_unique<TaskProcess>();
    const struct sigaction ofTheObject = terminationAction();
    struct sigaction own = {};
    own.sa_handler = &ownHandler;
    ::sigaction(SIGTERM, &own, nullptr);
    process.reset();
    const struct sigaction kept = terminationAction();
    ::signal(SIGTERM, SIG_DFL);
    QVERIFY(kept.sa_handler == &ownHandler);
    QVERIFY(ofTheObject.sa_handler != &ownHandler);
}

void TestTaskProcess::childProcessEndsBySignal()
{
    process = std::make_unique<TaskProcess>();
    const QSignalSpy requests(process.get(), &TaskProcess::stopRequested);
    const pid_t child = ::fork();
    if (child == 0) { // as between fork() and exec() of a QProcess
        ::raise(SIGTERM);
        ::_exit(0);
    }
    int status = 0;
    QCOMPARE(::waitpid(child, &status, 0), child);
    QVERIFY(WIFSIGNALED(status));
    QCOMPARE(WTERMSIG(status), SIGTERM);
    QCoreApplication::processEvents();
    QCOMPARE(requests.size(), 0);
}

void TestTaskProcess::secondObjectDoesNotDisturbTheFirst()
{
    createProcess();
    auto second = std::make_unique<TaskProcess>();
    QCOMPARE(log->takeWarnings(), QStringList(Second));
    QCOMPARE(second->taskId(), QString("fetch"));
    QCOMPARE(second->messaging(), nullptr);
    const QSignalSpy requests(process.get(), &TaskProcess::stopRequested);
    second.reset();
    const auto client = connectClient();
    QVERIFY(process->messaging()->sendMessage({}));
    QTRY_COMPARE(client->received(), frame("{}"));

    second = std::make_unique<TaskProcess>();
    QCOMPARE(log->takeWarnings(), QStringList(Second));
    sendSignal();
    QTRY_COMPARE(requests.size(), 1);
    QVERIFY(!second->isStopRequested());
    second->finish(4);
    QCOMPARE(runEventLoop(), 4);
}

void TestTaskProcess::finishEndsTheEventLoop_data()
{
    QTest::addColumn<bool>("hasClient");
    QTest::addColumn<bool>("isBefore"); // before the event loop runs

    QTest::newRow("before, without a client") << false << true;
    QTest::newRow("before, with a client") << true << true;
    QTest::newRow("within, without a client") << false << false;
    QTest::newRow("within, with a client") << true << false;
}

void TestTaskProcess::finishEndsTheEventLoop()
{
    QFETCH(bool, hasClient);
    QFETCH(bool, isBefore);

    createProcess();
    const auto client = hasClient ? connectClient() : nullptr;
    const auto finish = [this] {
        process->finish(7);
        process->finish(8); // ignored
    };
    if (isBefore)
        finish();
    else
        QTimer::singleShot(0, this, finish);
    QCOMPARE(runEventLoop(), 7);
    QVERIFY(!client || client->isClosed());
    QVERIFY(!QFile::exists(path));
}

void TestTaskProcess::finishBeforeTheEventLoopIsNotLost()
{
    process = std::make_unique<TaskProcess>();
    process->finish();
    QTimer timer;
    const QSignalSpy timeouts(&timer, &QTimer::timeout);
    timer.start(10); // the interval of the checks
    QTRY_VERIFY(timeouts.size() >= 5); // processes events outside of exec()
    QCOMPARE(runEventLoop(), 0);
}

void TestTaskProcess::finishInANestedLoopEndsTheEventLoop()
{
    createProcess();
    process->finish(7);
    QEventLoop nested; // before exec()
    nested.exec();
    QCOMPARE(runEventLoop(), 7);
}

void TestTaskProcess::messagesBeforeTheFinishArrive_data()
{
    QTest::addColumn<int>("count");
    QTest::addColumn<int>("size");
    QTest::addColumn<bool>("isBefore"); // before the event loop runs

    QTest::newRow("one") << 1 << 1024 << false;
    QTest::newRow("1,000 of 1 KiB") << 1000 << 1024 << false;
    QTest::newRow("1,000 of 1 KiB, before the event loop") << 1000 << 1024 << true;
    QTest::newRow("100 of 32 KiB") << 100 << 32 * 1024 - 4 << false;
}

void TestTaskProcess::messagesBeforeTheFinishArrive()
{
    QFETCH(int, count);
    QFETCH(int, size);
    QFETCH(bool, isBefore);

    createProcess();
    Channel application(path);
    QTRY_COMPARE(process->messaging()->state(), TaskMessaging::Connected);
    const auto work = [&] {
        for (int i = 0; i < count; ++i)
            QVERIFY(process->messaging()->sendMessage(numbered(i, size)));
        process->finish(3);
    };
    if (isBefore)
        work();
    else
        QTimer::singleShot(0, this, work);
    QCOMPARE(runEventLoop(), 3);

    // All have been read already. A message to the closed end would drop the others.
    QCOMPARE(application.messages.size(), count);
    for (int i = 0; i < count; ++i)
        QCOMPARE(application.messages.at(i), toJson(numbered(i, size)));
    QTRY_COMPARE(application->state(), TaskMessaging::Unconnected);
    QCOMPARE(log->takeWarnings(), QStringList(RemoteClosed)); // of the application, which keeps its channel
}

void TestTaskProcess::messageIsReadWhenTheClientHasReadIt()
{
    const Descriptor listener(listeningSocket(path));
    TaskMessaging unused(-1);
    log->takeWarnings();
    TaskMessagingPrivate channel(&unused);
    QVERIFY(channel.isAllRead());
    channel.connectTo(path);
    PlainSocket client(listener.get());
    QVERIFY(channel.isAllRead());
    QVERIFY(channel.sendMessage({}));
    QVERIFY(!channel.isAllRead()); // in the process
    QTRY_COMPARE(channel.socket->bytesToWrite(), 0);
    QVERIFY(!channel.isAllRead()); // in the socket
    QCOMPARE(client.received(), frame("{}"));
    QVERIFY(channel.isAllRead());

    QVERIFY(channel.sendMessage({}));
    client.close();
    QTRY_VERIFY(channel.isAllRead());
    log->takeWarnings();
}

void TestTaskProcess::messagesDuringTheFinishArrive()
{
    createProcess();
    PlainSocket client(path);
    QTRY_COMPARE(process->messaging()->state(), TaskMessaging::Connected);
    std::optional<Reading> reading;
    QObject receiver;
    connect(process->messaging(), &TaskMessaging::messageReceived, &receiver, [&](const QJsonObject &message) {
        QVERIFY(process->messaging()->sendMessage(message));
        reading.emplace(client);
    });
    QVERIFY(process->messaging()->sendMessage({}));
    process->finish();
    QTimer::singleShot(0, &receiver, [&client] { QVERIFY(client.send(frame("{\"n\":1}"))); });
    QCOMPARE(runEventLoop(), 0);
    QCOMPARE(client.received(), frame("{}") + frame("{\"n\":1}"));
}

void TestTaskProcess::clientMayLeaveDuringTheFinish()
{
    createProcess();
    Channel application(path);
    QTRY_COMPARE(process->messaging()->state(), TaskMessaging::Connected);
    QObject receiver;
    connect(application.channel.get(), &TaskMessaging::messageReceived, &receiver,
            [&application](const QJsonObject &message) {
                if (message.contains("done"))
                    application.channel.reset();
            });
    for (int i = 0; i < 100; ++i)
        QVERIFY(process->messaging()->sendMessage(numbered(i)));
    QVERIFY(process->messaging()->sendMessage({{"done", true}}));
    process->finish(3);
    QCOMPARE(runEventLoop(), 3);
    QVERIFY(!application.channel);
    QCOMPARE(application.messages.size(), 101);
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    QCOMPARE(log->takeWarnings(), QStringList()); // on neither side
}

void TestTaskProcess::clientThatDoesNotReadCannotPreventTheEnd_data()
{
    QTest::addColumn<int>("count"); // of messages of 1 KiB

    QTest::newRow("in the socket") << 1;
    QTest::newRow("in the process") << 8 * 1024;
}

void TestTaskProcess::clientThatDoesNotReadCannotPreventTheEnd()
{
    QFETCH(int, count);

    createProcess();
    const auto client = connectClient();
    for (int i = 0; i < count; ++i)
        QVERIFY(process->messaging()->sendMessage(numbered(i)));
    TaskProcessPrivate::maximumFinishTime = std::chrono::milliseconds(500);
    process->finish(3);
    QElapsedTimer duration;
    duration.start();
    QCOMPARE(runEventLoop(), 3);
    QVERIFY(duration.elapsed() >= 500);
    QCOMPARE(log->takeWarnings(), QStringList(NotRead));
    process.reset();
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    QVERIFY(client->isClosed());
}

void TestTaskProcess::noClientIsAcceptedAfterFinish()
{
    createProcess();
    connect(process.get(), &TaskProcess::clientConnected, this, [this] { process->finish(); });
    PlainSocket first(path);
    PlainSocket second(path);
    first.close(); // the task continues with the second one otherwise
    QCOMPARE(runEventLoop(), 0);
    QCOMPARE(events, QStringList("client"));
    QVERIFY(second.isClosed());
}

void TestTaskProcess::noWaitingClientIsAcceptedAfterFinish()
{
    createProcess();
    const auto first = connectClient();
    PlainSocket gone(path);
    PlainSocket waiting(path);
    QStringList warnings;
    QTRY_COMPARE((warnings += log->takeWarnings(), warnings), QStringList({OneOnly, OneOnly}));
    gone.close();
    first->close();
    QTRY_COMPARE(process->messaging()->state(), TaskMessaging::Unconnected);
    log->takeWarnings();

    connect(process.get(), &TaskProcess::clientConnected, this, [this] { process->finish(); });
    PlainSocket next(path);
    QCOMPARE(runEventLoop(), 0);
    QCOMPARE(events, QStringList({"client", "client"})); // the second one has disconnected
    QVERIFY(waiting.isClosed());
    QVERIFY(next.isClosed());
}

void TestTaskProcess::deletionDuringTheFinishCancelsIt()
{
    createProcess();
    const auto client = connectClient();
    QVERIFY(process->messaging()->sendMessage({}));
    process->finish(3);
    QTimer::singleShot(0, this, [this] { process.reset(); });
    QTimer::singleShot(100, this, [] { QCoreApplication::exit(42); }); // longer than the interval of the checks
    QCOMPARE(runEventLoop(), 42);
    QVERIFY(client->isClosed());
}

void TestTaskProcess::channelMayBeDeletedDuringTheFinish()
{
    createProcess();
    const auto client = connectClient();
    QVERIFY(process->messaging()->sendMessage({}));
    process->finish(3);
    QTimer::singleShot(0, this, [this] { delete process->messaging(); });
    QCOMPARE(runEventLoop(), 3);
    QVERIFY(client->isClosed());
}

void TestTaskProcess::finishedChannelIsClosed()
{
    createProcess();
    const auto client = connectClient();
    process->finish();
    QCOMPARE(runEventLoop(), 0);
    QVERIFY(client->isClosed());
    QCOMPARE(process->messaging()->state(), TaskMessaging::Unconnected);
    QVERIFY(!process->messaging()->sendMessage({}));
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    QCOMPARE(log->takeWarnings(),
             QStringList("bool Corvane::TaskMessagingPrivate::sendMessage(const QJsonObject&) not connected"));
    QCOMPARE(states, QVector<int>());
}

void TestTaskProcess::processEndsWithTheExitCode_data()
{
    QTest::addColumn<QString>("mode");
    QTest::addColumn<bool>("isStopped"); // by SIGTERM
    QTest::addColumn<int>("exitCode");

    QTest::newRow("finish") << "finish" << false << 7;
    QTest::newRow("receiver") << "receiver" << true << 8;
    QTest::newRow("no receiver") << "" << true << 0;
}

void TestTaskProcess::processEndsWithTheExitCode()
{
    QFETCH(QString, mode);
    QFETCH(bool, isStopped);
    QFETCH(int, exitCode);

    const Descriptor listener(listeningSocket(path));
    QCOMPARE(::fcntl(listener.get(), F_SETFD, 0), 0); // inheritable, like the socket of a task
    QProcess task;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert("HALVIR_TASK_FD", QString::number(listener.get()));
    task.setProcessEnvironment(environment);
    task.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    task.start(QCoreApplication::applicationFilePath(), {"task", mode});
    QVERIFY(task.waitForStarted(Patience));
    Channel application(path);
    QObject receiver;
    connect(application.channel.get(), &TaskMessaging::messageReceived, &receiver, [&](const QJsonObject &message) {
        if (message.contains("ready") && isStopped)
            task.terminate();
        if (message.contains("done"))
            application.channel.reset();
    });
    QVERIFY(runUntil([&task] { return task.state() == QProcess::NotRunning; }));
    QCOMPARE(task.exitStatus(), QProcess::NormalExit);
    QCOMPARE(task.exitCode(), exitCode);
    if (mode.isEmpty()) {
        QCOMPARE(application.messages, QStringList("{\"ready\":true}"));
        QTRY_COMPARE(application->state(), TaskMessaging::Unconnected);
        QCOMPARE(log->takeWarnings(), QStringList(RemoteClosed));
    } else {
        QCOMPARE(application.messages.size(), 1002);
        QCOMPARE(application.messages.first(), QString("{\"ready\":true}"));
        QCOMPARE(application.messages.last(), QString("{\"done\":true}"));
    }
}

void TestTaskProcess::processWithoutAFreeDescriptorKeepsTheAction()
{
    QProcess task;
    task.start(QCoreApplication::applicationFilePath(), {"task", "no descriptor"});
    QVERIFY(task.waitForFinished(Patience));
    QCOMPARE(task.readAllStandardError(),
             QByteArray("HALVIR_TASK_FD is not a listening local socket: \"letters\"\n"
                        "TaskProcess cannot handle SIGTERM: \"Too many open files\"\n"));
    QCOMPARE(task.exitStatus(), QProcess::CrashExit);
    QCOMPARE(task.exitCode(), SIGTERM);
}

namespace {

int runTask(const QString &mode)
{
    TaskProcessPrivate::maximumFinishTime = std::chrono::milliseconds(Patience);
    if (mode == "no descriptor") {
        // The first warning comes from the constructor. Before it, UndefinedBehaviorSanitizer needs a descriptor.
        qputenv("HALVIR_TASK_FD", "letters");
        qInstallMessageHandler([](QtMsgType, const QMessageLogContext &, const QString &text) {
            static const NoFreeDescriptor none;
            QTextStream(stderr) << text << Qt::endl;
        });
        const TaskProcess process;
        sendSignal();
        return 1;
    }
    TaskProcess process;
    const auto finish = [&process](int exitCode) {
        for (int i = 0; i < 1000; ++i)
            process.messaging()->sendMessage(numbered(i));
        process.messaging()->sendMessage({{"done", true}});
        process.finish(exitCode);
    };
    QObject::connect(&process, &TaskProcess::clientConnected, [&] {
        process.messaging()->sendMessage({{"ready", true}});
        if (mode == "finish")
            finish(7);
    });
    if (mode == "receiver")
        QObject::connect(&process, &TaskProcess::stopRequested, [finish] { finish(8); });
    return QCoreApplication::exec();
}

} // namespace

int main(int argc, char **argv)
{
    const QCoreApplication application(argc, argv);
    const QStringList arguments = QCoreApplication::arguments();
    if (arguments.size() == 3 && arguments.at(1) == "task")
        return runTask(arguments.at(2));
    TestTaskProcess test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_task_process.moc"
