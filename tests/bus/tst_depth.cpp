// SPDX-License-Identifier: BSD-3-Clause
// The maximum depth of payloads of each shape. A payload that both buses accept is sent; a deeper one is refused.
#include <Corvane/intents_invoker.h>
#include <Corvane/runtime_dispatcher.h>
#include <Corvane/task.h>

#include <message_log.h>
#include <patience.h>
#include <replies.h>
#include <service_peer.h>

#include <QtCore/QJsonArray>
#include <QtTest/QtTest>

#include <optional>

using namespace Corvane;

namespace {

const char TooDeep[] = "A message cannot nest more than 63 containers";
const char Delivered[] = "delivered";

enum Layer : int { Objects, MixedArrays, ArraysOfObjects };

/// Returns the innermost value inside \a depth layers. Mixed arrays are inside an object.
QJsonObject nested(int layer, int depth, QJsonValue innermost)
{
    for (int i = 0; i < depth; ++i) {
        if (layer == Objects)
            innermost = QJsonObject{{"n", innermost}};
        else if (layer == MixedArrays)
            innermost = QJsonArray{"x", innermost};
        else
            innermost = QJsonObject{{"n", QJsonArray{innermost}}};
    }
    return layer == MixedArrays ? QJsonObject{{"n", innermost}} : innermost.toObject();
}

} // namespace

class TestDepth : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void initTestCase();
    void init();
    void cleanup();
    void depthIsLimited_data();
    void depthIsLimited();

private:
    QString fateOfIntent(const QJsonObject &hints, const QJsonObject &params);
    QString fateOfReply(const QJsonObject &result);
    QString fateOfSchedule(const QJsonObject &schedule);
    QString fate(const Error &error);

    ServicePeer peer;
    QJsonObject given; ///< The reply of the handler of "Give".
    std::optional<MessageLog> log;
};

void TestDepth::initTestCase()
{
    RuntimeDispatcher::instance()->registerIntent("Give",
                                                  [this](const QJsonObject &, const auto &reply) { reply(given); });
    QVERIFY(!RuntimeDispatcher::instance()->startService());
}

void TestDepth::init()
{
    log.emplace();
}

void TestDepth::cleanup()
{
    log.reset();
}

void TestDepth::depthIsLimited_data()
{
    QTest::addColumn<int>("layer");
    QTest::addColumn<QJsonValue>("innermost");
    // The maximum numbers of layers.
    QTest::addColumn<int>("inParams"); // also in replies
    QTest::addColumn<int>("inHints");
    QTest::addColumn<int>("inSchedules");

    const auto row = [](const char *tag, Layer layer, const QJsonValue &innermost, int inParams, int inHints,
                        int inSchedules) {
        QTest::newRow(tag) << int(layer) << innermost << inParams << inHints << inSchedules;
    };
    row("objects around a number", Objects, 1, 21, 21, 20);
    row("objects around {}", Objects, QJsonObject(), 20, 20, 19);
    row("objects around []", Objects, QJsonArray(), 20, 20, 19);
    row("objects around [1.0]", Objects, QJsonArray{1}, 20, 20, 19);
    row("objects around [\"s\"]", Objects, QJsonArray{"s"}, 20, 20, 19);
    row("objects around [true]", Objects, QJsonArray{true}, 20, 20, 19);
    row("mixed arrays around a number", MixedArrays, 1, 30, 30, 28);
    row("mixed arrays around []", MixedArrays, QJsonArray(), 29, 29, 28);
    // In hints, an array of objects inside another array is a mixed array.
    row("arrays of objects around {}", ArraysOfObjects, QJsonObject(), 15, 12, 14);
    row("arrays of objects around {\"a\":1}", ArraysOfObjects, QJsonObject{{"a", 1}}, 15, 12, 14);
    row("arrays of objects around {\"a\":[1]}", ArraysOfObjects, QJsonObject{{"a", QJsonArray{1}}}, 14, 11, 14);
}

void TestDepth::depthIsLimited()
{
    QFETCH(int, layer);
    QFETCH(QJsonValue, innermost);
    QFETCH(int, inParams);
    QFETCH(int, inHints);
    QFETCH(int, inSchedules);

    for (const int more : {-1, 0, 1}) {
        const QString expected = more <= 0 ? Delivered : TooDeep;
        QCOMPARE(fateOfIntent({}, nested(layer, inParams + more, innermost)), expected);
        QCOMPARE(fateOfIntent(nested(layer, inHints + more, innermost), {}), expected);
        QCOMPARE(fateOfReply(nested(layer, inParams + more, innermost)), expected);
        QCOMPARE(fateOfSchedule(nested(layer, inSchedules + more, innermost)), expected);
    }
}

QString TestDepth::fateOfIntent(const QJsonObject &hints, const QJsonObject &params)
{
    IntentsInvoker invoker;
    std::optional<Error> outcome;
    connect(&invoker, &IntentsInvoker::replyReceived, this,
            [&outcome](const QJsonObject &, const Error &error) { outcome = error; });
    invoker.invoke("X", hints, params);
    if (!QTest::qWaitFor([&outcome] { return outcome.has_value(); }, Patience))
        return "no outcome";
    return fate(*outcome);
}

QString TestDepth::fateOfSchedule(const QJsonObject &schedule)
{
    Task task("sync");
    task.withSchedule(QVariantMap{{"n", QVariant::fromValue(schedule["n"])}});
    peer.takeCalls();
    std::optional<Error> outcome;
    task.start([&outcome](const Error &error) { outcome = error; });
    if (!QTest::qWaitFor([&outcome] { return outcome.has_value(); }, Patience))
        return "no outcome";
    return fate(*outcome);
}

/// Returns "delivered" or the reason of the refusal. Returns another text if the outcome is wrong.
QString TestDepth::fate(const Error &error)
{
    if (!peer.roundTrip())
        return "the connection is lost";
    const bool isDelivered = !peer.takeCalls().filter(QRegularExpression("^(InvokeIntent|Start) ")).isEmpty();
    if (isDelivered == bool(error))
        return "delivered and failed: " + error.message();
    return isDelivered ? Delivered : error.message();
}

QString TestDepth::fateOfReply(const QJsonObject &result)
{
    given = result;
    const QString text = peer.call("HandleIntent", "('Give', @a{sv} {})").text;
    if (!peer.roundTrip())
        return "the connection is lost";
    if (text.startsWith("(a{sv}a{sv}) "))
        return Delivered;
    if (text != QString("org.freedesktop.DBus.Error.Failed (s) ('%1',)").arg(TooDeep))
        return text;
    if (log->takeWarnings() != QStringList(QString("Failed to reply to an intent: \"%1\"").arg(TooDeep)))
        return "the refusal is not logged";
    return TooDeep;
}

QTEST_GUILESS_MAIN(TestDepth)
#include "tst_depth.moc"
