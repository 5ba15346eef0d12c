// SPDX-License-Identifier: BSD-3-Clause
// Runs as the command of corvane-standin, with the applications of tests/standin/applications.
#include <introspection.h>
#include <patience.h>
#include <service_peer.h>

#include <QtTest/QtTest>

namespace {

const QString Root = QStringLiteral(CORVANE_SERVICE_ROOT);
const QString Properties = QStringLiteral("org.freedesktop.DBus.Properties");

QString state(const char *instance, int code)
{
    return QString("StateChanged (su) ('%1', uint32 %2)").arg(instance).arg(code);
}

QString level(int number)
{
    return QString("PropertiesChanged (sa{sv}as) ('%1.MemoryPressure1', {'Level': <%2>}, @as [])")
        .arg(Root)
        .arg(number);
}

} // namespace

class TestNotifications : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void initTestCase();
    void applicationStatesAreAnnounced();
    void everyExitIsAnnounced_data();
    void everyExitIsAnnounced();
    void programThatCannotStartIsNotAnnounced();
    void applicationIsStartedOnce();
    void nameThatIsAlreadyOwnedIsNoticed();
    void stubbornApplicationIsKilled();
    void unknownApplicationsAreRefused_data();
    void unknownApplicationsAreRefused();
    void memoryLevelCanBeSet();
    void subscribeReplies();
    void interfacesAgreeWithTheirDocumentation_data();
    void interfacesAgreeWithTheirDocumentation();

private:
    QString call(const QString &object, const QString &member, const QString &body, const QString &interface = {})
    {
        const QString name = Root + '.' + object;
        return peer
            .call(member, body,
                  {{"destination", Root},
                   {"path", '/' + QString(name).replace('.', '/')},
                   {"interface", interface.isEmpty() ? name : interface}})
            .text;
    }
    QString control(const QString &member, const QString &body) { return call("StandIn1", member, body); }
    QString start(const QString &id) { return control("StartApplication", QString("('%1',)").arg(id)); }
    QString stop(const QString &id) { return control("StopApplication", QString("('%1',)").arg(id)); }

    ServicePeer peer;
};

void TestNotifications::initTestCase()
{
    QCOMPARE(control("SetMemoryLevel", "(0,)"), QString("() ()"));
    peer.watchSignals();
}

void TestNotifications::applicationStatesAreAnnounced()
{
    QCOMPARE(start("echo"), QString("(s) ('echo.instance1',)"));
    QCOMPARE(peer.takeSignals(), QStringList({state("echo.instance1", 1), state("echo.instance1", 2)}));
    QCOMPARE(stop("echo"), QString("() ()"));
    QCOMPARE(peer.takeSignals(), QStringList(state("echo.instance1", 5)));
    QCOMPARE(stop("echo"), QString("() ()"));
    QCOMPARE(peer.takeSignals(), QStringList());
    QCOMPARE(start("echo"), QString("(s) ('echo.instance2',)"));
    QCOMPARE(peer.takeSignals(), QStringList({state("echo.instance2", 1), state("echo.instance2", 2)}));
}

void TestNotifications::everyExitIsAnnounced_data()
{
    QTest::addColumn<QString>("intent");
    QTest::addColumn<QStringList>("expected");

    QTest::newRow("normal") << "Once"
                            << QStringList({state("once.instance1", 1), state("once.instance1", 2),
                                            state("once.instance1", 5)});
    QTest::newRow("crash") << "Crash"
                           << QStringList({state("crash.instance1", 1), state("crash.instance1", 2),
                                           state("crash.instance1", 5)});
    QTest::newRow("at once") << "Exit" << QStringList({state("exit.instance1", 1), state("exit.instance1", 5)});
}

void TestNotifications::everyExitIsAnnounced()
{
    QFETCH(QString, intent);
    QFETCH(QStringList, expected);

    call("Intents1", "InvokeIntent", QString("('%1', @a{sv} {}, @a{sv} {})").arg(intent));
    QStringList states;
    QTRY_COMPARE((states += peer.takeSignals(), states), expected);
}

void TestNotifications::programThatCannotStartIsNotAnnounced()
{
    QCOMPARE(start("absent"),
             QString("%1.Error.ApplicationNotRunning (s) ('absent.instance1 cannot be started: /nonexistent/program: "
                     "No such file or "
                     "directory',)")
                 .arg(Root));
    QCOMPARE(peer.takeSignals(), QStringList());
}

void TestNotifications::applicationIsStartedOnce()
{
    const QString text = start("tell");
    QCOMPARE(text, QString("(s) ('tell.instance1',)"));
    QCOMPARE(start("tell"), text);
    QCOMPARE(peer.takeSignals(), QStringList({state("tell.instance1", 1), state("tell.instance1", 2)}));
}

void TestNotifications::nameThatIsAlreadyOwnedIsNoticed()
{
    peer.claimName("quiet.instance1"); // simulates a process that owns its name before the stand-in watches it
    QCOMPARE(start("quiet"), QString("(s) ('quiet.instance1',)"));
    QCOMPARE(peer.takeSignals(), QStringList({state("quiet.instance1", 1), state("quiet.instance1", 2)}));
    QCOMPARE(stop("quiet"), QString("() ()"));
    QCOMPARE(peer.takeSignals(), QStringList(state("quiet.instance1", 5)));
}

void TestNotifications::stubbornApplicationIsKilled()
{
    QCOMPARE(start("stubborn"), QString("(s) ('stubborn.instance1',)"));
    QCOMPARE(peer.takeSignals(), QStringList({state("stubborn.instance1", 1), state("stubborn.instance1", 2)}));
    QCOMPARE(stop("stubborn"), QString("() ()"));
    QCOMPARE(peer.takeSignals(), QStringList(state("stubborn.instance1", 5)));
}

void TestNotifications::unknownApplicationsAreRefused_data()
{
    QTest::addColumn<QString>("id");

    QTest::newRow("unknown") << "nobody";
    QTest::newRow("empty") << "";
    QTest::newRow("instance") << "echo.instance2";
}

void TestNotifications::unknownApplicationsAreRefused()
{
    QFETCH(QString, id);

    const QString error =
        QString("org.freedesktop.DBus.Error.InvalidArgs (s) ('No manifest has the id \"%1\"',)").arg(id);
    QCOMPARE(start(id), error);
    QCOMPARE(stop(id), error);
}

void TestNotifications::memoryLevelCanBeSet()
{
    const auto set = [this](int number) {
        QCOMPARE(control("SetMemoryLevel", QString("(%1,)").arg(number)), QString("() ()"));
        QCOMPARE(call("MemoryPressure1", "GetAll", QString("('%1.MemoryPressure1',)").arg(Root), Properties),
                 QString("(a{sv}) ({'Level': <%1>},)").arg(number));
    };
    for (const int number : {100, 200, 150, -1, 0}) {
        set(number);
        QCOMPARE(peer.takeSignals(), QStringList(level(number)));
        set(number); // no signal without a change
        QCOMPARE(peer.takeSignals(), QStringList());
    }
}

void TestNotifications::subscribeReplies()
{
    QCOMPARE(call("MemoryPressure1", "Subscribe", "()"), QString("() ()"));
}

void TestNotifications::interfacesAgreeWithTheirDocumentation_data()
{
    QTest::addColumn<QString>("object");
    QTest::addColumn<QStringList>("members");

    QTest::newRow("lifecycle") << "Lifecycle1" << QStringList("signal StateChanged(out s appInstanceId, out u state)");
    QTest::newRow("memory pressure") << "MemoryPressure1"
                                     << QStringList({"method Subscribe()", "property Level: i read()"});
    QTest::newRow("control") << "StandIn1"
                             << QStringList({"method GetStatus(out s status)", "method SetMemoryLevel(in i level)",
                                             "method FollowMemoryPressure()",
                                             "method MoveClock(in x milliseconds, out s now)",
                                             "method MoveClockTo(in s time, out s now)", "method ReloadManifests()",
                                             "method StartApplication(in s applicationId, out s appInstanceId)",
                                             "method StopApplication(in s applicationId)",
                                             "method JoinApplication(in s applicationId, out s appInstanceId)",
                                             "method SetApplicationState(in s applicationId, in u state)",
                                             "method StartMonitor()", "signal Traced(out x time, out s line)"});
}

void TestNotifications::interfacesAgreeWithTheirDocumentation()
{
    QFETCH(QString, object);
    QFETCH(QStringList, members);

    const QString xml = introspectionIn(call(object, "Introspect", {}, "org.freedesktop.DBus.Introspectable"));
    const QString interface = Root + '.' + object;
    QCOMPARE(membersOf(interface, xml), members);
    QCOMPARE(documentedMembersOf(interface), members);
}

QTEST_GUILESS_MAIN(TestNotifications)
#include "tst_notifications.moc"
