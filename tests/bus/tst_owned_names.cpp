// SPDX-License-Identifier: BSD-3-Clause
// QtDBus crashes if a call searches its list of owned names while its bus thread changes the list. This program
// replaces two functions that QtDBus calls, so that both happen at once unless one waits for the other: the bus thread
// rests after each message, and a search takes longer than that, and sees whether the list changes.
#include <Corvane/lifecycle.h>
#include <DBus/session_bus.h>

#include <patience.h>

#include <QtCore/QProcess>
#include <QtDBus/QDBusConnectionInterface>
#include <QtDBus/QDBusMessage>
#include <QtDBus/QDBusPendingCall>
#include <QtTest/QtTest>

#include <algorithm>
#include <atomic>
#include <cstdio>

#include <dlfcn.h>
#include <unistd.h>

using namespace Corvane;

namespace {

constexpr unsigned long Rest = 1000; // microseconds
constexpr unsigned long Search = 3000;

std::atomic_int rests = 0;
std::atomic_int searches = 0;
std::atomic_int changes = 0;

/// Calls a name that is neither the bus's nor this connection's: QtDBus searches its list.
QDBusPendingCall call()
{
    const QString nobody = "org.example.Nobody";
    return sessionBus().asyncCall(QDBusMessage::createMethodCall(nobody, "/", nobody, "Call"));
}

/// The start of an application whose event loop calls at once. Prints what the searches saw.
[[noreturn]] void start(const QString &firstUser)
{
    const auto callOften = [] {
        for (int i = 0; i < 10; ++i)
            call();
        QCoreApplication::quit();
    };
    if (firstUser == "library") {
        if (const Error error = Lifecycle::instance()->startService())
            qFatal("%s", qPrintable(error.message()));
    } else {
        const auto reply = QDBusConnection::sessionBus().interface()->registerService("demo.instance1");
        if (reply != QDBusConnectionInterface::ServiceRegistered)
            qFatal("The name is not registered");
    }
    QMetaObject::invokeMethod(qApp, callOften, Qt::QueuedConnection);
    QCoreApplication::exec();
    std::printf("%d searches, %d changes\n", searches.load(), changes.load());
    std::fflush(stdout);
    ::_exit(0); // without destructors: Qt leaks the messages that are in its queues by then
}

} // namespace

bool QtPrivate::QStringList_contains(const QStringList *list, const QString &text, Qt::CaseSensitivity sensitivity)
{
    const auto first = list->constBegin();
    const int size = list->size();
    QThread::usleep(Search);
    ++searches;
    if (first != list->constBegin() || size != list->size())
        ++changes;
    return std::any_of(list->constBegin(), list->constEnd(), [&text, sensitivity](const QString &candidate) {
        return candidate.compare(text, sensitivity) == 0;
    });
}

// QtDBus reads messages with this function. It finds the name and the reply to the request for the name together.
extern "C" Q_DECL_EXPORT unsigned int dbus_watch_handle(void *watch, unsigned int flags)
{
    static const auto handle =
        reinterpret_cast<unsigned int (*)(void *, unsigned int)>(::dlsym(RTLD_NEXT, "dbus_watch_handle"));
    QThread::usleep(Rest);
    ++rests;
    return handle(watch, flags);
}

extern "C" Q_DECL_EXPORT int dbus_connection_dispatch(void *connection)
{
    static const auto dispatch = reinterpret_cast<int (*)(void *)>(::dlsym(RTLD_NEXT, "dbus_connection_dispatch"));
    const int result = dispatch(connection);
    QThread::usleep(Rest);
    ++rests;
    return result;
}

class TestOwnedNames : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void namesFromBeforeTheEventLoop_data();
    void namesFromBeforeTheEventLoop();
    void namesWhileTheEventLoopRuns();
};

void TestOwnedNames::namesFromBeforeTheEventLoop_data()
{
    QTest::addColumn<QString>("firstUser");
    QTest::newRow("the library connects to the bus") << "library";
    QTest::newRow("the application connects to the bus") << "application";
}

void TestOwnedNames::namesFromBeforeTheEventLoop()
{
    QFETCH(QString, firstUser);
    QProcess process;
    process.start(QCoreApplication::applicationFilePath(), {"--start", firstUser});
    QVERIFY(process.waitForFinished(Patience));
    QCOMPARE(process.readAllStandardError(), QByteArray());
    QCOMPARE(process.readAllStandardOutput(), QByteArray("10 searches, 0 changes\n"));
}

void TestOwnedNames::namesWhileTheEventLoopRuns()
{
    sessionBus();
    QTRY_VERIFY(rests > 0);
    bool started = false;
    QMetaObject::invokeMethod(
        this, [&started] { started = true; }, Qt::QueuedConnection);
    QTRY_VERIFY(started);
    for (int i = 0; i < 10; ++i) {
        QCOMPARE(Lifecycle::instance()->startService(), Error());
        call().waitForFinished();
        QCOMPARE(Lifecycle::instance()->stopService(), Error());
        call().waitForFinished();
    }
    QCOMPARE(Lifecycle::instance()->stopService(),
             Error()); // the bus thread handles all earlier replies before this one
    QVERIFY(searches >= 20);
    QCOMPARE(changes, 0);
}

int main(int argc, char **argv)
{
    QCoreApplication application(argc, argv);
    const QStringList arguments = QCoreApplication::arguments();
    if (arguments.value(1) == "--start")
        start(arguments.value(2));
    TestOwnedNames test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_owned_names.moc"
