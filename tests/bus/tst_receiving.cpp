// SPDX-License-Identifier: BSD-3-Clause
// Received messages at which libdbus would pause reading or close the connection if its limits were not raised.
#include <Corvane/intents_invoker.h>
#include <Corvane/memory_pressure.h>
#include <Corvane/runtime_dispatcher.h>

#include <bus_daemon.h>
#include <message_log.h>
#include <patience.h>
#include <replies.h>
#include <service_peer.h>

#include <QtCore/QDir>
#include <QtCore/QJsonArray>
#include <QtTest/QtTest>

#include <optional>

#include <sys/resource.h>

using namespace Corvane;

namespace {

const int Messages = 20;
const int TenMebibytes = 10 * 1024 * 1024; // 200 MiB in all; libdbus would pause at 63 MiB
const int DescriptorsInUse = 4096; // libdbus would pause at this number
const rlim_t DescriptorsNeeded = 12000; // in the peer, which opens the files and duplicates the descriptors

int openDescriptors()
{
    return QDir("/proc/self/fd").entryList(QDir::NoDotAndDotDot | QDir::AllEntries | QDir::System).size();
}

} // namespace

class TestReceiving : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void initTestCase();
    void init();
    void cleanup();

    void intentsArriveWhileTheEventLoopIsBlocked();
    void signalsArriveWhileTheEventLoopIsBlocked();
    void repliesArriveWhileTheEventLoopIsBlocked();
    void descriptorsArriveWhileTheEventLoopIsBlocked();
    void messagesMayCarryManyDescriptors_data();
    void messagesMayCarryManyDescriptors();

private:
    void announceLevel(int level, const QJsonObject &more = {});

    BusDaemon bus{CORVANE_MANY_DESCRIPTORS_CONFIGURATION};
    ServicePeer peer;
    QVector<int> levels;
    QStringList asked; ///< One entry for each received intent.
    std::optional<MessageLog> log;
};

void TestReceiving::initTestCase()
{
    RuntimeDispatcher::instance()->registerIntent("Ask", [this](const QJsonObject &params, const auto &reply) {
        asked << QString::number(params["text"].toString().size());
        reply({{"a", 1}});
    });
    QVERIFY(!RuntimeDispatcher::instance()->startService());
    connect(MemoryPressure::instance(), &MemoryPressure::levelChanged, this, [this](int level) { levels << level; });
    QVERIFY(peer.roundTrip());
}

void TestReceiving::init()
{
    log.emplace();
    levels.clear();
    asked.clear();
}

/// Checks that invoking and handling intents still works.
void TestReceiving::cleanup()
{
    peer.setEventLoopBlocked(false); // after a failure
    peer.answer("({'a': <2.0>},)");
    IntentsInvoker invoker;
    Replies replies(invoker);
    invoker.invoke("Next", {}, {});
    QTRY_COMPARE(replies.all, QStringList("{\"a\":2} 0 "));
    QCOMPARE(peer.call("HandleIntent", "('Ask', @a{sv} {})").text,
             "(a{sv}a{sv}) ({'a': <1.0>}, {'readFiles': <@as []>, 'writeFiles': <@as []>})");
    levels.clear();
    announceLevel(1000);
    announceLevel(0);
    QTRY_COMPARE(levels, QVector<int>({1000, 0}));
    peer.takeCalls();
    log.reset();
}

void TestReceiving::announceLevel(int level, const QJsonObject &more)
{
    peer.emitSignal("MemoryPressure1", "org.freedesktop.DBus.Properties", "PropertiesChanged",
                    QString("('', {'Level': <%1>, 'text': <'FILL'>}, @as [])").arg(level), more);
}

void TestReceiving::intentsArriveWhileTheEventLoopIsBlocked()
{
    peer.setEventLoopBlocked(true);
    const int call =
        peer.beginCall("HandleIntent", "('Ask', {'text': <'FILL'>})", {{"repeat", Messages}, {"fill", TenMebibytes}});
    peer.waitUntilRead();
    peer.setEventLoopBlocked(false);
    QCOMPARE(asked, QStringList());
    const ServicePeer::Reply reply = peer.finishCall(call);
    QCOMPARE(reply.counts, QJsonObject({{reply.text, Messages}}));
    QVERIFY2(reply.text.startsWith("(a{sv}a{sv}) ({'a': <1.0>}, "), qUtf8Printable(reply.text));
    QCOMPARE(asked, QVector<QString>(Messages, QString::number(TenMebibytes)).toList());
}

void TestReceiving::signalsArriveWhileTheEventLoopIsBlocked()
{
    QVector<int> announced;
    peer.setEventLoopBlocked(true);
    for (int i = 1; i <= Messages; ++i) {
        announceLevel(i, {{"fill", TenMebibytes}});
        announced << i;
    }
    peer.waitUntilRead();
    peer.setEventLoopBlocked(false);
    QCOMPARE(levels, QVector<int>());
    QTRY_COMPARE(levels, announced);
}

void TestReceiving::repliesArriveWhileTheEventLoopIsBlocked()
{
    peer.hold();
    IntentsInvoker invoker;
    QVector<int> sizes;
    connect(&invoker, &IntentsInvoker::replyReceived, this,
            [&sizes](const QJsonObject &reply, const Error &) { sizes << reply["text"].toString().size(); });
    for (int i = 0; i < Messages; ++i)
        invoker.invoke("X", {}, {});
    QTRY_COMPARE(peer.calls().size(), Messages);
    peer.setEventLoopBlocked(true);
    for (int i = 0; i < Messages; ++i)
        peer.release(i, "({'text': <'FILL'>},)", {{"fill", TenMebibytes}});
    peer.hold(false);
    peer.waitUntilRead();
    peer.setEventLoopBlocked(false);
    QCOMPARE(sizes, QVector<int>());
    QTRY_COMPARE(sizes, QVector<int>(Messages, TenMebibytes));
}

void TestReceiving::descriptorsArriveWhileTheEventLoopIsBlocked()
{
    const int count = 16;
    const int calls = DescriptorsInUse / count + 50;
    const int before = openDescriptors();
    peer.setEventLoopBlocked(true);
    const int call = peer.beginCall("HandleIntent", "('Ask', @a{sv} {})", {{"repeat", calls}, {"descriptors", count}});
    peer.waitUntilRead();
    peer.setEventLoopBlocked(false);
    peer.finishCall(call);
    QCOMPARE(asked.size(), calls);
    QTRY_COMPARE(openDescriptors(), before);
}

void TestReceiving::messagesMayCarryManyDescriptors_data()
{
    QTest::addColumn<int>("count");

    for (const int count : {17, 100, 253})
        QTest::addRow("%d", count) << count;
}

void TestReceiving::messagesMayCarryManyDescriptors()
{
    QFETCH(int, count);

    const int before = openDescriptors();
    const QJsonObject more{{"descriptors", count}};
    QVERIFY(peer.call("HandleIntent", "('Ask', @a{sv} {})", more).text.startsWith("(a{sv}a{sv}) "));

    peer.answer("({'a': <3.0>},)", {}, more);
    IntentsInvoker invoker;
    Replies replies(invoker);
    invoker.invoke("X", {}, {});
    QTRY_COMPARE(replies.all, QStringList("{\"a\":3} 0 "));

    announceLevel(count, more);
    QTRY_COMPARE(levels, QVector<int>(1, count));
    QTRY_COMPARE(openDescriptors(), before);
}

int main(int argc, char **argv)
{
    rlimit limit = {}; // for the bus and the peer too
    if (::getrlimit(RLIMIT_NOFILE, &limit) != 0 || limit.rlim_max < DescriptorsNeeded)
        qFatal("The limit of descriptors is too low");
    limit.rlim_cur = DescriptorsNeeded;
    if (::setrlimit(RLIMIT_NOFILE, &limit) != 0)
        qFatal("The limit of descriptors cannot be set");
    QCoreApplication application(argc, argv);
    TestReceiving test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_receiving.moc"
