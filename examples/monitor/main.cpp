// SPDX-License-Identifier: BSD-3-Clause
// Prints what becomes of applications, and of the system's memory, as it happens.
#include <Corvane/Lifecycle>
#include <Corvane/MemoryPressure>

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
        return QStringLiteral("is in state %1").arg(state); // the service may send numbers that have no name here
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

    // An application owns its name on the bus while it runs; without one it may watch all the same.
    if (const Corvane::Error error = Lifecycle::instance()->startService())
        say(QStringLiteral("I have no bus name: %1").arg(error.message()));
    say(QStringLiteral("I watch"));
    return QCoreApplication::exec();
}
