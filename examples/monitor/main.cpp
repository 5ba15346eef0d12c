// SPDX-License-Identifier: BSD-3-Clause
// Prints the states of applications and the memory pressure when they change.
#include <Corvane/Lifecycle>
#include <Corvane/MemoryPressure>
#include <Corvane/ServiceMonitor>

#include <QtCore/QCoreApplication>
#include <QtCore/QMetaEnum>
#include <QtCore/QTextStream>

using Corvane::Lifecycle;
using Corvane::MemoryPressure;

namespace {

void say(const QString &text)
{
    QTextStream(stdout) << "monitor: " << text << Qt::endl;
}

void showState(const QString &appInstanceId, Corvane::ApplicationState state)
{
    const auto toText = [state]() -> QString {
        switch (state) {
        case Corvane::UnknownState:
            break;
        case Corvane::LaunchingState:
            return QStringLiteral("has been launched");
        case Corvane::ForegroundState:
            return QStringLiteral("is in the foreground");
        case Corvane::BackgroundState:
            return QStringLiteral("is in the background");
        case Corvane::SuspendedState:
            return QStringLiteral("has been suspended");
        case Corvane::StoppedState:
            return QStringLiteral("has stopped");
        }
        return QStringLiteral("is in state %1").arg(state); // an unknown number from the service
    };
    say(QStringLiteral("%1 %2").arg(appInstanceId, toText()));
}

void showLevel(MemoryPressure::MemoryLevel level)
{
    const char *name = QMetaEnum::fromType<MemoryPressure::MemoryLevel>().valueToKey(level);
    say(QStringLiteral("memory pressure is %1 (%2)").arg(level).arg(QLatin1String(name ? name : "has no name")));
}

} // namespace

int main(int argc, char **argv)
{
    const QCoreApplication application(argc, argv);
    QObject::connect(Lifecycle::instance(), &Lifecycle::stateChanged, showState);
    QObject::connect(MemoryPressure::instance(), &MemoryPressure::levelChanged, showLevel);
    // A restarted service does not know the subscription to the memory pressure.
    const Corvane::ServiceMonitor service;
    QObject::connect(&service, &Corvane::ServiceMonitor::availableChanged, &service, &Corvane::ServiceMonitor::refresh);

    // A running application owns its bus name. The signals arrive without one too.
    if (const Corvane::Error error = Lifecycle::instance()->startService())
        say(QStringLiteral("No bus name: %1").arg(error.message()));
    say(QStringLiteral("Waiting for changes"));
    return QCoreApplication::exec();
}
