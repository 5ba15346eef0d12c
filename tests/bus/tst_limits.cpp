// SPDX-License-Identifier: BSD-3-Clause
// Messages over the bus's limits are refused, and the connection stays open.
#include <Corvane/intents_invoker.h>
#include <Corvane/runtime_dispatcher.h>
#include <DBus/message_meter.h>

#include <message_log.h>
#include <patience.h>
#include <replies.h>
#include <run_until.h>
#include <service_peer.h>

#include <QtCore/QJsonArray>
#include <QtCore/QTemporaryFile>
#include <QtDBus/QDBusConnection>
#include <QtDBus/QDBusMessage>
#include <QtTest/QtTest>

#include <optional>

using namespace Corvane;

namespace {

const QString Key = QStringLiteral("n");
const QString TooDeep = QStringLiteral("A message cannot nest more than 63 containers");
const QString ArrayTooLarge = QStringLiteral("A message cannot hold an array or object of more than 64 MiB");
const QString HasNul = QStringLiteral("A message cannot hold a text with U+0000");
const QString TooManyFiles = QStringLiteral("A message cannot carry more than %1 files").arg(CORVANE_MAX_DESCRIPTORS);

enum Shape : int { Objects, MixedArrays, ArraysOfObjects };

QJsonObject nested(int shape, int depth, QJsonValue innermost)
{
    for (int i = 0; i < depth; ++i) {
        if (shape == Objects)
            innermost = QJsonObject{{Key, innermost}};
        else if (shape == MixedArrays)
            innermost = QJsonArray{"x", innermost};
        else
            innermost = QJsonObject{{Key, QJsonArray{innermost}}};
    }
    return shape == MixedArrays ? QJsonObject{{Key, innermost}} : innermost.toObject();
}

/// Returns the nested value as GLib's text.
QString nestedText(int shape, int depth, QString innermost)
{
    for (int i = 0; i < depth; ++i) {
        if (shape == Objects)
            innermost = QString("{'n': <%1>}").arg(innermost);
        else if (shape == MixedArrays)
            innermost = QString("[<'x'>, <%1>]").arg(innermost);
        else
            innermost = QString("{'n': <[%1]>}").arg(innermost);
    }
    return QString("(%1,)").arg(shape == MixedArrays ? QString("{'n': <%1>}").arg(innermost) : innermost);
}

/// Returns the bus's text of the error for a call to the missing service.
QString textOfAbsentService()
{
    return QDBusConnection::sessionBus()
        .call(QDBusMessage::createMethodCall(CORVANE_SERVICE_ROOT, "/", QString(), "X"))
        .errorMessage();
}

} // namespace

class TestLimits : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void initTestCase();
    void init();
    void cleanup();
    void messagesOverTheNestingLimitAreRefused_data();
    void messagesOverTheNestingLimitAreRefused();
    void messagesOverTheSizeLimitAreRefused_data();
    void messagesOverTheSizeLimitAreRefused();
    void callsOverTheLimitsAreRefused_data();
    void callsOverTheLimitsAreRefused();
    void messageOfTwoLargePartsIsRefused();
    void hintsThatNestInArraysAreRefused();
    void tooManyFilesAreRefused();
    void filesUpToTheLimitAreSent_data();
    void filesUpToTheLimitAreSent();
    void nameWithNulIsRefused();
    void repliesOverTheLimitsAreRefused_data();
    void repliesOverTheLimitsAreRefused();
    void refusedCallCreatesNoFiles();
    void refusedReplyCreatesNoFiles();

private:
    QString fateOf(const QJsonObject &hints, const QJsonObject &params);
    void giveFiles(int count);

    ServicePeer peer;
    QTemporaryFile file;
    QJsonObject given; ///< The reply of the handler of "Give".
    std::optional<MessageLog> log;
};

void TestLimits::initTestCase()
{
    QVERIFY(file.open());
    QVERIFY(!RuntimeDispatcher::instance()->startService());
}

void TestLimits::init()
{
    RuntimeDispatcher::instance()->registerIntent("Give",
                                                  [this](const QJsonObject &, const auto &reply) { reply(given); });
    log.emplace();
}

void TestLimits::cleanup()
{
    peer.takeCalls();
    log.reset();
}

void TestLimits::messagesOverTheNestingLimitAreRefused_data()
{
    QTest::addColumn<int>("shape");
    QTest::addColumn<int>("depth");
    QTest::addColumn<bool>("isEmpty");
    QTest::addColumn<bool>("passes");

    const auto row = [](const char *tag, Shape shape, int depth, bool isEmpty, bool passes) {
        QTest::addRow("%d %s", depth, tag) << int(shape) << depth << isEmpty << passes;
    };
    row("objects", Objects, 20, false, true);
    row("objects", Objects, 21, false, true);
    row("objects", Objects, 22, false, false);
    row("objects around an empty one", Objects, 20, true, true);
    row("objects around an empty one", Objects, 21, true, false);
    row("mixed arrays", MixedArrays, 29, false, true);
    row("mixed arrays", MixedArrays, 30, false, true);
    row("mixed arrays", MixedArrays, 31, false, false);
    row("mixed arrays around an empty one", MixedArrays, 29, true, true);
    row("mixed arrays around an empty one", MixedArrays, 30, true, false);
    row("mixed arrays around an empty one", MixedArrays, 31, true, false);
    row("arrays of objects around an empty one", ArraysOfObjects, 15, true, true);
    row("arrays of objects around an empty one", ArraysOfObjects, 16, true, false);
    row("objects", Objects, 300, false, false);
}

void TestLimits::messagesOverTheNestingLimitAreRefused()
{
    QFETCH(int, shape);
    QFETCH(int, depth);
    QFETCH(bool, isEmpty);
    QFETCH(bool, passes);

    if (depth < 100) { // GLib cannot nest deeper itself
        const QString innermost = !isEmpty ? "1.0" : shape == MixedArrays ? "@av []" : "@a{sv} {}";
        const bool busAccepts = peer.survivesSending(nestedText(shape, depth, innermost));
        QVERIFY2(busAccepts || !passes, "the bus disconnects the sender of a message that the library sends");
    }

    QJsonValue innermost = 1;
    if (isEmpty)
        innermost = shape == MixedArrays ? QJsonValue(QJsonArray()) : QJsonValue(QJsonObject());
    const QJsonObject object = nested(shape, depth, innermost);
    const QString fate = fateOf({}, object);
    QCOMPARE(fate, passes ? QString() : TooDeep);
    // In hints, only the outermost array has a type. Each inner array is mixed, which is one level more.
    if (shape != ArraysOfObjects)
        QCOMPARE(fateOf(object, {}), fate);

    if (passes)
        return;
    given = object;
    QCOMPARE(peer.call("HandleIntent", "('Give', @a{sv} {})").text,
             QString("org.freedesktop.DBus.Error.Failed (s) ('%1',)").arg(TooDeep));
    QCOMPARE(log->takeWarnings(), QStringList(QString("Failed to reply to an intent: \"%1\"").arg(TooDeep)));
}

/// Returns the error of an intent; empty if the bus has received it and the connection is still open.
QString TestLimits::fateOf(const QJsonObject &hints, const QJsonObject &params)
{
    peer.ownServiceName(false); // GLib is stricter than the bus, and refuses some of these messages
    IntentsInvoker invoker;
    Replies replies(invoker);
    invoker.invoke("X", hints, params);
    const QString absent = textOfAbsentService();
    const bool isReported = runUntil([&replies] { return !replies.all.isEmpty(); });
    peer.ownServiceName(true);
    if (!isReported)
        return "Nothing is reported";
    if (!peer.roundTrip())
        return "The connection is lost";
    const QString outcome = replies.all.join(';').remove("{} 1 ");
    return outcome == absent ? QString() : outcome;
}

void TestLimits::messagesOverTheSizeLimitAreRefused_data()
{
    QTest::addColumn<QString>("text"); // if empty, the payload is numbers
    QTest::addColumn<int>("numbers");
    QTest::addColumn<bool>("passes");

    // The body of {"n": text}: the key (7 bytes), the variant's signature (3), padding to 12, a length (4), a NUL.
    const int room = 64 * 1024 * 1024 - 17;
    for (const int more : {-1, 0, 1})
        QTest::addRow("%d bytes of text", room + more) << QString(room + more, 'x') << 0 << (more <= 0);
    // The body of {"n": numbers}: the key, the signature (4), padding to 12, a length (4).
    const int count = 64 * 1024 * 1024 / 8 - 2;
    for (const int more : {-1, 0, 1})
        QTest::addRow("%d numbers", count + more) << QString() << count + more << (more <= 0);
}

void TestLimits::messagesOverTheSizeLimitAreRefused()
{
    QFETCH(QString, text);
    QFETCH(int, numbers);
    QFETCH(bool, passes);

    QJsonArray array;
    for (int i = 0; i < numbers; ++i)
        array.append(i);
    const QJsonValue value = numbers > 0 ? QJsonValue(array) : QJsonValue(text);
    QCOMPARE(fateOf({}, {{Key, value}}), passes ? QString() : ArrayTooLarge);
}

void TestLimits::callsOverTheLimitsAreRefused_data()
{
    QTest::addColumn<QJsonObject>("object"); // as params and as hints
    QTest::addColumn<QString>("problem");

    const QString nul = QString("a") + QChar(0) + 'b';
    const QString large(64 * 1024 * 1024, 'x');
    QTest::newRow("U+0000 in a value") << QJsonObject{{Key, nul}} << HasNul;
    QTest::newRow("U+0000 in a key") << QJsonObject{{nul, 1}} << HasNul;
    // A refused message logs no warnings about omitted parts.
    const QJsonArray leftOut{QJsonArray{1}};
    QTest::newRow("U+0000 beside omitted values")
        << QJsonObject{{"a", leftOut}, {"b", QJsonValue()}, {Key, nul}} << HasNul;
    QTest::newRow("64 MiB of text") << QJsonObject{{Key, large}} << ArrayTooLarge;
    QTest::newRow("64 MiB in an array") << QJsonObject{{Key, QJsonArray{large.left(40 << 20), large.left(40 << 20)}}}
                                        << ArrayTooLarge;
    QTest::newRow("nested deeper than a stack is high") << nested(Objects, 30000, 1) << TooDeep;
}

void TestLimits::callsOverTheLimitsAreRefused()
{
    QFETCH(QJsonObject, object);
    QFETCH(QString, problem);

    for (const bool asHints : {false, true}) {
        IntentsInvoker invoker;
        Replies replies(invoker);
        invoker.invoke("X", asHints ? object : QJsonObject(), asHints ? QJsonObject() : object);
        QCOMPARE(replies.all, QStringList()); // the callback never runs within the call
        QTRY_COMPARE(replies.all, QStringList("{} 1 " + problem));
        QVERIFY(peer.roundTrip());
        QCOMPARE(peer.calls(), QStringList());

        invoker.invoke("Next", {}, {});
        QTRY_COMPARE(peer.calls().size(), 1);
        peer.takeCalls();
        QTRY_COMPARE(replies.all.size(), 2);
        QCOMPARE(replies.all.last(), QString("{} 0 "));
    }
}

/// The hints and the parameters are within the limits; the message is not.
void TestLimits::messageOfTwoLargePartsIsRefused()
{
    QJsonArray numbers;
    for (int i = 0; i < 64 * 1024 * 1024 / 8 - 2; ++i)
        numbers.append(i);
    const QJsonObject object{{Key, numbers}};
    IntentsInvoker invoker;
    Replies replies(invoker);
    invoker.invoke("X", object, object);
    QTRY_COMPARE(replies.all, QStringList("{} 1 A message cannot be longer than 128 MiB"));
    invoker.invoke("Next", {}, {});
    QTRY_COMPARE(replies.all.size(), 2);
    QCOMPARE(replies.all.last(), QString("{} 0 "));
}

/// Parameters omit an array of arrays and do not measure it. Hints send it.
void TestLimits::hintsThatNestInArraysAreRefused()
{
    QJsonValue deep = QJsonArray{1};
    for (int i = 0; i < 30000; ++i)
        deep = QJsonArray{deep};
    IntentsInvoker invoker;
    Replies replies(invoker);
    invoker.invoke("X", {{Key, QJsonArray{QJsonObject{{Key, deep}}}}}, {});
    QTRY_COMPARE(replies.all, QStringList("{} 1 " + TooDeep));
}

/// Lets "Give" reply with \a count files.
void TestLimits::giveFiles(int count)
{
    QJsonArray files;
    for (int i = 0; i < count; ++i)
        files.append(file.fileName());
    given = {{"files", files}};
    RuntimeDispatcher::instance()->registerIntentOutputFiles("Give", {"files[*]"}, {});
}

void TestLimits::tooManyFilesAreRefused()
{
    giveFiles(CORVANE_MAX_DESCRIPTORS + 1);
    const QJsonObject hints{{"readFiles", QJsonArray{"files[*]"}}};
    IntentsInvoker invoker;
    Replies replies(invoker);
    invoker.invoke("X", hints, given);
    QTRY_COMPARE(replies.all, QStringList("{} 1 " + TooManyFiles));
    QVERIFY(peer.roundTrip());
    QCOMPARE(peer.calls(), QStringList());

    QCOMPARE(peer.call("HandleIntent", "('Give', @a{sv} {})").text,
             QString("org.freedesktop.DBus.Error.Failed (s) ('%1',)").arg(TooManyFiles));
    QCOMPARE(log->takeWarnings(), QStringList(QString("Failed to reply to an intent: \"%1\"").arg(TooManyFiles)));
    QVERIFY(peer.hasOwner("demo.instance1")); // the connection is open
}

void TestLimits::filesUpToTheLimitAreSent_data()
{
    QTest::addColumn<int>("count");

    for (const int count : {0, 1, CORVANE_MAX_DESCRIPTORS - 1, CORVANE_MAX_DESCRIPTORS})
        QTest::addRow("%d", count) << count;
}

void TestLimits::filesUpToTheLimitAreSent()
{
    QFETCH(int, count);

    giveFiles(count);
    const QJsonObject hints{{"readFiles", QJsonArray{"files[*]"}}};
    IntentsInvoker invoker;
    Replies replies(invoker);
    invoker.invoke("X", hints, given);
    QTRY_COMPARE(replies.all, QStringList("{} 0 "));
    QCOMPARE(peer.descriptors().size(), count);

    const auto reply = peer.call("HandleIntent", "('Give', @a{sv} {})");
    QVERIFY2(reply.text.startsWith("(a{sv}a{sv})"), qUtf8Printable(reply.text));
    QCOMPARE(reply.descriptors.size(), count);
}

void TestLimits::repliesOverTheLimitsAreRefused_data()
{
    callsOverTheLimitsAreRefused_data();
}

void TestLimits::repliesOverTheLimitsAreRefused()
{
    QFETCH(QJsonObject, object);
    QFETCH(QString, problem);

    given = object;
    QCOMPARE(peer.call("HandleIntent", "('Give', @a{sv} {})").text,
             QString("org.freedesktop.DBus.Error.Failed (s) ('%1',)").arg(problem));
    QCOMPARE(log->takeWarnings(), QStringList(QString("Failed to reply to an intent: \"%1\"").arg(problem)));

    given = {{Key, 1}};
    QVERIFY(peer.call("HandleIntent", "('Give', @a{sv} {})").text.startsWith("(a{sv}a{sv}) ({'n': <1.0>}"));
}

void TestLimits::nameWithNulIsRefused()
{
    IntentsInvoker invoker;
    Replies replies(invoker);
    invoker.invoke(QString("a") + QChar(0) + 'b', {}, {});
    QTRY_COMPARE(replies.all, QStringList("{} 1 " + HasNul));
}

void TestLimits::refusedCallCreatesNoFiles()
{
    const QString path = file.fileName() + ".new";
    const QJsonObject hints{{"writeFiles", QJsonArray{"file"}}};
    IntentsInvoker invoker;
    Replies replies(invoker);
    invoker.invoke("X", hints, {{"file", path}, {"text", QString(QChar(0))}});
    QTRY_COMPARE(replies.all, QStringList("{} 1 " + HasNul));
    QVERIFY(!QFile::exists(path));
}

void TestLimits::refusedReplyCreatesNoFiles()
{
    const QString path = file.fileName() + ".new";
    RuntimeDispatcher::instance()->registerIntentOutputFiles("Give", {}, {"file", QString(QChar(0))});
    given = {{"file", path}};
    QCOMPARE(peer.call("HandleIntent", "('Give', @a{sv} {})").text,
             QString("org.freedesktop.DBus.Error.Failed (s) ('%1',)").arg(HasNul));
    QCOMPARE(log->takeWarnings(), QStringList(QString("Failed to reply to an intent: \"%1\"").arg(HasNul)));
    QVERIFY(!QFile::exists(path));
}

QTEST_GUILESS_MAIN(TestLimits)
#include "tst_limits.moc"
