// SPDX-License-Identifier: BSD-3-Clause
#include "watch.h"

#include "command_line.h"
#include "commands.h"
#include "output.h"
#include "session.h"

#include <Corvane/lifecycle.h>
#include <Corvane/memory_pressure.h>

#include <QtCore/QCoreApplication>

using Corvane::Error;
using Corvane::Lifecycle;
using Corvane::MemoryPressure;

Watch::Watch(const Invocation &invocation) : m_count(invocation.value("count").toInt()) { }

void Watch::print(const QString &text, const QJsonObject &object)
{
    if (m_count > 0 && m_printed == m_count)
        return; // the event loop is about to end
    Output::printLine(text, object);
    if (++m_printed == m_count)
        QCoreApplication::quit();
}

int Watch::run(const QString &subject)
{
    QObject::connect(&m_monitor, &Corvane::ServiceMonitor::availableChanged, &m_monitor,
                     [this](bool available) { onAvailableChanged(available); });
    Session::onTermination([] { QCoreApplication::quit(); });
    // Blocks until the bus has replied to all earlier calls. Then the monitor knows the service, and notices its loss.
    if (const Error error = Session::busError())
        return Output::fail(error);
    Output::printNote(QStringLiteral("Watching %1. Ctrl-C ends.").arg(subject));
    return QCoreApplication::exec();
}

void Watch::onAvailableChanged(bool available)
{
    if (available) {
        m_monitor.refresh();
    } else if (Session::busError()) {
        QCoreApplication::exit(Output::fail({Error::Failed, QStringLiteral("The session bus has ended")}));
    } else {
        Output::printNote(QStringLiteral("The service has ended. The watch continues when it starts again."));
    }
}

int watchLifecycle(const Invocation &invocation)
{
    if (const Error error = Session::serviceError())
        return Output::fail(error);
    Watch watch(invocation);
    QObject::connect(Lifecycle::instance(), &Lifecycle::stateChanged, QCoreApplication::instance(),
                     [&watch](const QString &instance, Corvane::ApplicationState state) {
                         const QString name = Output::nameOf(state);
                         watch.print(QStringLiteral("%1 %2").arg(Output::strong(instance), name),
                                     {{QStringLiteral("instance"), instance},
                                      {QStringLiteral("state"), name},
                                      {QStringLiteral("code"), int(state)}});
                     });
    return watch.run(QStringLiteral("the states of applications"));
}

int watchMemory(const Invocation &invocation)
{
    if (const Error error = Session::serviceError())
        return Output::fail(error);
    Watch watch(invocation);
    QObject::connect(MemoryPressure::instance(), &MemoryPressure::levelChanged, QCoreApplication::instance(),
                     [&watch](MemoryPressure::MemoryLevel level) {
                         const QString name = Output::nameOf(level);
                         watch.print(QStringLiteral("%1 %2").arg(level).arg(Output::strong(name)),
                                     {{QStringLiteral("level"), int(level)}, {QStringLiteral("name"), name}});
                     });
    return watch.run(QStringLiteral("the memory pressure"));
}
