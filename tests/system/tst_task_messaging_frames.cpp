// SPDX-License-Identifier: BSD-3-Clause
// The messages of a task channel as frames on the socket.
#include "channel.h"

#include <message_log.h>
#include <patience.h>
#include <plain_socket.h>
#include <run_until.h>
#include <under_valgrind.h>

#include <QtCore/QTemporaryDir>
#include <QtTest/QtTest>

#include <memory>
#include <optional>

using namespace Corvane;

namespace {

const QString Incomplete = QStringLiteral("Insufficient data in the socket");

/// Returns a value of /proc/self/status in KiB.
qint64 memory(const char *name)
{
    QFile file("/proc/self/status");
    if (!file.open(QIODevice::ReadOnly))
        qFatal("The test cannot see its memory");
    const QByteArray text = file.readAll();
    const QByteArray label = QByteArray(name) + ':';
    return text.mid(text.indexOf(label) + label.size()).trimmed().split(' ').first().toLongLong();
}

/// Resets "VmHWM", the peak of the used memory, to the current value.
void forgetPeakMemory()
{
    QFile file("/proc/self/clear_refs");
    if (!file.open(QIODevice::WriteOnly | QIODevice::Unbuffered) || file.write("5") != 1)
        qFatal("The test cannot forget its peak");
}

} // namespace

class TestTaskMessagingFrames : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void init();
    void cleanup();

    void messagesAreSentAsFrames_data();
    void messagesAreSentAsFrames();
    void framesArriveInOrder();
    void eachPayloadIsEmittedAsAMessage_data();
    void eachPayloadIsEmittedAsAMessage();
    void incompleteFramesCloseTheConnection_data();
    void incompleteFramesCloseTheConnection();
    void completeFramesAreRead_data();
    void completeFramesAreRead();
    void burstsArriveCompletely_data();
    void burstsArriveCompletely();

private:
    QString path() const { return directory->filePath("task.socket"); }

    std::unique_ptr<QTemporaryDir> directory;
    std::optional<MessageLog> log;
};

void TestTaskMessagingFrames::init()
{
    directory = std::make_unique<QTemporaryDir>();
    log.emplace();
}

void TestTaskMessagingFrames::cleanup()
{
    log.reset();
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
}

void TestTaskMessagingFrames::messagesAreSentAsFrames_data()
{
    QTest::addColumn<QJsonObject>("message");
    QTest::addColumn<QByteArray>("bytes");

    const QString a = "a";
    QTest::newRow("empty") << QJsonObject() << QByteArray("\0\0\0\2{}", 6);
    QTest::newRow("number") << QJsonObject{{a, 1}} << QByteArray("\0\0\0\7{\"a\":1}", 11);
    QTest::newRow("null") << QJsonObject{{a, QJsonValue()}} << frame(R"({"a":null})");
    QTest::newRow("nested") << QJsonObject{{a, QJsonArray{1, QJsonObject{{a, true}}, QJsonArray{}}}}
                            << frame(R"({"a":[1,{"a":true},[]]})");
    QTest::newRow("any text") << QJsonObject{{a, QString::fromUtf8("é😀\n\0", 8)}} << frame("{\"a\":\"é😀\\n\\u0000\"}");
    QTest::newRow("of 300 bytes") << QJsonObject{{a, QString(292, 'x')}}
                                  << QByteArray("\0\0\1\54", 4) + R"({"a":")" + QByteArray(292, 'x') + R"("})";
}

void TestTaskMessagingFrames::messagesAreSentAsFrames()
{
    QFETCH(QJsonObject, message);
    QFETCH(QByteArray, bytes);

    const Descriptor listener(listeningSocket(path()));
    Channel application(path());
    PlainSocket task(listener.get());
    QVERIFY(application->sendMessage(message));
    QTRY_COMPARE(task.received(), bytes);

    Channel service(listeningSocket(path() + '2'));
    PlainSocket client(path() + '2');
    QTRY_COMPARE(service->state(), TaskMessaging::Connected);
    QVERIFY(service->sendMessage(message));
    QTRY_COMPARE(client.received(), bytes);
}

void TestTaskMessagingFrames::framesArriveInOrder()
{
    const Descriptor listener(listeningSocket(path()));
    Channel application(path());
    PlainSocket task(listener.get());
    QByteArray bytes;
    QStringList expected;
    for (int i = 0; i < 10; ++i) {
        bytes += frame(QByteArrayLiteral("{\"n\":") + QByteArray::number(i) + '}');
        expected << QString("{\"n\":%1}").arg(i);
    }
    QVERIFY(task.send(bytes)); // in one piece
    QTRY_COMPARE(application.messages, expected);
    QCOMPARE(application->state(), TaskMessaging::Connected);
}

void TestTaskMessagingFrames::eachPayloadIsEmittedAsAMessage_data()
{
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<QString>("message");

    QTest::newRow("object") << frame(R"( { "a" : [ 1 ] } )") << R"({"a":[1]})";
    QTest::newRow("array") << frame("[1,2]") << "{}";
    QTest::newRow("number") << frame("1") << "{}";
    QTest::newRow("text") << frame("text") << "{}";
    QTest::newRow("nothing") << frame("") << "{}";
    QTest::newRow("null array") << QByteArray("\xff\xff\xff\xff") << "{}";
    QTest::newRow("half an object") << frame(R"({"a":)") << "{}";
    QTest::newRow("not UTF-8") << frame("{\"a\":\"\xff\"}") << "{}";
    QTest::newRow("zeros") << frame(QByteArray(100, 0)) << "{}";
    QTest::newRow("null") << frame("null") << "{}";
    QTest::newRow("object of an empty key") << frame(R"({"":""})") << R"({"":""})";
    QTest::newRow("two objects") << frame(R"({"a":1}{"b":2})") << "{}";
    QTest::newRow("text behind") << frame(R"({"a":1} x)") << "{}";
    QTest::newRow("NUL behind") << frame(QByteArray("{\"a\":1}\0", 8)) << "{}";
    QTest::newRow("byte order mark") << frame("\xef\xbb\xbf{\"a\":1}") << R"({"a":1})";
    QTest::newRow("UTF-16") << frame(QByteArray("{\0\"\0a\0\"\0:\0001\0}\0", 14)) << "{}";
    QTest::newRow("same key twice") << frame(R"({"a":1,"a":2})") << R"({"a":2})";
    QTest::newRow("trailing comma") << frame(R"({"a":1,})") << "{}";
    QTest::newRow("comment") << frame(R"({"a":1 /* one */})") << "{}";
    QTest::newRow("single quotes") << frame("{'a':1}") << "{}";
    QTest::newRow("no quotes") << frame("{a:1}") << "{}";
    QTest::newRow("half an escape") << frame(R"({"a":"\u00"})") << "{}";
    QTest::newRow("control character") << frame("{\"a\":\"\n\"}") << R"({"a":"\n"})";
    QTest::newRow("NUL in a text") << frame(QByteArray("{\"a\":\"x\0y\"}", 11)) << R"({"a":"x\u0000y"})";
    QTest::newRow("lone surrogate") << frame(R"({"a":"\ud800"})") << R"({"a":"\ud800"})";
    QTest::newRow("huge number") << frame(R"({"a":1e400})") << "{}";
    QTest::newRow("number of many digits") << frame("{\"a\":" + QByteArray(300, '9') + "}") << R"({"a":1e+300})";
    QTest::newRow("NaN") << frame(R"({"a":NaN})") << "{}";
    QTest::newRow("hexadecimal") << frame(R"({"a":0x10})") << "{}";
    QTest::newRow("binary JSON") << frame(QByteArray("qbjs\1\0\0\0\0\0\0\0", 12)) << "{}";
    QTest::newRow("frame in a frame") << frame(frame(R"({"a":1})")) << "{}";
    for (const int levels : {1023, 1024, 1025}) { // the object is the first level
        const QByteArray nested =
            QByteArrayLiteral("{\"a\":") + QByteArray(levels - 1, '[') + QByteArray(levels - 1, ']') + '}';
        QTest::addRow("%d levels", levels)
            << frame(nested) << QString::fromLatin1(levels <= 1024 ? nested : QByteArrayLiteral("{}"));
    }
}

void TestTaskMessagingFrames::eachPayloadIsEmittedAsAMessage()
{
    QFETCH(QByteArray, bytes);
    QFETCH(QString, message);

    Channel task(listeningSocket(path()));
    PlainSocket application(path());
    QVERIFY(application.send(bytes + frame(R"({"next":true})")));
    QTRY_COMPARE(task.messages, QStringList({message, "{\"next\":true}"}));
}

void TestTaskMessagingFrames::incompleteFramesCloseTheConnection_data()
{
    QTest::addColumn<QByteArray>("bytes");

    QTest::newRow("part of a length") << QByteArray("\0\0", 2);
    QTest::newRow("length alone") << QByteArray("\0\0\0\7", 4);
    QTest::newRow("part of a payload") << frame(QByteArray(100, 'x')).left(14);
    QTest::newRow("all but a byte") << frame(R"({"a":1})").chopped(1);
    QTest::newRow("2 GiB") << QByteArray("\x7f\xff\xff\xff{}");
    QTest::newRow("2 GiB and more") << QByteArray("\x80\0\0\0{}", 6);
    QTest::newRow("4 GiB") << QByteArray("\xff\xff\xff\xfe{}");
}

void TestTaskMessagingFrames::incompleteFramesCloseTheConnection()
{
    QFETCH(QByteArray, bytes);

    Channel task(listeningSocket(path()));
    PlainSocket application(path());
    QTRY_COMPARE(task->state(), TaskMessaging::Connected);
    forgetPeakMemory();
    const qint64 used = memory("VmHWM");
    const qint64 addresses = memory("VmSize");
    QVERIFY(application.send(frame(R"({"whole":true})") + bytes));
    QTRY_VERIFY(application.isClosed());
    QVERIFY2(memory("VmHWM") - used < qint64(16) * 1024, "no memory is used for the announced length");
    // An earlier peak may be above the current size, but by less than the length prefixes.
    QVERIFY2(memory("VmPeak") - addresses < qint64(1024) * 1024, "no addresses are reserved for the announced length");
    QCOMPARE(task.messages, QStringList("{\"whole\":true}"));
    QCOMPARE(task->state(), TaskMessaging::Unconnected);
    QCOMPARE(task.states, QVector<int>({TaskMessaging::Closing, TaskMessaging::Unconnected}));
    QCOMPARE(log->takeWarnings(), QStringList(Incomplete));
    QVERIFY2(log->lastFunction().contains("Corvane::TaskMessagingPrivate::"), qUtf8Printable(log->lastFunction()));
}

void TestTaskMessagingFrames::completeFramesAreRead_data()
{
    QTest::addColumn<int>("size"); // of the payload

    for (const int kib : {32, 35, 36, 64, 128}) {
        for (const int more : {-1, 0, 1})
            QTest::addRow("%d KiB and %d", kib, more) << kib * 1024 + more;
    }
    QTest::addRow("2") << 2;
}

void TestTaskMessagingFrames::completeFramesAreRead()
{
    QFETCH(int, size);

    QByteArray payload = "{}";
    payload.insert(1, QByteArray(size - 2, ' '));
    Channel task(listeningSocket(path()));
    PlainSocket application(path());
    application.makeRoom(256 * 1024);
    QTRY_COMPARE(task->state(), TaskMessaging::Connected);
    QVERIFY(application.send(frame(payload) + frame("{}"))); // before the channel reads
    QTRY_COMPARE(task.messages, QStringList({"{}", "{}"}));
}

void TestTaskMessagingFrames::burstsArriveCompletely_data()
{
    QTest::addColumn<bool>("isTask"); // whether the library is the task or the application
    QTest::addColumn<bool>("sends");
    QTest::addColumn<int>("count");
    QTest::addColumn<int>("size");

    const int divisor = underValgrind() ? 20 : CORVANE_BURST_DIVISOR;
    for (const bool isTask : {false, true}) {
        for (const bool sends : {false, true}) {
            for (const auto &[count, size] :
                 {std::pair(20000, 10), std::pair(20000, 1024), std::pair(20000, 5120), std::pair(3000, 32768)}) {
                QTest::addRow("%s %s %d of %d bytes", isTask ? "task" : "application", sends ? "sends" : "receives",
                              count / divisor, size)
                    << isTask << sends << count / divisor << size;
            }
        }
    }
}

void TestTaskMessagingFrames::burstsArriveCompletely()
{
    QFETCH(bool, isTask);
    QFETCH(bool, sends);
    QFETCH(int, count);
    QFETCH(int, size);

    std::unique_ptr<TaskMessaging> channel;
    if (isTask)
        channel = std::make_unique<TaskMessaging>(listeningSocket(path()));
    QProcess other;
    other.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    other.start(CORVANE_PYTHON,
                {CORVANE_CHANNEL_PEER, isTask ? "connect" : "listen", path(), sends ? "receive" : "send",
                 QString::number(count), QString::number(size)});
    if (!isTask) {
        QTRY_VERIFY(other.canReadLine());
        QCOMPARE(other.readLine(), QByteArray("listening\n"));
        channel = std::make_unique<TaskMessaging>(path());
    }

    // {"n":1017,"x":"xxx..."} with a length of size bytes
    const auto message = [size](int number) {
        QJsonObject object{{"n", 1000 + number % 9000}};
        if (size > 10)
            object.insert("x", QString(size - 17, 'x'));
        return object;
    };
    int received = 0;
    bool isWhole = true;
    connect(channel.get(), &TaskMessaging::messageReceived, this, [&](const QJsonObject &arrived) {
        isWhole = isWhole && arrived == message(received);
        ++received;
    });
    QTRY_COMPARE(channel->state(), TaskMessaging::Connected);
    if (sends) {
        for (int i = 0; i < count; ++i)
            QVERIFY(channel->sendMessage(message(i)));
    }
    QVERIFY(runUntil([&other] { return other.canReadLine() || other.state() == QProcess::NotRunning; }));
    QCOMPARE(other.readLine(), QByteArray("done\n"));
    runUntil([&] { return sends || received >= count || channel->state() != TaskMessaging::Connected; });
    QCOMPARE(received, sends ? 0 : count);
    QVERIFY(isWhole);
    QCOMPARE(channel->state(), TaskMessaging::Connected);
    channel.reset();
    other.write("\n");
    QVERIFY(other.waitForFinished(Patience));
    QCOMPARE(other.exitCode(), 0);
}

QTEST_GUILESS_MAIN(TestTaskMessagingFrames)
#include "tst_task_messaging_frames.moc"
