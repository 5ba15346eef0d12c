// SPDX-License-Identifier: BSD-3-Clause
// The constructors that register the record types. Each runs alone in a new process of this program.
#include <Corvane/intents_invoker.h>
#include <Corvane/lifecycle.h>
#include <Corvane/memory_pressure.h>
#include <Corvane/runtime_dispatcher.h>
#include <Corvane/task.h>

#include <patience.h>

#include <QtCore/QProcess>
#include <QtTest/QtTest>

#include <cstdlib>

using namespace Corvane;

namespace {

void make(const QByteArray &className)
{
    if (className == "IntentsInvoker")
        const IntentsInvoker invoker;
    else if (className == "RuntimeDispatcher")
        const RuntimeDispatcher dispatcher;
    else if (className == "MemoryPressure")
        delete MemoryPressure::instance();
    else if (className == "Task")
        const Task task("sync");
    else if (className == "Lifecycle")
        delete Lifecycle::instance();
}

} // namespace

class TestRegistration : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void constructorsRegisterTheTypes_data();
    void constructorsRegisterTheTypes();
};

void TestRegistration::constructorsRegisterTheTypes_data()
{
    QTest::addColumn<bool>("registers");

    QTest::newRow("IntentsInvoker") << true;
    QTest::newRow("RuntimeDispatcher") << true;
    QTest::newRow("MemoryPressure") << true;
    QTest::newRow("Task") << true;
    QTest::newRow("Lifecycle") << false;
    QTest::newRow("nothing") << false;
}

void TestRegistration::constructorsRegisterTheTypes()
{
    QFETCH(bool, registers);

    QProcess process;
    process.start(QCoreApplication::applicationFilePath(), {"--make", QString::fromLatin1(QTest::currentDataTag())});
    QVERIFY(process.waitForFinished(60000));
    QCOMPARE(process.exitStatus(), QProcess::NormalExit);
    QCOMPARE(process.exitCode(), registers ? 1 : 0);
}

int main(int argc, char *argv[])
{
    QCoreApplication application(argc, argv);
    if (argc == 3 && qstrcmp(argv[1], "--make") == 0) {
        make(argv[2]);
        // Exits without destructors: Qt would leak the connection, because a proxy that is never deleted uses it.
        std::_Exit(QMetaType::isRegistered(QMetaType::type("TaskState")) ? 1 : 0);
    }
    TestRegistration test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_registration.moc"
