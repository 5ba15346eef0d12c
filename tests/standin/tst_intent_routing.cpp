// SPDX-License-Identifier: BSD-3-Clause
// Runs as the command of corvane-standin, with the applications of tests/standin/applications.
#include <introspection.h>
#include <patience.h>
#include <run_until.h>
#include <service_peer.h>

#include <QtCore/QDir>
#include <QtTest/QtTest>

#include <unistd.h>

namespace {

const QString Root = QStringLiteral(CORVANE_SERVICE_ROOT);
const QString Intents = Root + QStringLiteral(".Intents1");
const QString InvokeIntent = QStringLiteral("InvokeIntent");

QString serviceError(const char *name, const QString &reason)
{
    return QString("%1.Error.%2 (s) ('%3',)").arg(Root, name, reason);
}

int descriptorsOfStandIn()
{
    return QDir(QString("/proc/%1/fd").arg(::getppid())).entryList(QDir::AllEntries | QDir::System).size();
}

} // namespace

class TestIntentRouting : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void valuesArriveUnchanged_data();
    void valuesArriveUnchanged();
    void callsKeepTheirOrderWhileTheApplicationStarts();
    void applicationReceivesItsIdentity();
    void commandHasNoIdentity();
    void everyInstanceHasItsOwnName();
    void failuresAreReported_data();
    void failuresAreReported();
    void textOfTheHandlerIsForwarded();
    void endOfTheHandlerIsReported();
    void callerMayDieBeforeItsReply();
    void descriptorsAreClosed_data();
    void descriptorsAreClosed();
    void descriptorsInParamsAreRefused_data();
    void descriptorsInParamsAreRefused();
    void undocumentedCallsAreRefused_data();
    void undocumentedCallsAreRefused();
    void interfaceAgreesWithItsDocumentation();
    void nothingCanBeActivated();

private:
    ServicePeer::Reply call(const QString &member, const QString &body, QJsonObject more = {})
    {
        more.insert("destination", Root);
        more.insert("path", objectPath());
        if (!more.contains("interface"))
            more.insert("interface", Intents);
        return peer.call(member, body, more);
    }
    int beginInvoke(const QString &intent, const QString &params)
    {
        return peer.beginCall(InvokeIntent, QString("('%1', @a{sv} {}, %2)").arg(intent, params),
                              {{"destination", Root}, {"path", objectPath()}, {"interface", Intents}});
    }
    QString invoke(const QString &intent, const QString &params = "@a{sv} {}")
    {
        return peer.finishCall(beginInvoke(intent, params)).text;
    }
    static QString objectPath() { return '/' + QString(Intents).replace('.', '/'); }

    ServicePeer peer;
};

void TestIntentRouting::valuesArriveUnchanged_data()
{
    QTest::addColumn<QString>("params");

    QTest::newRow("empty") << "@a{sv} {}";
    QTest::newRow("of JSON") << "{'b': <true>, 'd': <1.5>, 's': <'text'>, 'o': <{'x': <1.0>}>}";
    QTest::newRow("integers") << "{'i': <3>, 'n': <int16 -3>, 'q': <uint16 3>, 't': <uint64 3>, 'u': <uint32 3>, 'x': "
                                 "<int64 -3>, 'y': <byte 0x03>}";
    QTest::newRow("names") << "{'g': <signature 'a{sv}'>, 'o': <objectpath '/a/b'>}";
    QTest::newRow("arrays") << "{'ab': <[true, false]>, 'as': <['a', 'b']>, 'av': <[<1>, <'x'>]>, 'ay': <b'bytes'>}";
    QTest::newRow("empty arrays") << "{'ab': <@ab []>, 'as': <@as []>, 'av': <@av []>, 'aas': <@aas []>}";
    QTest::newRow("structures") << "{'a': <[(1, 'x'), (2, 'y')]>, 's': <(1, (2.0, 'x'))>}";
    QTest::newRow("maps") << "{'ais': <{1: 'x'}>, 'aaasv': <[{'x': <1>}]>}";
    QTest::newRow("variant in a variant") << "{'v': <<<1>>>}";
    QTest::newRow("any text") << QString::fromUtf8("{'ключ \"\\\\': <'日本\\n\\t😀'>}");
}

void TestIntentRouting::valuesArriveUnchanged()
{
    QFETCH(QString, params);

    QCOMPARE(invoke("Echo", params), QString("(a{sv}) (%1,)").arg(params));
}

void TestIntentRouting::callsKeepTheirOrderWhileTheApplicationStarts()
{
    QVector<int> calls;
    for (int i = 0; i < 50; ++i)
        calls << beginInvoke("Count", QString("{'i': <%1>}").arg(i));
    for (int i = 0; i < 50; ++i) {
        const QString text = peer.finishCall(calls.at(i)).text;
        QVERIFY2(text.contains(QString("{\\'i\\': <%1>}").arg(i)) || text.contains(QString("{'i': <%1>}").arg(i)),
                 qUtf8Printable(text));
        QVERIFY2(text.contains(QString("'before': <%1>").arg(i)), qUtf8Printable(text));
    }
}

void TestIntentRouting::applicationReceivesItsIdentity()
{
    // The environment of the stand-in is not passed on.
    QCOMPARE(QString::fromUtf8(qgetenv("HALVIR_OTHER")), QString("kept"));
    const QString text = invoke("Tell");
    const QString expected = "'environment': <{'HALVIR_APP_ID': <'tell'>, 'HALVIR_APP_INSTANCE_ID': "
                             "<'tell.instance1'>, 'HALVIR_OTHER': <'kept'>}>";
    const QString reordered = "'environment': <{'HALVIR_OTHER': <'kept'>, 'HALVIR_APP_ID': <'tell'>, "
                              "'HALVIR_APP_INSTANCE_ID': <'tell.instance1'>}>";
    QVERIFY2(text.contains(expected) || text.contains(reordered), qUtf8Printable(text));
}

void TestIntentRouting::commandHasNoIdentity()
{
    const QStringList names = QProcessEnvironment::systemEnvironment().keys().filter("HALVIR_");
    QCOMPARE(names, QStringList("HALVIR_OTHER"));
}

void TestIntentRouting::everyInstanceHasItsOwnName()
{
    // The second call may come while the first instance is ending.
    for (int i = 1; i <= 5; ++i) {
        QCOMPARE(invoke("Once"), QString("(a{sv}) ({'instance': <'once.instance%1'>},)").arg(i));
        QTRY_VERIFY(!peer.hasOwner(QString("once.instance%1").arg(i)));
    }
}

void TestIntentRouting::failuresAreReported_data()
{
    QTest::addColumn<QString>("intent");
    QTest::addColumn<QString>("error");

    QTest::newRow("no handler") << "Nothing" << serviceError("HandlerNotFound", "No application handles \"Nothing\"");
    QTest::newRow("no name") << "" << serviceError("HandlerNotFound", "No application handles \"\"");
    QTest::newRow("other case") << "echo"
                                << serviceError("HandlerNotFound",
                                                "No application handles \"echo\" (a manifest has the intent \"Echo\")");
    QTest::newRow("error") << "Fail" << serviceError("HandlerFailed", "fail.instance1: the reason");
    QTest::newRow("wrong reply")
        << "Misspell"
        << serviceError("HandlerFailed",
                        "misspell.instance1: The reply should have the signature a{sv}a{sv}, and has \"s\"");
    QTest::newRow("no program")
        << "Absent"
        << serviceError("ApplicationNotRunning",
                        "absent.instance1 cannot be started: /nonexistent/program: No such file or directory");
    QTest::newRow("ends at once") << "Exit"
                                  << serviceError("ApplicationNotRunning", "exit.instance1 has ended with exit code 3");
    QTest::newRow("descriptor in the reply")
        << "Smuggle"
        << serviceError("HandlerFailed", "smuggle.instance1: Descriptors belong in the second map of the reply");
    QTest::newRow("descriptor that is none")
        << "Pretend"
        << serviceError("HandlerFailed", "pretend.instance1: Descriptors belong in the second map of the reply");
}

void TestIntentRouting::failuresAreReported()
{
    QFETCH(QString, intent);
    QFETCH(QString, error);

    QString text = invoke(intent);
    QCOMPARE(text.replace("\\\"", "\""), error);
    QCOMPARE(invoke("Echo"), QString("(a{sv}) (@a{sv} {},)"));
}

void TestIntentRouting::textOfTheHandlerIsForwarded()
{
    const QString params = QString("{'error': <'%1.Error.HandlerFailed'>}").arg(CORVANE_SERVICE_ROOT);
    QCOMPARE(invoke("Fail", params), serviceError("HandlerFailed", "the reason"));
}

void TestIntentRouting::endOfTheHandlerIsReported()
{
    const QString text = invoke("Crash"); // ends with the text of the bus
    QVERIFY2(text.startsWith(serviceError("HandlerFailed", "crash.instance1: ").chopped(3)), qUtf8Printable(text));
    QCOMPARE(invoke("Echo"), "(a{sv}) (@a{sv} {},)");
}

void TestIntentRouting::callerMayDieBeforeItsReply()
{
    for (int i = 0; i < 100; ++i)
        beginInvoke("Echo", QString("{'n': <%1.0>}").arg(i));
    beginInvoke("Crash", "@a{sv} {}");
    invoke("Nothing"); // its reply arrives after the earlier ones
    peer.kill();
    peer.start();
    QCOMPARE(invoke("Echo", "{'next': <true>}"), QString("(a{sv}) ({'next': <true>},)"));
}

void TestIntentRouting::descriptorsAreClosed_data()
{
    QTest::addColumn<QString>("body");
    QTest::addColumn<int>("files");

    QTest::newRow("hints") << "('Echo', {'readFiles': <['x']>, 'readFds': <[@h 0, 1, 2, 3, 4, 5, 6, 7]>, 'writeFds': "
                              "<[@h 8, 9, 10, 11, 12, 13, 14, 15]>}, @a{sv} {})"
                           << 16;
    QTest::newRow("odd hints") << "('Echo', {'readFds': <@h 0>, 'writeFds': <'x'>, 'more': <[@h 1]>}, @a{sv} {})" << 2;
    QTest::newRow("params") << "('Echo', @a{sv} {}, {'x': <@h 0>, 'y': <[@h 1]>, 'z': <{'d': <(@h 2, 3)>}>})" << 3;
    for (const char *value : {"[1, 2, 3, 4, 5, 6, 7]", "[uint64 0, 1]", "[0.0, 1.0]", "[byte 0x00]", "[<1>]",
                              "[(1, 2)]", "[[@h 0]]", "{'a': <1>}", "['x']", "true", "<@h 0>", "@ah []"})
        QTest::addRow("descriptors that are %s", value)
            << QString("('Echo', {'readFds': <%1>, 'writeFds': <%1>}, @a{sv} {})").arg(value) << 1;
    QTest::newRow("intent without a handler") << "('Nothing', {'readFds': <[@h 0]>}, {'x': <@h 1>})" << 2;
    QTest::newRow("reply") << "('Files', @a{sv} {}, @a{sv} {})" << 0;
    QTest::newRow("reply of odd descriptors") << "('Disguise', @a{sv} {}, @a{sv} {})" << 0;
    QTest::newRow("reply of another kind") << "('Smuggle', @a{sv} {}, @a{sv} {})" << 0;
}

void TestIntentRouting::descriptorsAreClosed()
{
    QFETCH(QString, body);
    QFETCH(int, files);

    QJsonArray names;
    for (int i = 0; i < files; ++i)
        names.append("/dev/null");
    QJsonObject more{{"files", names}};
    call(InvokeIntent, body, more); // starts the application
    const int before = descriptorsOfStandIn();
    more.insert("repeat", 20); // in batches, because descriptors in flight count towards the limit of the process
    for (int i = 0; i < 5; ++i) {
        const auto reply = call(InvokeIntent, body, more);
        QCOMPARE(reply.counts.size(), 1); // all replies are equal
    }
    // During the first count, the stand-in may still have had descriptors of the first call open. It is enough if the
    // condition is true once: valgrind itself opens files from time to time.
    QVERIFY2(runUntil([before] { return descriptorsOfStandIn() <= before; }),
             qPrintable(QString("%1 descriptors, before %2").arg(descriptorsOfStandIn()).arg(before)));
}

void TestIntentRouting::descriptorsInParamsAreRefused_data()
{
    QTest::addColumn<QString>("params");

    QTest::newRow("as a value") << "{'x': <@h 0>}";
    QTest::newRow("in an array") << "{'x': <[@h 0]>}";
    QTest::newRow("in a structure") << "{'x': <(1, @h 0)>}";
    QTest::newRow("in a map") << "{'x': <{1: @h 0}>}";
    QTest::newRow("as a key") << "{'x': <{@h 0: 1}>}";
    QTest::newRow("in variants") << "{'x': <[<'text'>, <<{'a': <[(@h 0, 'x')]>}>>]>}";
}

void TestIntentRouting::descriptorsInParamsAreRefused()
{
    QFETCH(QString, params);

    for (const QJsonArray &files : {QJsonArray{"/dev/null"}, QJsonArray()}) { // with and without a descriptor
        const auto reply = call(InvokeIntent, QString("('Echo', @a{sv} {}, %1)").arg(params), {{"files", files}});
        QCOMPARE(reply.text,
                 QString("org.freedesktop.DBus.Error.InvalidArgs (s) ('Descriptors belong in the hints',)"));
    }
}

void TestIntentRouting::undocumentedCallsAreRefused_data()
{
    QTest::addColumn<QString>("member");
    QTest::addColumn<QString>("body");

    QTest::newRow("another member") << "Invoke"
                                    << "('Echo', @a{sv} {}, @a{sv} {})";
    QTest::newRow("no params") << InvokeIntent << "('Echo', @a{sv} {})";
    QTest::newRow("hints of another type") << InvokeIntent << "('Echo', {'a': 'b'}, @a{sv} {})";
    QTest::newRow("method of QObject") << "deleteLater"
                                       << "()";
}

void TestIntentRouting::undocumentedCallsAreRefused()
{
    QFETCH(QString, member);
    QFETCH(QString, body);

    const QString text = call(member, body).text;
    QVERIFY2(text.startsWith("org.freedesktop.DBus.Error.UnknownMethod"), qUtf8Printable(text));
}

void TestIntentRouting::interfaceAgreesWithItsDocumentation()
{
    const QString xml =
        introspectionIn(call("Introspect", {}, {{"interface", "org.freedesktop.DBus.Introspectable"}}).text);
    const QStringList expected{
        "method InvokeIntent(in s intentName, in a{sv} hints, in a{sv} params, out a{sv} reply)"};
    QCOMPARE(membersOf(Intents, xml), expected);
    QCOMPARE(documentedMembersOf(Intents), expected);
}

void TestIntentRouting::nothingCanBeActivated()
{
    const QJsonObject bus{{"destination", "org.freedesktop.DBus"},
                          {"path", "/org/freedesktop/DBus"},
                          {"interface", "org.freedesktop.DBus"}};
    QCOMPARE(peer.call("ListActivatableNames", {}, bus).text, QString("(as) (['org.freedesktop.DBus'],)"));
}

QTEST_GUILESS_MAIN(TestIntentRouting)
#include "tst_intent_routing.moc"
