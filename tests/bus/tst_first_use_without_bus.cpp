// SPDX-License-Identifier: BSD-3-Clause
// The first use of each class in a process that has lost its bus. Qt keeps data of a first use, therefore each one has
// its own process.
#include <Corvane/intents_invoker.h>
#include <Corvane/lifecycle.h>
#include <Corvane/memory_pressure.h>
#include <Corvane/runtime_dispatcher.h>
#include <Corvane/service_monitor.h>
#include <Corvane/task.h>

#include <bus_daemon.h>
#include <patience.h>
#include <run_until.h>

#include <QtCore/QProcess>
#include <QtDBus/QDBusConnection>
#include <QtTest/QtTest>

#include <cstdio>
#include <functional>

using namespace Corvane;

namespace {

const char *const NotConnected = "1 Not connected to D-Bus server";

/// Each use prints one result, at once or from the event loop.
void print(const QString &text)
{
    std::puts(qUtf8Printable(text));
    QCoreApplication::quit();
}

void print(const Error &error)
{
    print(QString("%1 %2").arg(int(error.code())).arg(error.message()));
}

QMap<QString, std::function<void()>> uses()
{
    return {
        {"IntentsInvoker",
         [] {
             auto *invoker = new IntentsInvoker(qApp);
             QObject::connect(invoker, &IntentsInvoker::replyReceived, qApp,
                              [](auto, const Error &error) { print(error); });
             invoker->invoke("X", {}, {});
         }},
        {"Lifecycle", [] { print(Lifecycle::instance()->startService()); }},
        {"MemoryPressure", [] { print(QVariant::fromValue(MemoryPressure::instance()->level()).toString()); }},
        {"RuntimeDispatcher", [] { print(RuntimeDispatcher::instance()->startService()); }},
        {"ServiceMonitor", [] { print((new ServiceMonitor(qApp))->isAvailable() ? "available" : "not available"); }},
        {"Task", [] { (new Task("sync", qApp))->start([](const Error &error) { print(error); }); }},
    };
}

/// Loses the bus, and uses a class.
int use(const QString &name)
{
    BusDaemon bus;
    const QDBusConnection connection = QDBusConnection::sessionBus();
    if (!connection.isConnected())
        qFatal("There is no bus");
    bus.crash();
    if (!runUntil([&connection] { return !connection.isConnected(); }))
        qFatal("The connection is still open");
    QMetaObject::invokeMethod(qApp, uses().value(name), Qt::QueuedConnection);
    return QCoreApplication::exec();
}

} // namespace

class TestFirstUseWithoutBus : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void firstUseHasAResult_data();
    void firstUseHasAResult();
};

void TestFirstUseWithoutBus::firstUseHasAResult_data()
{
    QTest::addColumn<QByteArray>("result");
    QTest::newRow("IntentsInvoker") << QByteArray(NotConnected);
    QTest::newRow("Lifecycle") << QByteArray(NotConnected);
    QTest::newRow("MemoryPressure") << QByteArray("NormalLevel");
    QTest::newRow("RuntimeDispatcher") << QByteArray(NotConnected);
    QTest::newRow("ServiceMonitor") << QByteArray("not available");
    QTest::newRow("Task") << QByteArray(NotConnected);
}

void TestFirstUseWithoutBus::firstUseHasAResult()
{
    QFETCH(QByteArray, result);
    QProcess process;
    process.start(QCoreApplication::applicationFilePath(), {"--use", QTest::currentDataTag()});
    QVERIFY(process.waitForFinished(Patience));
    QVERIFY2(process.exitStatus() == QProcess::NormalExit, process.readAllStandardError());
    QCOMPARE(process.readAllStandardOutput(), result + '\n');
}

int main(int argc, char **argv)
{
    QCoreApplication application(argc, argv);
    const QStringList arguments = QCoreApplication::arguments();
    if (arguments.value(1) == "--use")
        return use(arguments.value(2));
    TestFirstUseWithoutBus test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_first_use_without_bus.moc"
