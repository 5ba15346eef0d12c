// SPDX-License-Identifier: BSD-3-Clause
// The pages of docs: the wire, the limits, and the symptoms.
#include <Corvane/intents_invoker.h>
#include <Corvane/intents_invoker_p.h>
#include <Corvane/runtime_dispatcher.h>
#include <Corvane/task_messaging.h>
#include <Corvane/task_process.h>
#include <DBus/message_limits.h>
#include <DBus/message_meter.h>
#include <DBus/types.h>

#include <introspection.h>
#include <json.h>
#include <patience.h>
#include <run_until.h>
#include <service_peer.h>

#include <QtCore/QFile>
#include <QtCore/QProcess>
#include <QtCore/QRegularExpression>
#include <QtCore/QTemporaryDir>
#include <QtCore/QtEndian>
#include <QtNetwork/QLocalServer>
#include <QtNetwork/QLocalSocket>
#include <QtTest/QtTest>

using namespace Corvane;

namespace {

const QString Root = QStringLiteral(CORVANE_SERVICE_ROOT);

QString contentOf(const QString &path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        qFatal("%s cannot be read", qUtf8Printable(path));
    return QString::fromUtf8(file.readAll());
}

QString page(const QString &name)
{
    return contentOf(QString(CORVANE_DOCUMENTS "/%1.md").arg(name)).replace("org.halvir.Corvane", Root);
}

/// Returns the part of a page from a heading to the next heading of any level.
QString section(const QString &text, const QString &heading)
{
    const int begin = text.indexOf('\n' + heading + '\n');
    if (begin < 0)
        qFatal("There is no heading \"%s\"", qUtf8Printable(heading));
    static const QRegularExpression anyHeading("\n##+ ");
    const int end = text.indexOf(anyHeading, begin + 1);
    return text.mid(begin, end < 0 ? -1 : end - begin);
}

/// Returns the lines of the n-th text block.
QStringList block(const QString &text, int index)
{
    return text.section("```text\n", index + 1, index + 1).section("\n```", 0, 0).split('\n');
}

/// Returns the cells of the rows of the table with this head.
QVector<QStringList> table(const QString &text, const QString &head)
{
    QVector<QStringList> rows;
    const QStringList lines = text.section(head + '\n', 1, 1).split('\n');
    for (int i = 1; i < lines.size() && lines.at(i).startsWith("| "); ++i) { // 0: the line below the head
        QStringList cells = lines.at(i).split(" | ");
        cells.first().remove(0, 2);
        cells.last().chop(2);
        for (QString &cell : cells) {
            if (cell.startsWith('`') && cell.endsWith('`'))
                cell = cell.mid(1, cell.size() - 2);
        }
        rows << cells;
    }
    return rows;
}

/// Returns the bytes of lines such as "05 00  a comment".
QByteArray bytes(const QStringList &lines)
{
    QByteArray result;
    for (const QString &line : lines)
        result += QByteArray::fromHex(line.section("  ", 0, 0).toLatin1());
    return result;
}

quint32 number(const QByteArray &message, int offset)
{
    return qFromLittleEndian<quint32>(message.constData() + offset);
}

/// Returns the body of the first message with this member in the little-endian output of a bus monitor.
QByteArray bodyOf(const QByteArray &member, const QByteArray &messages)
{
    int begin = 0;
    while (messages.size() - begin >= 16) {
        const int bodySize = int(number(messages, begin + 4));
        const int headerSize = (16 + int(number(messages, begin + 12)) + 7) / 8 * 8;
        if (messages.size() - begin < headerSize + bodySize)
            break;
        if (messages.mid(begin, headerSize).contains(member))
            return messages.mid(begin + headerSize, bodySize);
        begin += headerSize + bodySize;
    }
    return {};
}

} // namespace

class TestDocumentation : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void everyMemberIsListed_data();
    void everyMemberIsListed();
    void everyKeyIsNamed_data();
    void everyKeyIsNamed();
    void jsonIsSentAsDocumented_data();
    void jsonIsSentAsDocumented();
    void valuesAreReadAsDocumented_data();
    void valuesAreReadAsDocumented();
    void intentOnTheWireIsReal();
    void frameIsReal();
    void limitsAreThoseOfTheLibrary();
    void everySymptomIsReproduced_data();
    void everySymptomIsReproduced();

private:
    const QString m_service = page("service");
    ServicePeer peer;
};

void TestDocumentation::everyMemberIsListed_data()
{
    QTest::addColumn<QString>("interface");

    for (const char *name : {"IntentHandler1", "Intents1", "Lifecycle1", "MemoryPressure1", "Tasks1"})
        QTest::newRow(name) << name;
}

void TestDocumentation::everyMemberIsListed()
{
    QFETCH(QString, interface);

    QStringList members = documentedMembersOf(Root + '.' + interface);
    for (QString &member : members) {
        if (member.startsWith("property "))
            member.remove("()");
    }
    QCOMPARE(block(section(m_service, "### " + interface), 0), members);
}

void TestDocumentation::everyKeyIsNamed_data()
{
    QTest::addColumn<QString>("key");

    static const QRegularExpression comment("<!--.*?-->", QRegularExpression::DotMatchesEverythingOption);
    static const QRegularExpression word("\"(\\w+)\"");
    QSet<QString> keys;
    for (const char *name : {"IntentHandler1", "Intents1", "Lifecycle1", "MemoryPressure1", "Tasks1"}) {
        const QString xml = contentOf(QString(CORVANE_DBUS_DIR "/%1.%2.xml").arg(Root, name));
        auto comments = comment.globalMatch(xml);
        while (comments.hasNext()) {
            auto words = word.globalMatch(comments.next().captured());
            while (words.hasNext())
                keys << words.next().captured(1);
        }
    }
    QVERIFY(keys.contains("RunningTime"));
    for (const QString &key : qAsConst(keys))
        QTest::newRow(qUtf8Printable(key)) << key;
}

void TestDocumentation::everyKeyIsNamed()
{
    QFETCH(QString, key);

    QVERIFY(m_service.contains('`' + key + '`') || m_service.contains('"' + key + '"'));
}

void TestDocumentation::jsonIsSentAsDocumented_data()
{
    QTest::addColumn<QByteArray>("json");
    QTest::addColumn<QString>("signature");
    QTest::addColumn<QString>("sent");

    const auto rows = table(m_service, "| JSON | Type | On the bus |");
    QCOMPARE(rows.size(), 11);
    for (const QStringList &row : rows)
        QTest::newRow(qUtf8Printable(row.at(0))) << row.at(0).toUtf8() << row.at(1) << row.at(2);
}

void TestDocumentation::jsonIsSentAsDocumented()
{
    QFETCH(QByteArray, json);
    QFETCH(QString, signature);
    QFETCH(QString, sent);

    registerRecordTypes();
    const QJsonValue value = fromJson(json);
    QDBusArgument argument;
    argument << value;
    QCOMPARE(argument.currentSignature(), signature);

    peer.takeCalls();
    IntentsInvoker invoker;
    invoker.invoke("X", {{"v", value}}, {{"v", value}});
    QTRY_COMPARE(peer.calls().size(), 1);
    QCOMPARE(peer.calls(),
             QStringList(QString("InvokeIntent (sa{sv}a{sv}) ('X', {'v': <%1>}, {'v': <%1>})").arg(sent)));
}

void TestDocumentation::valuesAreReadAsDocumented_data()
{
    QTest::addColumn<QString>("value");
    QTest::addColumn<QString>("json");

    const auto rows = table(m_service, "| On the bus | JSON |");
    QCOMPARE(rows.size(), 12);
    for (const QStringList &row : rows)
        QTest::newRow(qUtf8Printable(row.at(0))) << row.at(0) << row.at(1);
}

void TestDocumentation::valuesAreReadAsDocumented()
{
    QFETCH(QString, value);
    QFETCH(QString, json);

    RuntimeDispatcher *dispatcher = RuntimeDispatcher::instance();
    QVERIFY(!dispatcher->startService());
    QJsonValue received = QJsonValue::Undefined;
    dispatcher->registerIntent("X", [&received](const QJsonObject &params, const auto &reply) {
        received = params.value("v");
        reply({});
    });
    peer.call("HandleIntent", QString("('X', {'v': <%1>})").arg(value));
    QCOMPARE(toJson(received), json);
    dispatcher->unregisterIntent("X");
}

void TestDocumentation::intentOnTheWireIsReal()
{
    if (QSysInfo::ByteOrder != QSysInfo::LittleEndian) {
        QTest::qSkip("The page shows a little-endian message", __FILE__,
                     __LINE__); // in QSKIP, Clang misses an argument
        return;
    }
    const QString text = section(m_service, "## An intent on the wire");
    const QJsonObject params{{"file", "/etc/os-release"}, {"name", "World"}};
    const QJsonObject hints{{"readFiles", QJsonArray{"file"}}};
    const QString prose = text.simplified();
    QVERIFY(prose.contains('`' + toJson(params).replace("\":", "\": ").replace(",\"", ", \"") + '`'));
    QVERIFY(prose.contains('`' + toJson(hints).replace("\":", "\": ") + '`'));

    QProcess monitor;
    monitor.start("dbus-monitor", {"--session", "--binary"});
    QByteArray messages;
    const auto hasRead = [&monitor, &messages](const QByteArray &member) {
        messages += monitor.readAllStandardOutput();
        return member.isEmpty() ? !messages.isEmpty() : !bodyOf(member, messages).isNull();
    };
    QVERIFY(runUntil([&hasRead] { return hasRead({}); })); // the messages to the new monitor
    peer.takeCalls();
    IntentsInvoker invoker;
    invoker.invoke("Greet", hints, params);
    QVERIFY(runUntil([&hasRead] { return hasRead("InvokeIntent"); }));
    monitor.kill();
    QVERIFY(monitor.waitForFinished(Patience));

    QTRY_COMPARE(peer.calls().size(), 1);
    QCOMPARE(peer.calls(), block(text, 0));
    QCOMPARE(bodyOf("InvokeIntent", messages).toHex(' '), bytes(block(text, 1)).toHex(' '));
    // The handler gets the name and the params.
    const QString sent = peer.calls().constFirst();
    const QString start = "InvokeIntent (sa{sv}a{sv}) ('Greet', {";
    QVERIFY(sent.startsWith(start));
    QCOMPARE(block(text, 2), QStringList("HandleIntent (sa{sv}) ('Greet', " + sent.mid(sent.indexOf("}, {") + 3)));
}

void TestDocumentation::frameIsReal()
{
    const QString text = section(m_service, "## The socket of a task");
    QVERIFY(text.contains("The message `{\"a\":1}`:"));

    const QTemporaryDir directory;
    QLocalServer server;
    QVERIFY(server.listen(directory.filePath("socket")));
    TaskMessaging application(server.fullServerName());
    QVERIFY(application.sendMessage({{"a", 1}}));
    QTRY_VERIFY(server.hasPendingConnections());
    QLocalSocket *task = server.nextPendingConnection();
    QByteArray received;
    QVERIFY(runUntil([&] { return (received += task->readAll()).size() >= 11; }));
    QCOMPARE(received.toHex(' '), bytes(block(text, 0)).toHex(' '));
}

void TestDocumentation::limitsAreThoseOfTheLibrary()
{
    const QString limits = page("limits");
    const QString service = section(m_service, "## Limits");
    const auto problemOf = [](const auto &...values) {
        MessageMeter meter;
        (meter.add(values), ...);
        return meter.problem();
    };
    // The copies of a string share their memory.
    const QStringList sixtyMegabytes = QVector<QString>(60 * 1024, QString(1024 - 5, 'x')).toList();
    const QString array = problemOf(sixtyMegabytes + sixtyMegabytes);
    const QString message = problemOf(sixtyMegabytes, sixtyMegabytes, sixtyMegabytes);
    const QString text = problemOf(QString(QChar(QChar::Null)));
    QVERIFY(problemOf(sixtyMegabytes).isEmpty());
    for (const QString &problem : {array, message, text, QString(TooDeep),
                                   QString("A message cannot carry more than %1 files").arg(CORVANE_MAX_DESCRIPTORS)}) {
        QVERIFY(!problem.isEmpty());
        QVERIFY2(limits.contains("| `" + problem + "` |"), qUtf8Printable(problem));
        static const QRegularExpression number("\\d+( MiB)?");
        const QString value = number.match(problem).captured();
        QVERIFY2(problem == text || service.contains(QRegularExpression("\\| " + value + "\\b")),
                 qUtf8Printable(value));
    }

    const int timeout = IntentsInterface().timeout();
    const QString seconds = QString::number(timeout / 1000.0);
    const QString prose = m_service.simplified();
    QVERIFY(limits.contains(
        QString(" after %1 milliseconds (%2 seconds").arg(QLocale(QLocale::English).toString(timeout), seconds)));
    QVERIFY(prose.contains(QString(" end after %1 seconds").arg(seconds)));
    QVERIFY(prose.contains(QString("up to %1 seconds").arg(TaskProcess::MaximumFinishTime.count())));
    QVERIFY(page("troubleshooting").simplified().contains(QString(" gives up after %1 seconds").arg(seconds)));
}

void TestDocumentation::everySymptomIsReproduced_data()
{
    QTest::addColumn<QString>("heading");

    const QStringList lines = page("troubleshooting").split('\n');
    for (const QString &line : lines) {
        if (line.startsWith("### "))
            QTest::newRow(qUtf8Printable(line)) << line;
    }
}

// tests/guides runs the commands of the page.
void TestDocumentation::everySymptomIsReproduced()
{
    QFETCH(QString, heading);

    QVERIFY(section(page("troubleshooting"), heading).contains("\n```console\n$ "));
}

QTEST_GUILESS_MAIN(TestDocumentation)
#include "tst_documentation.moc"
