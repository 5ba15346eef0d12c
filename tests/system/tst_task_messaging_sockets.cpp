// SPDX-License-Identifier: BSD-3-Clause
// The sockets of a channel: backlog, close-on-exec, unsent data.
#include <Corvane/task_messaging.h>

#include <message_log.h>
#include <patience.h>
#include <plain_socket.h>
#include <run_until.h>

#include <QtCore/QDir>
#include <QtCore/QTemporaryDir>
#include <QtTest/QtTest>

#include <fcntl.h>
#include <memory>
#include <optional>
#include <vector>

using namespace Corvane;

namespace {

/// Returns the socket descriptors that a child process would inherit.
QStringList inheritedSockets()
{
    QStringList names;
    const QStringList all = QDir("/proc/self/fd").entryList(QDir::Files | QDir::System);
    for (const QString &name : all) {
        const int flags = ::fcntl(name.toInt(), F_GETFD);
        const QString target = QFile::symLinkTarget("/proc/self/fd/" + name);
        if (flags >= 0 && (flags & FD_CLOEXEC) == 0 && target.contains("socket:"))
            names << name;
    }
    return names;
}

} // namespace

class TestTaskMessagingSockets : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void init();
    void cleanup();

    void connectWaitsWhileTheBacklogIsFull();
    void socketsAreClosedOnExec();
    void deletedChannelDropsUnsentMessages_data();
    void deletedChannelDropsUnsentMessages();

private:
    std::optional<QTemporaryDir> directory;
    QString path;
    std::optional<MessageLog> log;
};

void TestTaskMessagingSockets::init()
{
    directory.emplace();
    path = directory->filePath("task.socket");
    log.emplace();
}

void TestTaskMessagingSockets::cleanup()
{
    log.reset();
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
}

void TestTaskMessagingSockets::connectWaitsWhileTheBacklogIsFull()
{
    const Descriptor listener(listeningSocket(path, 0));
    auto blocker = std::make_unique<PlainSocket>(path); // the kernel queues one connection more than the backlog
    TaskMessaging application(path);
    QCOMPARE(int(application.state()), int(TaskMessaging::Connecting));
    QVERIFY(!application.sendMessage({}));
    QCOMPARE(log->takeWarnings(),
             QStringList("bool Corvane::TaskMessagingPrivate::sendMessage(const QJsonObject&) not connected"));
    QVector<int> states;
    connect(&application, &TaskMessaging::stateChanged, this, [&](TaskMessaging::State state) {
        QCOMPARE(state, application.state());
        states << int(state);
    });
    const PlainSocket accepted(listener.get()); // frees a place in the backlog
    QTRY_COMPARE(states, QVector<int>{TaskMessaging::Connected});
    QVERIFY(application.sendMessage({}));
    PlainSocket task(listener.get());
    QTRY_COMPARE(task.received(), frame("{}"));
}

void TestTaskMessagingSockets::socketsAreClosedOnExec()
{
    const QStringList before = inheritedSockets();
    const Descriptor inherited(listeningSocket(path));
    QCOMPARE(::fcntl(inherited.get(), F_SETFD, 0), 0); // inheritable, like the socket of a task
    const int copy = ::fcntl(inherited.get(), F_DUPFD, 0);
    TaskMessaging task(copy);
    PlainSocket client(path);
    QTRY_COMPARE(int(task.state()), int(TaskMessaging::Connected));
    const TaskMessaging application(path);
    QCOMPARE(int(application.state()), int(TaskMessaging::Connected));
    QStringList expected = before;
    expected << QString::number(inherited.get());
    QStringList now = inheritedSockets();
    now.sort();
    expected.sort();
    QCOMPARE(now, expected);
    QStringList warnings;
    QTRY_COMPARE((warnings += log->takeWarnings(), warnings),
                 QStringList("TaskMessaging can handle only one connection at a time"));
}

void TestTaskMessagingSockets::deletedChannelDropsUnsentMessages_data()
{
    QTest::addColumn<bool>("isTask");

    QTest::newRow("application") << false;
    QTest::newRow("task") << true;
}

void TestTaskMessagingSockets::deletedChannelDropsUnsentMessages()
{
    QFETCH(bool, isTask);

    Descriptor listener(listeningSocket(path));
    auto channel = isTask ? std::make_unique<TaskMessaging>(listener.release()) : std::make_unique<TaskMessaging>(path);
    PlainSocket other = isTask ? PlainSocket(path) : PlainSocket(listener.get());
    QTRY_COMPARE(int(channel->state()), int(TaskMessaging::Connected));
    const QJsonObject message{{"x", QString(1024 * 1024, 'x')}};
    for (int i = 0; i < 8; ++i) // more than the socket buffer holds
        QVERIFY(channel->sendMessage(message));
    channel.reset();
    QVERIFY(runUntil([&other] { return other.isClosed(); })); // the channel closes although the other end does not read
    QVERIFY(other.received().size() < 8 * 1024 * 1024);
}

QTEST_GUILESS_MAIN(TestTaskMessagingSockets)
#include "tst_task_messaging_sockets.moc"
