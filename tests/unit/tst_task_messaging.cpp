// SPDX-License-Identifier: BSD-3-Clause
#include <Corvane/task_messaging.h>

#include <descriptor_limit.h>
#include <message_log.h>
#include <patience.h>
#include <plain_socket.h>
#include <run_until.h>

#include <QtCore/QJsonArray>
#include <QtCore/QJsonDocument>
#include <QtCore/QTemporaryDir>
#include <QtTest/QtTest>

#include <fcntl.h>
#include <memory>
#include <optional>
#include <sys/socket.h>
#include <unistd.h>

using namespace Corvane;

namespace {

/// A figure of this process's memory, in KiB.
qint64 memory(const char *name)
{
    QFile file("/proc/self/status");
    if (!file.open(QIODevice::ReadOnly))
        qFatal("The test cannot see its memory");
    const QByteArray text = file.readAll();
    const QByteArray label = QByteArray(name) + ':';
    return text.mid(text.indexOf(label) + label.size()).trimmed().split(' ').first().toLongLong();
}

/// Has "VmHWM" begin anew at what is used now.
void forgetPeakMemory()
{
    QFile file("/proc/self/clear_refs");
    if (!file.open(QIODevice::WriteOnly | QIODevice::Unbuffered) || file.write("5") != 1)
        qFatal("The test cannot forget its peak");
}

/// One end of the library's, with what it has told.
class Channel
{
public:
    template<typename Place>
    explicit Channel(Place place) : channel(new TaskMessaging(place))
    {
        QObject::connect(channel.get(), &TaskMessaging::messageReceived, channel.get(),
                         [this](const QJsonObject &message) {
                             messages << QString::fromUtf8(QJsonDocument(message).toJson(QJsonDocument::Compact));
                         });
        QObject::connect(channel.get(), &TaskMessaging::stateChanged, channel.get(),
                         [this](TaskMessaging::State state) { states << int(state); });
    }
    Q_DISABLE_COPY(Channel)

    TaskMessaging *operator->() const { return channel.get(); }

    std::unique_ptr<TaskMessaging> channel;
    QStringList messages;
    QVector<int> states;
};

} // namespace

class TestTaskMessaging : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void init();
    void cleanup();

    void interfaceIsFixed();
    void messagesTravelAsFrames_data();
    void messagesTravelAsFrames();
    void framesArriveInOrder();
    void anyPayloadIsAMessage_data();
    void anyPayloadIsAMessage();
    void tornFramesEndTheConnection_data();
    void tornFramesEndTheConnection();

    void applicationConnectsAtOnce();
    void missingSocketIsLogged();
    void channelOutlivesItsPath();
    void sendingUnconnectedIsRefused();
    void applicationLearnsThatTheTaskHasGone();

    void taskAcceptsSilently();
    void taskOutlivesItsClients();
    void secondClientWaits();
    void clientThatHasGoneWhileItWaitedIsHeard();
    void socketFileGoesWithTheTask();
    void descriptorsThatDoNotListenAreLeftAlone_data();
    void descriptorsThatDoNotListenAreLeftAlone();
    void outOfDescriptorsTheEndIsLogged();
    void outOfDescriptorsItCannotConnect();
    void peerThatNeverReadsBlocksNobody_data();
    void peerThatNeverReadsBlocksNobody();
    void whatHasArrivedWholeIsRead_data();
    void whatHasArrivedWholeIsRead();

    void bothEndsTalk();
    void mayBeDeletedWhenAMessageArrives_data();
    void mayBeDeletedWhenAMessageArrives();
    void mayBeDeletedWhenAWaitingClientIsHeard();
    void mayBeDeletedWhenItsStateChanges_data();
    void mayBeDeletedWhenItsStateChanges();
    void clientMayBeReplacedWhileAMessageIsHandled();

    void mayBeDeletedInAnEventLoopOfItsReceiver_data();
    void mayBeDeletedInAnEventLoopOfItsReceiver();

    void burstsArriveWhole_data();
    void burstsArriveWhole();

private:
    QString path() const { return directory->filePath("task.socket"); }

    std::unique_ptr<QTemporaryDir> directory;
    std::optional<MessageLog> log;
    int handled = 0; ///< signals, where the channel is deleted in the first
};

namespace {

const QString Incomplete = "Insufficient data in the socket";
const QString OneOnly = "TaskMessaging can handle only one connection at a time";
const QString NoSocket = "Socket error \"QLocalSocket::connectToServer: Invalid name\"";
const QString RemoteClosed = "Socket error \"QLocalSocket: Remote closed\"";

} // namespace

void TestTaskMessaging::init()
{
    directory = std::make_unique<QTemporaryDir>();
    log.emplace();
}

void TestTaskMessaging::cleanup()
{
    log.reset();
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
}

void TestTaskMessaging::interfaceIsFixed()
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

void TestTaskMessaging::messagesTravelAsFrames_data()
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

void TestTaskMessaging::messagesTravelAsFrames()
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

void TestTaskMessaging::framesArriveInOrder()
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

void TestTaskMessaging::anyPayloadIsAMessage_data()
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
    for (const int levels : {1023, 1024, 1025}) { // the object is one
        const QByteArray nested =
            QByteArrayLiteral("{\"a\":") + QByteArray(levels - 1, '[') + QByteArray(levels - 1, ']') + '}';
        QTest::addRow("%d levels", levels)
            << frame(nested) << QString::fromLatin1(levels <= 1024 ? nested : QByteArrayLiteral("{}"));
    }
}

void TestTaskMessaging::anyPayloadIsAMessage()
{
    QFETCH(QByteArray, bytes);
    QFETCH(QString, message);

    Channel task(listeningSocket(path()));
    PlainSocket application(path());
    QVERIFY(application.send(bytes + frame(R"({"next":true})")));
    QTRY_COMPARE(task.messages, QStringList({message, "{\"next\":true}"}));
}

void TestTaskMessaging::tornFramesEndTheConnection_data()
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

void TestTaskMessaging::tornFramesEndTheConnection()
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
    QVERIFY2(memory("VmHWM") - used < qint64(16) * 1024, "a length that is promised is not believed");
    // An earlier peak may be above what there was before, but not by as much as the lengths.
    QVERIFY2(memory("VmPeak") - addresses < qint64(1024) * 1024, "nor is room for it set aside");
    QCOMPARE(task.messages, QStringList("{\"whole\":true}"));
    QCOMPARE(task->state(), TaskMessaging::Unconnected);
    QCOMPARE(task.states, QVector<int>({TaskMessaging::Closing, TaskMessaging::Unconnected}));
    QCOMPARE(log->takeWarnings(), QStringList(Incomplete));
    QVERIFY2(log->lastFunction().contains("Corvane::TaskMessagingPrivate::"), qUtf8Printable(log->lastFunction()));
}

void TestTaskMessaging::applicationConnectsAtOnce()
{
    const Descriptor listener(listeningSocket(path()));
    Channel application(path());
    QCOMPARE(application->state(), TaskMessaging::Connected);
    QVERIFY(application->sendMessage({}));
    PlainSocket task(listener.get());
    QTRY_COMPARE(task.received(), frame("{}"));
    QCOMPARE(application.states, QVector<int>()); // nobody could listen when it connected
}

void TestTaskMessaging::missingSocketIsLogged()
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

void TestTaskMessaging::channelOutlivesItsPath()
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
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete); // of its server
    QCOMPARE(log->takeWarnings(), QStringList());
    QTRY_COMPARE(application->state(), TaskMessaging::Unconnected);
    QCOMPARE(log->takeWarnings(), QStringList(RemoteClosed));

    Channel nextTask(listeningSocket(path()));
    Channel nextApplication(path());
    QVERIFY(nextApplication->sendMessage({}));
    QTRY_COMPARE(nextTask.messages.size(), 1);
}

void TestTaskMessaging::sendingUnconnectedIsRefused()
{
    Channel task(listeningSocket(path()));
    QCOMPARE(task->state(), TaskMessaging::Unconnected);
    QVERIFY(!task->sendMessage({}));
    QCOMPARE(log->takeWarnings(),
             QStringList("bool Corvane::TaskMessagingPrivate::sendMessage(const QJsonObject&) not connected"));
    QVERIFY2(log->lastFunction().startsWith("bool Corvane::TaskMessagingPrivate::sendMessage("),
             qUtf8Printable(log->lastFunction()));
}

void TestTaskMessaging::applicationLearnsThatTheTaskHasGone()
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

void TestTaskMessaging::taskAcceptsSilently()
{
    Channel task(listeningSocket(path()));
    PlainSocket application(path());
    QTRY_COMPARE(task->state(), TaskMessaging::Connected);
    QCOMPARE(task.states, QVector<int>());
}

void TestTaskMessaging::taskOutlivesItsClients()
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

void TestTaskMessaging::secondClientWaits()
{
    Channel task(listeningSocket(path()));
    PlainSocket first(path());
    QTRY_COMPARE(task->state(), TaskMessaging::Connected);
    PlainSocket second(path());
    QVERIFY(second.send(frame(R"({"from":"second"})")));
    QStringList warnings;
    QTRY_COMPARE((warnings += log->takeWarnings(), warnings), QStringList(OneOnly));

    // The first one is still the one that counts.
    QVERIFY(first.send(frame(R"({"from":"first"})")));
    QTRY_COMPARE(task.messages, QStringList("{\"from\":\"first\"}"));
    QVERIFY(task->sendMessage({}));
    QTRY_COMPARE(first.received(), frame("{}"));
    QVERIFY(!second.isClosed());
    QCOMPARE(second.received(), QByteArray());

    // When it has gone, the next that comes lets the one in that has waited.
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

void TestTaskMessaging::clientThatHasGoneWhileItWaitedIsHeard()
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
    PlainSocket third(path()); // gives the second one its turn, which has left, and then has its own
    QVERIFY(third.send(frame(R"({"from":"third"})")));
    QTRY_COMPARE(task.messages, QStringList({"{\"from\":\"second\"}", "{\"from\":\"third\"}"}));
    QCOMPARE(task->state(), TaskMessaging::Connected);
    const QStringList endings = log->takeWarnings(); // none if Qt noticed the second one's end while it waited
    for (const QString &warning : endings)
        QCOMPARE(warning, RemoteClosed);
}

void TestTaskMessaging::socketFileGoesWithTheTask()
{
    {
        Channel task(listeningSocket(path()));
        QVERIFY(QFile::exists(path()));
    }
    QVERIFY(!QFile::exists(path()));
}

void TestTaskMessaging::descriptorsThatDoNotListenAreLeftAlone_data()
{
    QTest::addColumn<QString>("kind");

    for (const char *kind : {"negative", "closed", "standard input", "file", "pipe", "connected socket",
                             "unbound socket", "datagram socket", "internet socket"})
        QTest::newRow(kind) << QString::fromLatin1(kind);
}

void TestTaskMessaging::descriptorsThatDoNotListenAreLeftAlone()
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
    QCOMPARE(::fcntl(number, F_GETFL), flags); // neither closed nor made non-blocking
    const QStringList warnings = log->takeWarnings();
    QCOMPARE(warnings.size(), 2);
    QCOMPARE(warnings.first(), QString("Not a listening local socket: %1").arg(number));
}

void TestTaskMessaging::outOfDescriptorsTheEndIsLogged()
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
    QVERIFY(first.send(frame("{}"))); // the client that is there stays
    QTRY_COMPARE(task.messages.size(), 1);
}

void TestTaskMessaging::outOfDescriptorsItCannotConnect()
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

void TestTaskMessaging::peerThatNeverReadsBlocksNobody_data()
{
    mayBeDeletedWhenAMessageArrives_data();
}

void TestTaskMessaging::peerThatNeverReadsBlocksNobody()
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
    const int count = 1000; // of 32 KiB, far more than the kernel keeps for the other end
    const QJsonObject message{{"x", QString(32 * 1024 - 8, 'x')}};
    for (int i = 0; i < count; ++i) {
        QVERIFY(channel->sendMessage(message));
        QCoreApplication::processEvents(); // does not wait until there is room
    }
    QCOMPARE(channel->state(), TaskMessaging::Connected);
    QVERIFY(other->send(frame("{}"))); // and is heard all the same
    QTRY_COMPARE(received, 1);

    // What was sent has been kept, and comes whole.
    const QByteArray bytes = frame(QJsonDocument(message).toJson(QJsonDocument::Compact));
    QVERIFY(runUntil([&] { return other->received().size() == count * bytes.size(); }));
    QCOMPARE(other->received(), bytes.repeated(count));
}

void TestTaskMessaging::whatHasArrivedWholeIsRead_data()
{
    QTest::addColumn<int>("size"); // of the payload

    for (const int kib : {32, 35, 36, 64, 128}) {
        for (const int more : {-1, 0, 1})
            QTest::addRow("%d KiB and %d", kib, more) << kib * 1024 + more;
    }
    QTest::addRow("2") << 2;
}

void TestTaskMessaging::whatHasArrivedWholeIsRead()
{
    QFETCH(int, size);

    QByteArray payload = "{}";
    payload.insert(1, QByteArray(size - 2, ' '));
    Channel task(listeningSocket(path()));
    PlainSocket application(path());
    application.makeRoom(256 * 1024);
    QTRY_COMPARE(task->state(), TaskMessaging::Connected);
    QVERIFY(application.send(frame(payload) + frame("{}"))); // before the other end looks
    QTRY_COMPARE(task.messages, QStringList({"{}", "{}"}));
}

void TestTaskMessaging::bothEndsTalk()
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

void TestTaskMessaging::mayBeDeletedWhenAMessageArrives_data()
{
    QTest::addColumn<bool>("isTask");

    QTest::newRow("application") << false;
    QTest::newRow("task") << true;
}

void TestTaskMessaging::mayBeDeletedWhenAMessageArrives()
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

void TestTaskMessaging::mayBeDeletedWhenAWaitingClientIsHeard()
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

void TestTaskMessaging::mayBeDeletedWhenItsStateChanges_data()
{
    mayBeDeletedWhenAMessageArrives_data();
}

void TestTaskMessaging::mayBeDeletedWhenItsStateChanges()
{
    QFETCH(bool, isTask);

    for (const bool isTorn : {true, false}) { // closed by the channel itself, and by the other end
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

void TestTaskMessaging::clientMayBeReplacedWhileAMessageIsHandled()
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

void TestTaskMessaging::mayBeDeletedInAnEventLoopOfItsReceiver_data()
{
    QTest::addColumn<bool>("hasWaited");
    QTest::addColumn<bool>("onState");

    QTest::newRow("message") << false << false;
    QTest::newRow("message that has waited") << true << false;
    QTest::newRow("state") << false << true;
}

void TestTaskMessaging::mayBeDeletedInAnEventLoopOfItsReceiver()
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
            QTimer::singleShot(0, &loop, &QEventLoop::quit); // what is to be deleted later is deleted before
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

void TestTaskMessaging::burstsArriveWhole_data()
{
    QTest::addColumn<bool>("isTask"); // what the library is
    QTest::addColumn<bool>("sends");
    QTest::addColumn<int>("count");
    QTest::addColumn<int>("size");

    const int divisor = qEnvironmentVariableIsSet("CORVANE_UNDER_VALGRIND") ? 20 : CORVANE_BURST_DIVISOR;
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

void TestTaskMessaging::burstsArriveWhole()
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

    // {"n":1017,"x":"xxx..."}, of so many bytes
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

QTEST_GUILESS_MAIN(TestTaskMessaging)
#include "tst_task_messaging.moc"
