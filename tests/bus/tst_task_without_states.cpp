// SPDX-License-Identifier: BSD-3-Clause
// Tasks of a process whose first task was created without a service, so that fetching the states failed.
#include <Corvane/task.h>

#include <bus_text.h>
#include <message_log.h>
#include <patience.h>
#include <service_peer.h>

#include <QtDBus/QDBusConnection>
#include <QtTest/QtTest>

using namespace Corvane;

class TestTaskWithoutStates : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void signalUpdatesExistingTasks();
};

void TestTaskWithoutStates::signalUpdatesExistingTasks()
{
    const QString sync = "sync";
    ServicePeer peer;
    const auto announce = [&peer](const QJsonObject &more = {}) {
        peer.emitSignal("Tasks1", CORVANE_SERVICE_ROOT ".Tasks1", "StateChanged", "([('sync', uint32 1, @a{sv} {})],)",
                        more);
    };
    peer.ownServiceName(false);
    MessageLog log;
    const Task early(sync);
    QVERIFY(peer.busRoundTrip());
    QCOMPARE(withoutBusTexts(log.takeWarnings()),
             QStringList("Failed to get the Tasks interface properties "
                         "QDBusError(\"org.freedesktop.DBus.Error.ServiceUnknown\", ...)"));
    // While no process owns the service's name, all signals are ignored.
    const QString us = QDBusConnection::sessionBus().baseService();
    for (const bool stranger : {false, true}) {
        announce({{"stranger", stranger}});
        announce({{"stranger", stranger}, {"destination", us}});
    }
    QCOMPARE(early.state(), Task::Unknown);

    peer.ownServiceName(true);
    announce();
    QCOMPARE(early.state(), Task::Running);

    const Task late(sync);
    QCOMPARE(late.state(), Task::Unknown); // earlier signals are not stored
    announce();
    QCOMPARE(late.state(), Task::Running);
    QCOMPARE(peer.calls(), QStringList()); // the states are not fetched again
}

QTEST_GUILESS_MAIN(TestTaskWithoutStates)
#include "tst_task_without_states.moc"
