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
    return QStringLiteral("%1.Error.%2 (s) ('%3',)").arg(Root, QLatin1String(name), reason);
}

int descriptorsOfStandIn()
{
    return QDir(QStringLiteral("/proc/%1/fd").arg(::getppid())).entryList(QDir::AllEntries | QDir::System).size();
}

} // namespace

class TestIntentRouting : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void valuesTravelAsTheyAre_data();
    void valuesTravelAsTheyAre();
    void callsKeepTheirOrderWhileTheApplicationStarts();
    void applicationIsToldWhoItIs();
    void commandIsNobody();
    void everyInstanceHasANameOfItsOwn();
    void failuresAreTold_data();
    void failuresAreTold();
    void deathOfTheHandlerIsTold();
    void callerMayDieBeforeItsAnswer();
    void descriptorsAreClosed_data();
    void descriptorsAreClosed();
    void descriptorsInParamsAreRefused_data();
    void descriptorsInParamsAreRefused();
    void callsAreTakenAsDocumentedOnly_data();
    void callsAreTakenAsDocumentedOnly();
    void showsWhatIsDocumented();
    void nothingCanBeActivated();

private:
    ServicePeer::Reply call(const QString &member, const QString &body, QJsonObject more = {})
    {
        more.insert(QStringLiteral("destination"), Root);
        more.insert(QStringLiteral("path"), objectPath());
        if (!more.contains(QStringLiteral("interface")))
            more.insert(QStringLiteral("interface"), Intents);
        return peer.call(member, body, more);
    }
    int beginInvoke(const QString &intent, const QString &params)
    {
        return peer.beginCall(InvokeIntent, QStringLiteral("('%1', @a{sv} {}, %2)").arg(intent, params),
                              {{QStringLiteral("destination"), Root},
                               {QStringLiteral("path"), objectPath()},
                               {QStringLiteral("interface"), Intents}});
    }
    QString invoke(const QString &intent, const QString &params = QStringLiteral("@a{sv} {}"))
    {
        return peer.finishCall(beginInvoke(intent, params)).text;
    }
    static QString objectPath()
    {
        return QLatin1Char('/') + QString(Intents).replace(QLatin1Char('.'), QLatin1Char('/'));
    }

    ServicePeer peer;
};

void TestIntentRouting::valuesTravelAsTheyAre_data()
{
    QTest::addColumn<QString>("params");

    QTest::newRow("empty") << "@a{sv} {}";
    QTest::newRow("of JSON") << "{'b': <true>, 'd': <1.5>, 's': <'text'>, 'o': <{'x': <1.0>}>}";
    QTest::newRow("integers") << "{'i': <3>, 'n': <int16 -3>, 'q': <uint16 3>, 't': <uint64 3>, 'u': <uint32 3>, "
                                 "'x': <int64 -3>, 'y': <byte 0x03>}";
    QTest::newRow("names") << "{'g': <signature 'a{sv}'>, 'o': <objectpath '/a/b'>}";
    QTest::newRow("arrays") << "{'ab': <[true, false]>, 'as': <['a', 'b']>, 'av': <[<1>, <'x'>]>, 'ay': <b'bytes'>}";
    QTest::newRow("empty arrays") << "{'ab': <@ab []>, 'as': <@as []>, 'av': <@av []>, 'aas': <@aas []>}";
    QTest::newRow("structures") << "{'a': <[(1, 'x'), (2, 'y')]>, 's': <(1, (2.0, 'x'))>}";
    QTest::newRow("maps") << "{'ais': <{1: 'x'}>, 'aaasv': <[{'x': <1>}]>}";
    QTest::newRow("variant in a variant") << "{'v': <<<1>>>}";
    QTest::newRow("any text") << QString::fromUtf8("{'ключ \"\\\\': <'日本\\n\\t😀'>}");
}

void TestIntentRouting::valuesTravelAsTheyAre()
{
    QFETCH(QString, params);

    QCOMPARE(invoke(QStringLiteral("Echo"), params), QStringLiteral("(a{sv}) (%1,)").arg(params));
}

void TestIntentRouting::callsKeepTheirOrderWhileTheApplicationStarts()
{
    QVector<int> calls;
    for (int i = 0; i < 50; ++i)
        calls << beginInvoke(QStringLiteral("Count"), QStringLiteral("{'i': <%1>}").arg(i));
    for (int i = 0; i < 50; ++i) {
        const QString text = peer.finishCall(calls.at(i)).text;
        QVERIFY2(text.contains(QStringLiteral("{\\'i\\': <%1>}").arg(i))
                     || text.contains(QStringLiteral("{'i': <%1>}").arg(i)),
                 qUtf8Printable(text));
        QVERIFY2(text.contains(QStringLiteral("'before': <%1>").arg(i)), qUtf8Printable(text));
    }
}

void TestIntentRouting::applicationIsToldWhoItIs()
{
    // And not what the stand-in itself has in its environment.
    QCOMPARE(QString::fromUtf8(qgetenv("HALVIR_OTHER")), QStringLiteral("kept"));
    const QString text = invoke(QStringLiteral("Tell"));
    const QString expected = QStringLiteral("'environment': <{'HALVIR_APP_ID': <'tell'>, 'HALVIR_APP_INSTANCE_ID': "
                                            "<'tell.instance1'>, 'HALVIR_OTHER': <'kept'>}>");
    const QString reordered = QStringLiteral("'environment': <{'HALVIR_OTHER': <'kept'>, 'HALVIR_APP_ID': <'tell'>, "
                                             "'HALVIR_APP_INSTANCE_ID': <'tell.instance1'>}>");
    QVERIFY2(text.contains(expected) || text.contains(reordered), qUtf8Printable(text));
}

void TestIntentRouting::commandIsNobody()
{
    const QStringList names = QProcessEnvironment::systemEnvironment().keys().filter(QStringLiteral("HALVIR_"));
    QCOMPARE(names, QStringList(QStringLiteral("HALVIR_OTHER")));
}

void TestIntentRouting::everyInstanceHasANameOfItsOwn()
{
    // The second call may come while the first instance is ending.
    for (int i = 1; i <= 5; ++i) {
        QCOMPARE(invoke(QStringLiteral("Once")), QStringLiteral("(a{sv}) ({'instance': <'once.instance%1'>},)").arg(i));
        QTRY_VERIFY(!peer.hasOwner(QStringLiteral("once.instance%1").arg(i)));
    }
}

void TestIntentRouting::failuresAreTold_data()
{
    QTest::addColumn<QString>("intent");
    QTest::addColumn<QString>("error");

    QTest::newRow("no handler") << "Nothing"
                                << serviceError("HandlerNotFound",
                                                QStringLiteral("No application handles \"Nothing\""));
    QTest::newRow("no name") << "" << serviceError("HandlerNotFound", QStringLiteral("No application handles \"\""));
    QTest::newRow("other case") << "echo"
                                << serviceError("HandlerNotFound", QStringLiteral("No application handles \"echo\""));
    QTest::newRow("error") << "Fail" << serviceError("HandlerFailed", QStringLiteral("fail.instance1: the reason"));
    QTest::newRow("wrong reply") << "Misspell"
                                 << serviceError("HandlerFailed",
                                                 QStringLiteral("misspell.instance1: The reply should have the "
                                                                "signature a{sv}a{sv}, and has \"s\""));
    QTest::newRow("no program") << "Absent"
                                << serviceError("ApplicationNotRunning",
                                                QStringLiteral("absent.instance1 cannot be started: execve: No such "
                                                               "file or directory"));
    QTest::newRow("ends at once") << "Exit"
                                  << serviceError("ApplicationNotRunning",
                                                  QStringLiteral("exit.instance1 has ended with exit code 3"));
    QTest::newRow("descriptor in the reply")
        << "Smuggle"
        << serviceError("HandlerFailed",
                        QStringLiteral("smuggle.instance1: Descriptors belong in the second map of the reply"));
    QTest::newRow("descriptor that is none")
        << "Pretend"
        << serviceError("HandlerFailed",
                        QStringLiteral("pretend.instance1: Descriptors belong in the second map of the reply"));
}

void TestIntentRouting::failuresAreTold()
{
    QFETCH(QString, intent);
    QFETCH(QString, error);

    QString text = invoke(intent);
    QCOMPARE(text.replace(QLatin1String("\\\""), QLatin1String("\"")), error);
    QCOMPARE(invoke(QStringLiteral("Echo")), QStringLiteral("(a{sv}) (@a{sv} {},)"));
}

void TestIntentRouting::deathOfTheHandlerIsTold()
{
    const QString text = invoke("Crash"); // the bus's own text follows
    QVERIFY2(text.startsWith(serviceError("HandlerFailed", "crash.instance1: ").chopped(3)), qUtf8Printable(text));
    QCOMPARE(invoke("Echo"), "(a{sv}) (@a{sv} {},)");
}

void TestIntentRouting::callerMayDieBeforeItsAnswer()
{
    for (int i = 0; i < 100; ++i)
        beginInvoke(QStringLiteral("Echo"), QStringLiteral("{'n': <%1.0>}").arg(i));
    beginInvoke(QStringLiteral("Crash"), QStringLiteral("@a{sv} {}"));
    invoke(QStringLiteral("Nothing")); // by whose answer the others have been sent
    peer.kill();
    peer.start();
    QCOMPARE(invoke(QStringLiteral("Echo"), QStringLiteral("{'next': <true>}")),
             QStringLiteral("(a{sv}) ({'next': <true>},)"));
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
            << QStringLiteral("('Echo', {'readFds': <%1>, 'writeFds': <%1>}, @a{sv} {})").arg(QLatin1String(value))
            << 1;
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
        names.append(QStringLiteral("/dev/null"));
    QJsonObject more{{QStringLiteral("files"), names}};
    call(InvokeIntent, body, more); // the application runs
    const int before = descriptorsOfStandIn();
    more.insert(QStringLiteral("repeat"), 20); // in batches, for those in flight count towards the process's limit
    for (int i = 0; i < 5; ++i) {
        const auto reply = call(InvokeIntent, body, more);
        QCOMPARE(reply.counts.size(), 1); // all of them had the same answer
    }
    // The stand-in may have been closing what the first call brought while they were counted. Once suffices: valgrind
    // has the process open files now and then.
    QVERIFY2(runUntil([before] { return descriptorsOfStandIn() <= before; }),
             qPrintable(QStringLiteral("%1 descriptors, before %2").arg(descriptorsOfStandIn()).arg(before)));
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

    for (const QJsonArray &files : {QJsonArray{QStringLiteral("/dev/null")}, QJsonArray()}) { // one, and a missing one
        const auto reply = call(InvokeIntent, QStringLiteral("('Echo', @a{sv} {}, %1)").arg(params),
                                {{QStringLiteral("files"), files}});
        QCOMPARE(reply.text,
                 QStringLiteral("org.freedesktop.DBus.Error.InvalidArgs (s) "
                                "('Descriptors belong in the hints',)"));
    }
}

void TestIntentRouting::callsAreTakenAsDocumentedOnly_data()
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

void TestIntentRouting::callsAreTakenAsDocumentedOnly()
{
    QFETCH(QString, member);
    QFETCH(QString, body);

    const QString text = call(member, body).text;
    QVERIFY2(text.startsWith(QStringLiteral("org.freedesktop.DBus.Error.UnknownMethod")), qUtf8Printable(text));
}

void TestIntentRouting::showsWhatIsDocumented()
{
    const QString xml =
        introspectionIn(call(QStringLiteral("Introspect"), {},
                             {{QStringLiteral("interface"), QStringLiteral("org.freedesktop.DBus.Introspectable")}})
                            .text);
    const QStringList expected{
        QStringLiteral("method InvokeIntent(in s intentName, in a{sv} hints, in a{sv} params, out a{sv} reply)")};
    QCOMPARE(membersOf(Intents, xml), expected);
    QCOMPARE(documentedMembersOf(Intents), expected);
}

void TestIntentRouting::nothingCanBeActivated()
{
    const QJsonObject bus{{QStringLiteral("destination"), QStringLiteral("org.freedesktop.DBus")},
                          {QStringLiteral("path"), QStringLiteral("/org/freedesktop/DBus")},
                          {QStringLiteral("interface"), QStringLiteral("org.freedesktop.DBus")}};
    QCOMPARE(peer.call(QStringLiteral("ListActivatableNames"), {}, bus).text,
             QStringLiteral("(as) (['org.freedesktop.DBus'],)"));
}

QTEST_GUILESS_MAIN(TestIntentRouting)
#include "tst_intent_routing.moc"
