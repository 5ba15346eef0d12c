// SPDX-License-Identifier: BSD-3-Clause
// Compares "corvane check" with the effects of the library: the params that arrive, and the messages that it refuses.
#include "program.h"

#include <Corvane/intent_request.h>
#include <Corvane/intents_invoker.h>

#include <message_log.h>
#include <run_until.h>
#include <service_peer.h>
#include <under_valgrind.h>

#include <QtCore/QRandomGenerator>
#include <QtCore/QTemporaryDir>
#include <QtTest/QtTest>

using namespace Corvane;

namespace {

/// Returns a copy of the value without the part at this path, as the program prints it.
QJsonValue without(const QJsonValue &value, const QString &path)
{
    static const QRegularExpression step(QStringLiteral(R"re(\A(?:\.?([^.\[]+)|\[(\d+)\]|\[("(?:[^"\\]|\\.)*")\]))re"));
    const auto match = step.match(path);
    const QString rest = path.mid(match.capturedLength());
    if (!match.capturedView(2).isEmpty()) {
        QJsonArray array = value.toArray();
        const int index = match.captured(2).toInt();
        if (rest.isEmpty())
            array.removeAt(index);
        else
            array[index] = without(array.at(index), rest);
        return array;
    }
    const QString key =
        match.capturedView(1).isEmpty() ? fromJson(match.captured(3).toUtf8()).toString() : match.captured(1);
    QJsonObject object = value.toObject();
    if (rest.isEmpty())
        object.remove(key);
    else
        object[key] = without(object.value(key), rest);
    return object;
}

QJsonValue nested(const char *before, const char *after, int depth)
{
    return fromJson(QByteArray(before).repeated(depth) + "1" + QByteArray(after).repeated(depth));
}

QJsonValue randomValue(QRandomGenerator *random, int depth);

QString randomText(QRandomGenerator *random)
{
    static const QStringList texts{"a", "b", "", "*", "a.b", "a[0]", "]", "\"", "\\", QString(QChar(0)), "x;y"};
    // U+0000 is rare, because it hides the other effects.
    return texts.at(int(random->bounded(random->bounded(20) == 0 ? 11 : 9)));
}

QJsonObject randomObject(QRandomGenerator *random, int depth)
{
    QJsonObject object;
    for (quint32 i = random->bounded(4U); i > 0; --i)
        object.insert(randomText(random), randomValue(random, depth));
    return object;
}

QJsonValue randomValue(QRandomGenerator *random, int depth)
{
    switch (random->bounded(depth > 0 ? 8 : 4)) {
    case 0:
        return random->bounded(2) == 0 ? QJsonValue() : QJsonValue(true);
    case 1:
        return random->bounded(1000) / 8.0;
    case 2:
        return randomText(random);
    case 3:
        return false;
    case 4:
    case 5:
        return randomObject(random, depth - 1);
    default:
        break;
    }
    QJsonArray array;
    const bool isMixed = random->bounded(2) == 0;
    const QJsonValue first = randomValue(random, depth - 1);
    for (quint32 i = random->bounded(4U); i > 0; --i)
        array.append(isMixed ? randomValue(random, depth - 1) : first);
    return array;
}

} // namespace

class TestCheckAgrees : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void paramsArriveAsReported_data();
    void paramsArriveAsReported();
    void randomParamsArriveAsReported();
    void filesAreCountedAsReported_data();
    void filesAreCountedAsReported();

private:
    IntentRequest::Result send(const QJsonObject &hints, const QJsonObject &params)
    {
        IntentsInvoker invoker;
        const IntentRequest *request = invoker.request("Echo", hints, params);
        return runUntil([request] { return request->isFinished(); }) ? request->result() : IntentRequest::Result();
    }
    void compare(const QJsonObject &params);

    ServicePeer peer;
};

/// Compares the report with the fate of the params.
void TestCheckAgrees::compare(const QJsonObject &params)
{
    const QByteArray text = toJson(params).toUtf8();
    const Result check = corvane({"check", "--json"}, text);
    const QJsonArray problems = fromJson(check.output.toUtf8()).toObject().value("problems").toArray();
    bool isRefused = false;
    bool isChanged = false;
    QJsonValue expected = params;
    for (int i = problems.size() - 1; i >= 0; --i) { // backwards: the indices before an omitted element remain valid
        const QJsonObject problem = problems.at(i).toObject();
        const QString effect = problem.value("effect").toString();
        isRefused |= effect == "refused";
        isChanged |= effect == "changed";
        if (effect == "omitted")
            expected = without(expected, problem.value("path").toString());
    }
    MessageLog log;
    const IntentRequest::Result sent = send({}, params);
    log.takeWarnings(); // of omitted values
    if (isRefused) {
        QVERIFY2(sent.state == IntentRequest::Failed, text.constData());
    } else {
        QVERIFY2(sent.state == IntentRequest::Replied, text.constData());
        const bool isEqual = toJson(sent.reply) == toJson(expected);
        QVERIFY2(isEqual != isChanged, qPrintable(toJson(params) + " arrives as " + toJson(sent.reply)));
    }
}

void TestCheckAgrees::paramsArriveAsReported_data()
{
    QTest::addColumn<QJsonObject>("params");

    const auto row = [](const char *name, const QByteArray &text) { QTest::newRow(name) << fromJson(text).toObject(); };
    row("values", R"({"a": [1, 2.5], "b": {"c": [true, "x", []]}, "d": "é"})");
    row("nulls", R"({"a": {"b": null}, "c": null, "d": [1, null, {"e": null}]})");
    row("arrays of nulls", R"({"a": [null], "b": [[null]], "c": [1, [null]]})");
    row("arrays of arrays", R"({"a": [[]], "b": [{"c": [[1]]}], "d": [1, [[1]], {"e": [[1]]}]})");
    row("empty containers", R"({"a": [], "b": {}, "c": [{}], "d": [{}, {"e": 1}]})");
    row("texts with U+0000", R"({"a": "\u0000"})");
    row("U+0000 in omitted values", R"({"a\u0000": null, "b": [["\u0000"]]})");
    row("U+0000 in a key of an array", R"({"a": [{"\u0000": 1}]})");
    row("lone surrogates", R"({"a": ["x", "\ud800"]})");
    row("lone surrogate in a key", R"({"a": {"\udc00\ud800": 1}})");
    row("surrogate pair", R"({"a": "\ud83d\ude00"})");
    row("special keys", R"({"": null, "*": null, "a.b": {"c": null}, "a[0]": [1, null], "\"\\": null})");
    for (int depth = 19; depth <= 23; ++depth)
        QTest::addRow("%d objects", depth) << nested("{\"a\":", "}", depth).toObject();
    for (int depth = 28; depth <= 31; ++depth)
        QTest::addRow("%d mixed arrays", depth) << QJsonObject{{"a", nested("[\"\",", "]", depth)}};
    for (int depth = 14; depth <= 17; ++depth)
        QTest::addRow("%d arrays of objects", depth) << nested("{\"a\":[{\"b\":", "}]}", depth).toObject();
    for (const char *innermost : {"[]", "{}", "[1]", "[{}]", "[\"\", 1]", "{\"a\": null}", "[null]", "null"}) {
        for (int arrays = 0; arrays <= 3; ++arrays) { // 60 to 63 containers
            const QByteArray before =
                QByteArray("{\"a\":").repeated(20 - arrays) + QByteArray("{\"a\":[").repeated(arrays);
            const QByteArray after = QByteArray("]}").repeated(arrays) + QByteArray("}").repeated(20 - arrays);
            QTest::addRow("%s in %d containers", innermost, 60 + arrays)
                << fromJson(before + innermost + after).toObject();
        }
    }
}

void TestCheckAgrees::paramsArriveAsReported()
{
    QFETCH(QJsonObject, params);

    peer.echo();
    compare(params);
}

void TestCheckAgrees::randomParamsArriveAsReported()
{
    peer.echo();
    QRandomGenerator random(15);
    for (int i = underValgrind() ? 10 : 300; i > 0; --i) {
        compare(randomObject(&random, 4));
        if (QTest::currentTestFailed())
            return;
    }
}

void TestCheckAgrees::filesAreCountedAsReported_data()
{
    QTest::addColumn<int>("read");
    QTest::addColumn<int>("written");

    QTest::newRow("enough") << 10 << 6;
    QTest::newRow("too many to read") << 17 << 0;
    QTest::newRow("too many together") << 10 << 7;
}

void TestCheckAgrees::filesAreCountedAsReported()
{
    QFETCH(int, read);
    QFETCH(int, written);

    QTemporaryFile file;
    QVERIFY(file.open());
    QJsonArray readFiles;
    QJsonArray writtenFiles;
    for (int i = 0; i < read; ++i)
        readFiles.append(file.fileName());
    for (int i = 0; i < written; ++i)
        writtenFiles.append("file://" + file.fileName());
    const QJsonObject params{{"a", readFiles}, {"b", QJsonObject{{"c", writtenFiles}}}};
    peer.answer("(@a{sv} {},)");
    const IntentRequest::Result sent =
        send({{"readFiles", QJsonArray{"a[*]"}}, {"writeFiles", QJsonArray{"*.c[*]"}}}, params);
    const Result check =
        corvane({"check", "--read-files", "a[*]", "--write-files", "*.c[*]", "-"}, toJson(params).toUtf8());
    QCOMPARE(sent.state == IntentRequest::Replied, read + written <= 16);
    QCOMPARE(check.exitCode, sent.state == IntentRequest::Replied ? 0 : 4);
}

QTEST_GUILESS_MAIN(TestCheckAgrees)
#include "tst_check_agrees.moc"
