// SPDX-License-Identifier: BSD-3-Clause
#include <Corvane/error.h>
#include <Corvane/lifecycle.h>
#include <Corvane/memory_pressure.h>
#include <Corvane/schedule.h>
#include <Corvane/task.h>
#include <Corvane/task_messaging.h>

#include <patience.h>

#include <QtCore/QDebug>
#include <QtTest/QtTest>

using namespace Corvane;

namespace {

template<typename T>
QString printed(const T &value)
{
    QString text;
    QDebug(&text) << value << 1; // the 1 shows that the spaces are restored
    return text;
}

} // namespace

class TestDebug : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void valuesPrintTheirNames_data();
    void valuesPrintTheirNames();
    void optionsOfTheStreamAreKept();
};

void TestDebug::valuesPrintTheirNames_data()
{
    QTest::addColumn<QString>("actual");
    QTest::addColumn<QString>("expected");

    const auto row = [](const QString &actual, const char *expected) {
        QTest::newRow(expected) << actual << QString(expected) + " 1 ";
    };
    row(printed(Error::NoError), "Corvane::Error::NoError");
    row(printed(Error::Failed), "Corvane::Error::Failed");
    row(printed(Error::HandlerNotFound), "Corvane::Error::HandlerNotFound");
    row(printed(Error::HandlerFailed), "Corvane::Error::HandlerFailed");
    row(printed(Error::InvalidArgs), "Corvane::Error::InvalidArgs");
    row(printed(Error::NotSupported), "Corvane::Error::NotSupported");
    row(printed(Error::AccessDenied), "Corvane::Error::AccessDenied");
    row(printed(Error::ProcessNotHandled), "Corvane::Error::ProcessNotHandled");
    row(printed(Error::ApplicationNotRunning), "Corvane::Error::ApplicationNotRunning");
    row(printed(Error::ApplicationAlreadyRunning), "Corvane::Error::ApplicationAlreadyRunning");
    row(printed(Error::ApplicationAlreadyLaunching), "Corvane::Error::ApplicationAlreadyLaunching");
    row(printed(Error::Code(300)), "Corvane::Error::Code(300)");
    row(printed(Error::Code(-1)), "Corvane::Error::Code(-1)");

    row(printed(Error()), R"(Corvane::Error(NoError, ""))");
    row(printed(Error(Error::Failed, R"(no "bus")")), R"(Corvane::Error(Failed, "no \"bus\""))");
    row(printed(Error(Error::Code(300), "text")), R"(Corvane::Error(300, "text"))");

    row(printed(UnknownState), "Corvane::UnknownState");
    row(printed(LaunchingState), "Corvane::LaunchingState");
    row(printed(ForegroundState), "Corvane::ForegroundState");
    row(printed(BackgroundState), "Corvane::BackgroundState");
    row(printed(SuspendedState), "Corvane::SuspendedState");
    row(printed(StoppedState), "Corvane::StoppedState");
    row(printed(ApplicationState(4294967295)), "Corvane::ApplicationState(4294967295)");

    row(printed(MemoryPressure::NormalLevel), "Corvane::MemoryPressure::NormalLevel");
    row(printed(MemoryPressure::LowLevel), "Corvane::MemoryPressure::LowLevel");
    row(printed(MemoryPressure::CriticalLevel), "Corvane::MemoryPressure::CriticalLevel");
    row(printed(MemoryPressure::MemoryLevel(150)), "Corvane::MemoryPressure::MemoryLevel(150)");

    row(printed(Task::Unknown), "Corvane::Task::Unknown");
    row(printed(Task::Running), "Corvane::Task::Running");
    row(printed(Task::Stopped), "Corvane::Task::Stopped");
    row(printed(Task::Waiting), "Corvane::Task::Waiting");
    row(printed(Task::State(4)), "Corvane::Task::State(4)");
    row(printed(Task::Force), "Corvane::Task::Force");
    row(printed(Task::StopFlag(2)), "Corvane::Task::StopFlag(2)");
    row(printed(Task::StopFlags()), "QFlags<Corvane::Task::StopFlag>()");
    row(printed(Task::StopFlags(Task::Force)), "QFlags<Corvane::Task::StopFlag>(Force)");
    row(printed(Task::StopFlags(0x13)), "QFlags<Corvane::Task::StopFlag>(Force|0x12)");
    row(printed(Task::StopFlags(0x10)), "QFlags<Corvane::Task::StopFlag>(0x10)");

    row(printed(TaskMessaging::Unconnected), "Corvane::TaskMessaging::Unconnected");
    row(printed(TaskMessaging::Connecting), "Corvane::TaskMessaging::Connecting");
    row(printed(TaskMessaging::Connected), "Corvane::TaskMessaging::Connected");
    row(printed(TaskMessaging::Closing), "Corvane::TaskMessaging::Closing");
    row(printed(TaskMessaging::State(-1)), "Corvane::TaskMessaging::State(-1)");

    row(printed(Schedule()), "Corvane::Schedule()");
    row(printed(Schedule().onHours({8, 20}).onMinutes({}).sinceDate(QDateTime({2030, 1, 2}, {3, 4}, Qt::UTC))),
        R"(Corvane::Schedule(Hours: (8, 20), Minutes: (), StartDate: "2030-01-02T03:04:00Z"))");
    row(printed(Schedule(QVariantMap{{"Hours", 8}})), "Corvane::Schedule(Hours: QVariant(int, 8))");
}

void TestDebug::valuesPrintTheirNames()
{
    QFETCH(QString, actual);
    QFETCH(QString, expected);

    QCOMPARE(actual, expected);
}

void TestDebug::optionsOfTheStreamAreKept()
{
    QString text;
    QDebug(&text).nospace().noquote() << Task::StopFlags(0x10) << 16 << Schedule().sinceDate({}) << "a" << QString("b");
    QCOMPARE(text, R"(QFlags<Corvane::Task::StopFlag>(0x10)16Corvane::Schedule(StartDate: "")ab)");
}

QTEST_GUILESS_MAIN(TestDebug)
#include "tst_debug.moc"
