// SPDX-License-Identifier: BSD-3-Clause
// The text, category, function and file of each warning, as a message handler of the application receives them.
#include <Core/intent_uri.h>
#include <Core/json_path.h>
#include <Core/types.h>
#include <Corvane/file_sharing.h>
#include <Corvane/intents_invoker.h>
#include <Corvane/memory_pressure_p.h>
#include <Corvane/runtime_dispatcher.h>
#include <Corvane/task.h>
#include <Corvane/task_messaging.h>
#include <DBus/types.h>

#include <json.h>
#include <patience.h>
#include <plain_socket.h>
#include <received.h>
#include <service_peer.h>

#include <QtDBus/QDBusConnection>
#include <QtDBus/QDBusMessage>
#include <QtTest/QtTest>

#include <functional>

using namespace Corvane;

namespace {

struct Message
{
    QtMsgType type = QtInfoMsg;
    QString text;
    QString category;
    QString function;
    QString file;
};

QVector<Message> &messages()
{
    static QVector<Message> collected;
    return collected;
}

void collect(QtMsgType type, const QMessageLogContext &context, const QString &text)
{
    messages().append({type, text, QString::fromUtf8(context.category), QString::fromUtf8(context.function),
                       QString::fromUtf8(context.file)});
}

using Trigger = std::function<void()>;

} // namespace

Q_DECLARE_METATYPE(Trigger)

class TestWarnings : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void initTestCase();
    void contexts_data();
    void contexts();

private:
    ServicePeer peer;
    QTemporaryDir directory;
};

void TestWarnings::initTestCase()
{
    registerRecordTypes();
    QVERIFY(directory.isValid());
    for (const char *member : {"Subscribe", "GetAll"})
        peer.answerError("com.example.Error", "('the reason',)", member);
}

void TestWarnings::contexts_data()
{
    QTest::addColumn<Trigger>("trigger");
    QTest::addColumn<QString>("text");
    QTest::addColumn<QString>("function"); // for a lambda, a part of the name
    QTest::addColumn<QString>("file");

    const auto row = [](const char *text, const char *function, const char *file, const Trigger &trigger) {
        QTest::addRow("%s: %s", text, function)
            << trigger << QString::fromUtf8(text) << QString::fromUtf8(function) << QString::fromUtf8(file);
    };

    const char *const uris = "src/common/Core/intent_uri.cpp";
    const auto read = [](const char *uri) { return [uri] { Core::IntentUri::fromUri(QUrl(uri)); }; };
    const auto write = [](const char *params) {
        return [params] { IntentsInvoker::intentToUri("X", {}, fromJson(params).toObject()); };
    };
    row("Cannot encode strings with semicolons", "valueToString(", uris, write(R"({"a": ";"})"));
    row("Intent URI conversion does not support arrays or maps", "valueToString(", uris, write(R"({"a": []})"));
    row("Intent URI conversion does not support arrays or maps", "valueToString(", uris, write(R"({"a": {}})"));
    row("Intent URI with invalid value", "valueFromString(", uris, read("intent://?a=x#Intent;name=X;end"));
    row("Unknown intent value type: 'x'", "valueFromString(", uris, read("intent://?a=x.1#Intent;name=X;end"));
    row("Not an intent URI: QUrl(\"http://a\")", "Core::IntentUri::fromUri(const QUrl&)", uris, read("http://a"));
    row("Invalid intent URI: QUrl(\"intent://#Intent;name=X;;end\")", "Core::IntentUri::fromUri(const QUrl&)", uris,
        read("intent://#Intent;name=X;;end"));
    row("Invalid intent URI \"\"", "Core::IntentUri::fromUri(const QUrl&)", uris, read(""));

    const char *const paths = "src/common/Core/json_path.cpp";
    row("JSON path error: missing right bracket", "nextPathElement(", paths, [] { Core::JsonPath::value({}, "a[1"); });
    row("JSON path error: could not parse index \"x\"", "nextPathElement(", paths,
        [] { Core::JsonPath::expand(fromJson(R"({"a": [1]})").toObject(), "a[x]"); });
    row("JSON path error: missing right bracket", "nextPathElement(", paths, [] {
        QString path = "[";
        QString key;
        int index = 0;
        Core::JsonPath::nextPathElement(path, &key, &index);
    });

    const char *const arrayToVariant = "QVariant Core::Types::jsonArrayToVariant(const QJsonArray&)";
    row("JSON array of arrays are not supported", arrayToVariant, "src/common/Core/types.cpp",
        [] { Core::Types::jsonObjectToVariantMap(fromJson(R"({"a": [[1]]})").toObject()); });
    row("Unknown JSON value type", arrayToVariant, "src/common/Core/types.cpp",
        [] { Core::Types::jsonArrayToVariant({QJsonValue()}); });

    const char *const bus = "src/common/DBus/types.cpp";
    const char *const valueWriter = "QDBusArgument& operator<<(QDBusArgument&, const QJsonValue&)";
    const char *const arrayWriter = "QDBusArgument& operator<<(QDBusArgument&, const QJsonArray&)";
    const auto stream = [](const QJsonValue &value) {
        return [value] {
            QDBusArgument argument;
            argument << value;
        };
    };
    const auto invoke = [](const char *hints, const char *params) {
        return [hints, params] {
            IntentsInvoker invoker;
            invoker.invoke("X", fromJson(hints).toObject(), fromJson(params).toObject());
        };
    };
    row("Unknown JSON value type", valueWriter, bus, stream(QJsonValue(QJsonValue::Undefined)));
    row("Unknown JSON value type", valueWriter, bus, stream(fromJson(R"({"a": null})").toObject()));
    row("Unknown JSON value type", arrayWriter, bus, stream(QJsonArray{QJsonValue()}));
    row("JSON array of arrays are not supported", arrayWriter, bus, stream(QJsonArray{QJsonArray()}));
    row("Unknown JSON value type", valueWriter, bus, invoke("{}", R"({"a": null})"));
    row("Unknown JSON value type", arrayWriter, bus, invoke("{}", R"({"a": [null]})"));
    row("JSON array of arrays are not supported", arrayWriter, bus, invoke("{}", R"({"a": [[1]]})"));
    row("Unknown JSON value type", valueWriter, bus, invoke(R"({"a": null})", "{}"));
    row("Unknown JSON value type", arrayToVariant, "src/common/Core/types.cpp", invoke(R"({"a": [null]})", "{}"));
    row("Unsupported type:  \"(ii)\"", "const QDBusArgument& operator>>(const QDBusArgument&, QJsonValue&)", bus,
        [this] {
            QJsonValue value;
            received(peer, "((1, 2),)").value<QDBusArgument>() >> value;
        });
    row("Unsupported type:  \"(ii)\"", "const QDBusArgument& operator>>(const QDBusArgument&, QJsonValue&)", bus,
        [this] {
            QJsonArray array;
            received(peer, "([(1, 2)],)").value<QDBusArgument>() >> array;
        });
    row("Unsupported type:  \"(ii)\"", "const QDBusArgument& operator>>(const QDBusArgument&, QJsonValue&)", bus,
        [this] {
            QJsonObject object;
            received(peer, "({'a': <(1, 2)>},)").value<QDBusArgument>() >> object;
        });

    row("Failed to open file \"/nonexistent\"",
        "static void Corvane::FileSharing::exportFiles(const QJsonObject&, QVariantMap&)",
        "src/lib/Corvane/file_sharing.cpp", invoke(R"({"readFiles": ["f"]})", R"({"f": "/nonexistent"})"));

    row("The intent \"X\" has not been registered",
        "void Corvane::RuntimeDispatcherPrivate::registerIntentOutputFiles(const QString&, const QStringList&, const "
        "QStringList&)",
        "src/lib/Corvane/runtime_dispatcher.cpp",
        [] { RuntimeDispatcher::instance()->registerIntentOutputFiles("X", {}, {}); });

    const char *const busError = R"(QDBusError("com.example.Error", "the reason"))";
    const auto failed = [busError](const char *text) { return QByteArray(text) + ' ' + busError; };
    row(failed("MemoryPressure subscription failed:"),
        "Corvane::MemoryPressurePrivate::subscribe()::", "src/lib/Corvane/memory_pressure.cpp",
        [this] { (new MemoryPressurePrivate(nullptr))->setParent(this); });
    row(failed("Failed to get memory level:"),
        "Corvane::MemoryPressurePrivate::readLevel()::", "src/lib/Corvane/memory_pressure.cpp",
        [this] { (new MemoryPressurePrivate(nullptr))->setParent(this); });
    row(failed("Failed to get the Tasks interface properties"),
        "Corvane::TasksInterface::readStates()::", "src/lib/Corvane/tasks_interface.cpp", [] { Task("sync").stop(); });

    const char *const channel = "src/lib/Corvane/task_messaging.cpp";
    const QString path = directory.filePath("socket");
    row("Socket error \"QLocalSocket::connectToServer: Invalid name\"",
        "Corvane::TaskMessagingPrivate::setSocket(QLocalSocket*)::", channel, [] { TaskMessaging("/nonexistent"); });
    row("bool Corvane::TaskMessagingPrivate::sendMessage(const QJsonObject&) not connected",
        "bool Corvane::TaskMessagingPrivate::sendMessage(const QJsonObject&)", channel,
        [] { TaskMessaging("/nonexistent").sendMessage({}); });
    row("Insufficient data in the socket", "void Corvane::TaskMessagingPrivate::readMessages()", channel, [path] {
        const Descriptor listener(listeningSocket(path));
        TaskMessaging messaging(path);
        PlainSocket peerSocket(listener.get());
        QVERIFY(peerSocket.send(QByteArray(3, 0)));
        QTRY_COMPARE(messaging.state(), TaskMessaging::Unconnected);
        QVERIFY(QFile::remove(path));
    });
    row("TaskMessaging can handle only one connection at a time",
        "void Corvane::TaskMessagingPrivate::onNewConnection()", channel, [path] {
            TaskMessaging messaging(listeningSocket(path));
            PlainSocket first(path);
            QTRY_COMPARE(messaging.state(), TaskMessaging::Connected);
            PlainSocket second(path);
            QTRY_VERIFY(!messages().isEmpty());
        });
}

void TestWarnings::contexts()
{
    QFETCH(Trigger, trigger);
    QFETCH(QString, text);
    QFETCH(QString, function);
    QFETCH(QString, file);

    messages().clear();
    const QtMessageHandler previous = qInstallMessageHandler(collect);
    trigger();
    // Waits for warnings about replies. Other warnings have been logged already.
    const auto find = [&] {
        return std::find_if(messages().cbegin(), messages().cend(), [&](const Message &m) { return m.text == text; });
    };
    const bool isLogged = QTest::qWaitFor([&] { return find() != messages().cend(); }, Patience);
    qInstallMessageHandler(previous);
    QVERIFY2(isLogged, messages().isEmpty() ? "nothing was logged" : qPrintable(messages().last().text));
    const Message message = *find();
    QCOMPARE(message.type, text.startsWith("JSON path") ? QtDebugMsg : QtWarningMsg);
    QCOMPARE(message.category, QString("default"));
    QVERIFY2(function.endsWith(')') && !function.startsWith("Core::") ? message.function == function
                                                                      : message.function.contains(function),
             qPrintable(message.function));
    QVERIFY2(message.file.endsWith(file), qPrintable(message.file));
}

QTEST_GUILESS_MAIN(TestWarnings)
#include "tst_warnings.moc"
